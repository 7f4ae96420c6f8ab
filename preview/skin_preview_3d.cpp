#include "preview/skin_preview_3d.h"

#include "preview/box_baking.h"
#include "preview/model_import.h"
#include "preview/png_image.h"

#include <QMatrix4x4>
#include <QMouseEvent>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QTimer>
#include <QWheelEvent>

#include <cmath>
#include <numbers>
#include <utility>

namespace {

constexpr int tickMs = 16;
constexpr float radiansPerPixel = 0.01F;
constexpr float fullTurn = 2 * std::numbers::pi_v<float>;
constexpr float maxPitch = 1.4F;
constexpr float unitsPerWheelStep = 0.002F;
constexpr float minDistance = 1.2F;
constexpr float maxDistance = 8.0F;
constexpr float aimHeight = 1.0F; // the middle of the default figure

constexpr char vertexShader[] = "#version 330 core\n"
                                "layout(location=0) in vec3 aPos;\n"
                                "layout(location=1) in vec2 aUV;\n"
                                "uniform mat4 mvp;\n"
                                "out vec2 vUV;\n"
                                "void main() { vUV = aUV; gl_Position = mvp * vec4(aPos, 1.0); }";

// Texels are shown as they are; what is nearly transparent is cut away, which makes the empty
// parts of a skin's outer layer invisible.
constexpr char fragmentShader[] = "#version 330 core\n"
                                  "in vec2 vUV;\n"
                                  "uniform sampler2D tex;\n"
                                  "uniform vec3 lightDir;\n"
                                  "out vec4 frag;\n"
                                  "void main() {\n"
                                  "    vec4 c = texture(tex, vUV);\n"
                                  "    if (c.a < 0.1) discard;\n"
                                  "    frag = c;\n"
                                  "}";

QOpenGLFunctions* gl()
{
    return QOpenGLContext::currentContext()->functions();
}

QImage fallbackTexture()
{
    QImage image(8, 8, QImage::Format_RGBA8888);
    image.fill(QColor(90, 100, 120));
    return image;
}

} // namespace

SkinPreview3D::SkinPreview3D(QWidget* parent) : QOpenGLWidget(parent), m_timer(new QTimer(this))
{
    setMinimumSize(280, 320);
    m_timer->setInterval(tickMs);
    connect(m_timer, &QTimer::timeout, this, &SkinPreview3D::tick);
    m_timer->start();
}

SkinPreview3D::~SkinPreview3D()
{
    if (!isValid())
        return;
    disconnect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &SkinPreview3D::releaseGl);
    releaseGl();
}

void SkinPreview3D::setSkin(const QByteArray& png)
{
    m_skin = decodePng(png);
    m_hasSkin = !m_skin.isNull();
    rebuild();
    update();
}

void SkinPreview3D::setModel(const QByteArray& json)
{
    setImportedModel(importModel(json));
}

void SkinPreview3D::setImportedModel(const ImportedModel& imported)
{
    m_modelTexture = imported.texture;
    m_hasModelTexture = !m_modelTexture.isNull();
    m_model = imported.model;
    if (!imported.refusal.isEmpty())
        bakeDefaultModel();
    rebuild();
    update();
}

void SkinPreview3D::bakeDefaultModel()
{
    bakeDefaultFigure(m_model);
}

void SkinPreview3D::rebuild()
{
    m_dirty = true;
    update();
}

void SkinPreview3D::tick()
{
    if (m_dragging)
        return;
    // One tick counts as its interval, whatever the timer really did.
    m_yaw += 0.001F * tickMs * m_spinSpeed;
    // A float that only grew would be too coarse for one more tick after some days.
    if (m_yaw > fullTurn)
        m_yaw -= fullTurn;
    update();
}

void SkinPreview3D::initializeGL()
{
    // Qt makes a new context when the widget moves to another window.
    connect(context(), &QOpenGLContext::aboutToBeDestroyed, this, &SkinPreview3D::releaseGl);
    gl()->glClearColor(0.043F, 0.051F, 0.078F, 1.0F);
    gl()->glEnable(GL_DEPTH_TEST);
    m_program = new QOpenGLShaderProgram(this);
    m_program->addShaderFromSourceCode(QOpenGLShader::Vertex, vertexShader);
    m_program->addShaderFromSourceCode(QOpenGLShader::Fragment, fragmentShader);
    m_program->link();
    m_vertexArray.create();
    m_buffer = std::make_unique<QOpenGLBuffer>(QOpenGLBuffer::VertexBuffer);
    m_buffer->create();
    m_glReady = true;
    rebuild();
}

