#include "tests/support/banner_reference.h"

#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>

#include <cmath>

namespace {

// Five rows of top, left and right.
constexpr QRgb palettes[5][3] = {
    {0x6dbf58, 0x4e8a3f, 0x3d6e31}, {0x4ec9f5, 0x3a97c2, 0x2d7799}, {0x6dbf58, 0x4e8a3f, 0x3d6e31},
    {0x4ec9f5, 0x3a97c2, 0x2d7799}, {0x8a6dbf, 0x6a4e9a, 0x523c78},
};

void fillFace(QPainter& painter, const QList<QPointF>& corners, QColor colour, float alpha)
{
    QPainterPath path(corners.first());
    for (const QPointF& corner : corners.mid(1))
        path.lineTo(corner);
    path.closeSubpath();
    colour.setAlphaF(alpha);
    painter.fillPath(path, colour);
}

void paintBackground(QPainter& painter, qreal w, qreal h)
{
    const QRectF all(0, 0, w, h);
    QLinearGradient background(0, 0, 0, h);
    background.setStops(
        {{0.0, QColor(0x0b0d14)}, {0.6, QColor(0x0d1220)}, {1.0, QColor(0x0a0f18)}});
    painter.fillRect(all, background);

    QRadialGradient blue(QPointF(0.7 * w, 0), 0.45 * w);
    blue.setStops({{0.0, QColor(29, 43, 80, 150)}, {1.0, QColor(0, 0, 0, 0)}});
    painter.fillRect(all, blue);

    QRadialGradient green(QPointF(0.12 * w, h), 0.38 * w);
    green.setStops({{0.0, QColor(20, 48, 31, 150)}, {1.0, QColor(0, 0, 0, 0)}});
    painter.fillRect(all, green);
}

void paintCube(QPainter& painter, qreal w, qreal h, const BannerWidget::Cube& cube)
{
    const qreal half = 0.5 * cube.size;
    const qreal quarter = 0.25 * cube.size;
    const qreal cx = w * cube.x;
    const qreal cy = (h - 30) * cube.y + 15 + 4 * std::sin(qreal{cube.phase}) - 0.5 * half;
    const QRgb* faces = palettes[cube.palette];
    fillFace(painter, {{cx, cy - quarter}, {cx + half, cy}, {cx, cy + quarter}, {cx - half, cy}},
             QColor(faces[0]).lighter(130), cube.alpha);
    fillFace(
        painter,
        {{cx - half, cy}, {cx, cy + quarter}, {cx, cy + quarter + half}, {cx - half, cy + half}},
        QColor(faces[1]).darker(142), cube.alpha);
    fillFace(
        painter,
        {{cx + half, cy}, {cx, cy + quarter}, {cx, cy + quarter + half}, {cx + half, cy + half}},
        QColor(faces[2]).darker(105), cube.alpha);
}

void paintWordmark(QPainter& painter, qreal w, qreal h)
{
    QFont font;
    font.setFamily(QStringLiteral("Segoe UI"));
    font.setPointSize(26);
    font.setWeight(QFont::Weight(700));
    font.setLetterSpacing(QFont::AbsoluteSpacing, 6.0);
    const QFontMetricsF metrics(font);
    const qreal advance = metrics.horizontalAdvance(QStringLiteral("TESSELLAN"));
    const qreal x = (w - advance) / 2;
    QPainterPath path;
    path.addText(x, h / 2 + metrics.ascent() / 2 - 4, font, QStringLiteral("TESSELLAN"));
    QLinearGradient gradient(x, 0, (w + advance) / 2, 0);
    gradient.setStops(
        {{0.15, QColor(0x7ef0a0)}, {0.55, QColor(0x4ec9f5)}, {0.9, QColor(0xb48cf2)}});
    painter.fillPath(path, gradient);
}

} // namespace

namespace banner_reference {

void paint(QPainter& painter, const QSizeF& size, const QList<BannerWidget::Cube>& cubes)
{
    const qreal w = size.width();
    const qreal h = size.height();
    painter.setRenderHint(QPainter::Antialiasing);
    paintBackground(painter, w, h);
    painter.setPen(Qt::NoPen);
    for (const auto& cube : cubes)
        paintCube(painter, w, h, cube);
    paintWordmark(painter, w, h);

    QLinearGradient line(0, 0, w, 0);
    line.setStops({{0.0, QColor(0x2fae62)}, {1.0, QColor(0x4ec9f5)}});
    painter.fillRect(QRectF(0, h - 2, w, 2), line);
}

} // namespace banner_reference
