// The character preview with a model of 10,000 boxes: import and bake beside reading the JSON
// alone, and a frame at 560 x 640 beside a bare draw of the same vertices. A frame's price is the
// CPU time of the whole process, because a software driver draws in threads. Needs a display.
#include "bench/measure.h"
#include "preview/model_import.h"
#include "preview/open_gl.h"
#include "preview/skin_preview_3d.h"

#include <QApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMatrix4x4>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QSurfaceFormat>

#include <cmath>
#include <ctime>

namespace {

constexpr int runs = 15;
constexpr int frames = 60;

// A block of 20 x 25 x 20 cubes, each a little smaller than its place.
QByteArray tenThousandBoxes()
{
    QJsonArray elements, names;
    for (int i = 0; i < 10'000; ++i) {
        const int x = i % 20, y = i / 20 % 25, z = i / 500;
        const QString uuid = QString::number(i);
        elements.append(
            QJsonObject{{QStringLiteral("box_uv"), true},
                        {QStringLiteral("from"), QJsonArray{x - 10.0, y + 2.0, z - 10.0}},
                        {QStringLiteral("to"), QJsonArray{x - 9.2, y + 2.8, z - 9.2}},
                        {QStringLiteral("uuid"), uuid}});
        names.append(uuid);
    }
    return QJsonDocument(QJsonObject{{QStringLiteral("elements"), elements},
                                     {QStringLiteral("outliner"), names}})
        .toJson();
}

template <typename Function>
double medianOf(int count, const Function& function)
{
    std::vector<double> times(static_cast<std::size_t>(count));
    std::ranges::generate(times, function);
    return measure::median(times);
}

QOpenGLFunctions* gl()
{
    return QOpenGLContext::currentContext()->functions();
}

template <typename Function>
double cpuMilliseconds(const Function& function)
{
    gl()->glFinish();
    const std::clock_t start = std::clock();
    function();
    gl()->glFinish();
    return 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

class Preview : public SkinPreview3D
{
public:
    Preview() : SkinPreview3D(nullptr) {}
    using SkinPreview3D::paintGL;
};

// The least that shows the same picture: everything is bound once, a frame is one call.
class BareDraw
{
public:
    explicit BareDraw(const Preview& preview) : m_count(preview.vertexCount())
    {
        m_array.create();
        m_array.bind();
        m_buffer.create();
        m_buffer.bind();
        const QList<float>& vertices = preview.bakedModel().vertices;
        m_buffer.allocate(vertices.constData(), static_cast<int>(vertices.size() * sizeof(float)));
        m_program.addShaderFromSourceCode(QOpenGLShader::Vertex, R"(#version 330 core
            layout(location=0) in vec3 position;
            layout(location=1) in vec2 texel;
            uniform mat4 matrix;
            out vec2 uv;
            void main() { uv = texel; gl_Position = matrix * vec4(position, 1.0); })");
        m_program.addShaderFromSourceCode(QOpenGLShader::Fragment, R"(#version 330 core
            in vec2 uv;
            uniform sampler2D image;
            out vec4 colour;
            void main() { colour = texture(image, uv); if (colour.a < 0.1) discard; })");
        m_program.link();
        m_program.bind();
        m_program.setUniformValue("matrix", matrix(preview));
        m_program.enableAttributeArray(0);
        m_program.enableAttributeArray(1);
        m_program.setAttributeBuffer(0, GL_FLOAT, 0, 3, 20);
        m_program.setAttributeBuffer(1, GL_FLOAT, 12, 2, 20);
        QImage plain(8, 8, QImage::Format_RGBA8888);
        plain.fill(Qt::gray);
        m_texture.setData(plain);
        m_texture.setMinMagFilters(QOpenGLTexture::Nearest, QOpenGLTexture::Nearest);
        m_texture.bind();
    }

    void frame() const
    {
        gl()->glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
        gl()->glDrawArrays(GL_TRIANGLES, 0, m_count);
    }

private:
    static QMatrix4x4 matrix(const Preview& preview)
    {
        const float level = preview.distance() * std::cos(preview.pitch());
        QMatrix4x4 matrix;
        matrix.perspective(
            45, static_cast<float>(preview.width()) / static_cast<float>(preview.height()), 0.1F,
            100);
        matrix.lookAt({level * std::sin(preview.yaw()),
                       1 + preview.distance() * std::sin(preview.pitch()),
                       level * std::cos(preview.yaw())},
                      {0, 1, 0}, {0, 1, 0});
        return matrix;
    }

    int m_count;
    QOpenGLVertexArrayObject m_array;
    QOpenGLBuffer m_buffer;
    QOpenGLShaderProgram m_program;
    QOpenGLTexture m_texture{QOpenGLTexture::Target2D};
};

void measureImport(const QByteArray& json)
{
    const double parse = medianOf(runs, [&] {
        return measure::milliseconds([&] { (void)QJsonDocument::fromJson(json).object(); });
    });
    const double import =
        medianOf(runs, [&] { return measure::milliseconds([&] { (void)importModel(json); }); });
    measure::absolute("import and bake of 10,000 boxes, beside reading the JSON", import, "ms",
                      parse, 100);
}

void measureFrame(const QByteArray& json)
{
    Preview preview;
    preview.resize(560, 640);
    preview.setModel(json);
    preview.show();
    (void)preview.grabFramebuffer();
    preview.makeCurrent();
    const double ours =
        medianOf(frames, [&] { return cpuMilliseconds([&] { preview.paintGL(); }); });
    double bare = 0;
    {
        const BareDraw draw(preview);
        bare = medianOf(frames, [&] { return cpuMilliseconds([&] { draw.frame(); }); });
    }
    preview.doneCurrent();
    measure::ratio("preview frame at 560 x 640, beside a bare draw", ours, "ms of CPU", bare, 1.1);
}

} // namespace

int main(int argc, char* argv[])
{
    QSurfaceFormat::setDefaultFormat(open_gl::format());
    const QApplication application(argc, argv);
    const QByteArray json = tenThousandBoxes();
    measureImport(json);
    if (open_gl::isUsable())
        measureFrame(json);
    return 0;
}