void SkinPreview3D::releaseGl()
{
    makeCurrent();
    m_glReady = false;
    m_texture.reset();
    m_buffer.reset();
    m_vertexArray.destroy();
    delete std::exchange(m_program, nullptr);
    doneCurrent();
}

void SkinPreview3D::resizeGL(int w, int h)
{
    gl()->glViewport(0, 0, w, h);
}

void SkinPreview3D::uploadNow()
{
    if (!m_glReady)
        return;
    const QList<float>& vertices = m_model.vertices;
    m_buffer->bind();
    m_buffer->allocate(vertices.constData(), static_cast<int>(vertices.size() * sizeof(float)));
    m_buffer->release();
    m_vertexCount = static_cast<int>(vertices.size() / BakedModel::floatsPerVertex);

    const QImage image = m_hasSkin           ? m_skin
                         : m_hasModelTexture ? m_modelTexture
                                             : fallbackTexture();
    GLint maxSide = 0; // 1024 at least; 16384 with a software driver
    gl()->glGetIntegerv(GL_MAX_TEXTURE_SIZE, &maxSide);
    m_texture.reset();
    m_texture = std::make_unique<QOpenGLTexture>(fittedInto(image, maxSide).mirrored(false, true));
    m_texture->setMinMagFilters(QOpenGLTexture::Nearest, QOpenGLTexture::Nearest);
    m_texture->setWrapMode(QOpenGLTexture::ClampToEdge);
    m_dirty = false;
}

void SkinPreview3D::paintGL()
{
    gl()->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    if (m_dirty)
        uploadNow();
    if (m_model.valid && m_vertexCount != 0)
        drawModel();
}

void SkinPreview3D::drawModel()
{
    QMatrix4x4 projection;
    projection.perspective(45, static_cast<float>(width()) / static_cast<float>(height()), 0.1F,
                           100);
    const QVector3D eye(m_distance * std::cos(m_pitch) * std::sin(m_yaw),
                        aimHeight + m_distance * std::sin(m_pitch),
                        m_distance * std::cos(m_pitch) * std::cos(m_yaw));
    QMatrix4x4 view;
    view.lookAt(eye, {0, aimHeight, 0}, {0, 1, 0});

    const QOpenGLVertexArrayObject::Binder vertexArray(&m_vertexArray);
    m_program->bind();
    m_program->setUniformValue("mvp", projection * view);
    m_program->setUniformValue("tex", 0);
    m_texture->bind(0);
    m_buffer->bind();
    constexpr int stride = BakedModel::floatsPerVertex * sizeof(float);
    m_program->enableAttributeArray(0);
    m_program->enableAttributeArray(1);
    m_program->setAttributeBuffer(0, GL_FLOAT, 0, 3, stride);
    m_program->setAttributeBuffer(1, GL_FLOAT, 3 * sizeof(float), 2, stride);
    gl()->glDrawArrays(GL_TRIANGLES, 0, m_vertexCount);
    m_buffer->release();
    m_program->release();
}

void SkinPreview3D::mousePressEvent(QMouseEvent* event)
{
    m_dragging = true;
    m_lastMousePosition = event->position().toPoint();
}

// There is no release: whoever has taken hold of the figure keeps it, it does not turn by itself
// any more.
void SkinPreview3D::mouseMoveEvent(QMouseEvent* event)
{
    if (!m_dragging)
        return;
    const QPoint position = event->position().toPoint();
    const QPoint moved = position - m_lastMousePosition;
    m_lastMousePosition = position;
    m_yaw += static_cast<float>(moved.x()) * radiansPerPixel;
    m_pitch += static_cast<float>(moved.y()) * radiansPerPixel;
    m_pitch = qBound(-maxPitch, m_pitch, maxPitch);
    update();
}

void SkinPreview3D::wheelEvent(QWheelEvent* event)
{
    m_distance -= static_cast<float>(event->angleDelta().y()) * unitsPerWheelStep;
    m_distance = qBound(minDistance, m_distance, maxDistance);
    update();
}
