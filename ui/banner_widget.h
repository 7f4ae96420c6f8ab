#pragma once

#include <QList>
#include <QPixmap>
#include <QPoint>
#include <QWidget>

// The strip across the top of the main window: translucent cubes drift from right to left behind
// the wordmark. Purely decorative: no input, no signals. Owned by the window; GUI thread. Its timer
// runs for its whole life, shown or not.
class BannerWidget : public QWidget
{
    Q_OBJECT

public:
    struct Cube
    {
        float x;     // fraction of the width
        float y;     // fraction of the usable height
        float size;  // pixels
        float speed; // fraction of the width per tick
        float phase; // radians; drives the bobbing
        int palette; // index into PALETTES
        float alpha; // opacity of the faces
    };

    explicit BannerWidget(QWidget* parent);

    QSize sizeHint() const override;
    // Moves every cube one step and asks for a repaint.
    void tick();
    const QList<Cube>& cubes() const { return m_cubes; }

protected:
    void timerEvent(QTimerEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    // A part of the picture that is the same in every frame; placed in device pixels.
    struct Layer
    {
        QPixmap pixmap;
        QPoint position;
    };

    void seedCubes();
    void paintLayers(qreal pixelRatio);

    QList<Cube> m_cubes;
    int m_timerId = 0;
    Layer m_background;
    Layer m_wordmark;
    Layer m_bottomLine;
    // What the layers were painted for.
    QSize m_layerSize;
    qreal m_layerPixelRatio = 0;
};
