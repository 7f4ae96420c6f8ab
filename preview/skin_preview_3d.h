#pragma once

#include "preview/baked_model.h"

#include <QImage>
#include <QOpenGLBuffer>
#include <QOpenGLTexture>
#include <QOpenGLVertexArrayObject>
#include <QOpenGLWidget>
#include <QPoint>

#include <memory>

struct ImportedModel;
class QOpenGLShaderProgram;
class QTimer;

// Shows the character in 3D: turns slowly by itself, follows the mouse, zooms with the wheel.
// Owned by the account page; GUI thread. Needs OpenGL 3.3 core (open_gl.h) and a call of setModel:
// until then a frame is only the background. Skin and model may be set before it is shown. Bytes
// that cannot be used never fail: the default figure and a plain colour stand in.
class SkinPreview3D : public QOpenGLWidget
{
    Q_OBJECT

public:
    using BakedModel = ::BakedModel;
    using ModelPart = ::ModelPart;

    explicit SkinPreview3D(QWidget* parent);
    ~SkinPreview3D() override;

    // A PNG of up to 4096 x 4096. Bytes that do not decode remove the skin shown before.
    void setSkin(const QByteArray& png);
    // A block model; empty or unusable bytes give the default figure.
    void setModel(const QByteArray& json);
    // The same for who has imported it, and knows from that what will be shown.
    void setImportedModel(const ImportedModel& imported);
    // Uploads geometry and texture again before the next frame.
    void rebuild();

    const BakedModel& bakedModel() const { return m_model; }
    const QImage& skinImage() const { return m_skin; }            // null without a usable skin
    const QImage& modelTexture() const { return m_modelTexture; } // null unless embedded
    int vertexCount() const { return m_vertexCount; }             // as last uploaded
    float yaw() const { return m_yaw; }                           // radians
    float pitch() const { return m_pitch; }                       // radians, -1.4..1.4
    float distance() const { return m_distance; }                 // model units, 1.2..8

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private Q_SLOTS:
    void tick();

private:
    void uploadNow();
    void bakeDefaultModel();
    void drawModel();
    void releaseGl();

    std::unique_ptr<QOpenGLBuffer> m_buffer;
    std::unique_ptr<QOpenGLTexture> m_texture;
    QOpenGLShaderProgram* m_program = nullptr;
    int m_vertexCount = 0;
    BakedModel m_model;
    QImage m_skin;
    QImage m_modelTexture;
    bool m_hasSkin = false;
    bool m_hasModelTexture = false;
    bool m_glReady = false;
    bool m_dirty = true;
    float m_yaw = 0.6F;
    float m_pitch = 0.35F;
    float m_distance = 3.4F;
    float m_spinSpeed = 1.0F; // radians per second
    QTimer* m_timer;
    QPoint m_lastMousePosition;
    bool m_dragging = false;
    QOpenGLVertexArrayObject m_vertexArray; // a core profile draws nothing without one
};
