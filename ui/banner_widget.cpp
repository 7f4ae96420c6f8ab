#include "ui/banner_widget.h"

#include <QColor>
#include <QFont>
#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPaintEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>
#include <QRadialGradient>
#include <QRandomGenerator>
#include <QTimerEvent>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

constexpr int bannerHeight = 110;
constexpr int tickMs = 40;
constexpr int cubeCount = 14;

QColor colour(QStringView name)
{
    return QColor::fromString(name);
}

// Top, left and right face. Green and blue stand twice, so that they outnumber violet.
const std::array<std::array<QColor, 3>, 5> PALETTES{{
    {colour(u"#6dbf58"), colour(u"#4e8a3f"), colour(u"#3d6e31")},
    {colour(u"#4ec9f5"), colour(u"#3a97c2"), colour(u"#2d7799")},
    {colour(u"#6dbf58"), colour(u"#4e8a3f"), colour(u"#3d6e31")},
    {colour(u"#4ec9f5"), colour(u"#3a97c2"), colour(u"#2d7799")},
    {colour(u"#8a6dbf"), colour(u"#6a4e9a"), colour(u"#523c78")},
}};

float random01()
{
    return static_cast<float>(QRandomGenerator64::global()->generateDouble());
}

void paintGlow(QPainter& painter, const QRectF& area, const QPointF& centre, qreal radius,
               const QColor& glow)
{
    QRadialGradient gradient(centre, radius);
    gradient.setColorAt(0.0, glow);
    gradient.setColorAt(1.0, Qt::transparent);
    painter.fillRect(area, gradient);
}

void paintBackground(QPainter& painter, const QRectF& area)
{
    const qreal w = area.width();
    const qreal h = area.height();
    QLinearGradient gradient(0, 0, 0, h);
    gradient.setColorAt(0.0, colour(u"#0b0d14"));
    gradient.setColorAt(0.6, colour(u"#0d1220"));
    gradient.setColorAt(1.0, colour(u"#0a0f18"));
    painter.fillRect(area, gradient);
    paintGlow(painter, area, {0.7 * w, 0}, 0.45 * w, QColor(29, 43, 80, 150));
    paintGlow(painter, area, {0.12 * w, h}, 0.38 * w, QColor(20, 48, 31, 150));
}

QPainterPath wordmarkPath(const QSizeF& size, QLinearGradient& fill)
{
    QFont font(QStringLiteral("Segoe UI"), 26, QFont::Bold);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 6.0);
    const QFontMetricsF metrics(font);
    const QString text = QStringLiteral("TESSELLAN");
    const qreal advance = metrics.horizontalAdvance(text);
    const qreal x = (size.width() - advance) / 2;
    QPainterPath path;
    path.addText(x, size.height() / 2 + metrics.ascent() / 2 - 4, font, text);

    fill = QLinearGradient(x, 0, (size.width() + advance) / 2, 0);
    fill.setColorAt(0.15, colour(u"#7ef0a0"));
    fill.setColorAt(0.55, colour(u"#4ec9f5"));
    fill.setColorAt(0.9, colour(u"#b48cf2"));
    return path;
}

void paintBottomLine(QPainter& painter, const QRectF& line)
{
    QLinearGradient gradient(0, 0, line.width(), 0);
    gradient.setColorAt(0.0, colour(u"#2fae62"));
    gradient.setColorAt(1.0, colour(u"#4ec9f5"));
    painter.fillRect(line, gradient);
}

// Qt cuts a fill of 96 spans or more into jobs for its thread pool, and waking the threads takes
// several times as long as filling a face. A face has up to seven spans in a row of pixels, so a
// strip this high stays below. The painter counts device pixels: no seam lies within one.
constexpr int stripRows = 12;

void paintFace(QPainter& painter, const QPolygonF& face, QColor fill, float alpha)
{
    fill.setAlphaF(alpha);
    painter.setBrush(fill);
    const QRect bounds = face.boundingRect().toAlignedRect();
    for (int top = bounds.top(); top <= bounds.bottom(); top += stripRows) {
        painter.setClipRect(bounds.left(), top, bounds.width(), stripRows);
        painter.drawConvexPolygon(face);
    }
}

void paintCube(QPainter& painter, const BannerWidget::Cube& cube, const QSizeF& size,
               qreal pixelRatio)
{
    const qreal half = 0.5 * cube.size;
    const qreal quarter = 0.25 * cube.size;
    const qreal cx = size.width() * cube.x;
    const qreal cy =
        (size.height() - 30) * cube.y + 15 + 4 * std::sin(qreal{cube.phase}) - 0.5 * half;
    const QPointF back = QPointF(cx, cy - quarter) * pixelRatio;
    const QPointF left = QPointF(cx - half, cy) * pixelRatio;
    const QPointF right = QPointF(cx + half, cy) * pixelRatio;
    const QPointF front = QPointF(cx, cy + quarter) * pixelRatio;
    const QPointF down = QPointF(0, half) * pixelRatio;

    const auto& [top, leftSide, rightSide] = PALETTES[static_cast<size_t>(cube.palette)];
    paintFace(painter, {{back, right, front, left}}, top.lighter(130), cube.alpha);
    paintFace(painter, {{left, front, front + down, left + down}}, leftSide.darker(142),
              cube.alpha);
    paintFace(painter, {{right, front, front + down, right + down}}, rightSide.darker(105),
              cube.alpha);
}

} // namespace

BannerWidget::BannerWidget(QWidget* parent) : QWidget(parent)
{
    setFixedHeight(bannerHeight);
    // Every pixel is painted anew; the parent need not paint below it first.
    setAttribute(Qt::WA_OpaquePaintEvent);
    seedCubes();
    m_timerId = startTimer(tickMs, Qt::CoarseTimer);
}

QSize BannerWidget::sizeHint() const
{
    return {800, bannerHeight};
}

void BannerWidget::timerEvent(QTimerEvent* event)
{
    if (event->timerId() == m_timerId)
        tick();
    QWidget::timerEvent(event);
}

void BannerWidget::tick()
{
    for (Cube& cube : m_cubes) {
        cube.x -= cube.speed;
        cube.phase += 0.03F;
        if (cube.x < -0.06F) {
            cube.x = 1.06F;
            cube.y = random01();
        }
    }
    update();
}

void BannerWidget::seedCubes()
{
    for (int i = 0; i < cubeCount; ++i) {
        Cube cube{};
        cube.x = random01();
        cube.y = random01();
        cube.size = 14 + 34 * random01();
        cube.speed = 0.0006F + 0.0014F * random01();
        cube.phase = 6.2831F * random01();
        cube.alpha = 0.12F + 0.2F * random01();
        cube.palette = i % static_cast<int>(PALETTES.size());
        m_cubes.append(cube);
    }
}

void BannerWidget::paintLayers(qreal pixelRatio)
{
    const auto layer = [pixelRatio](const QRectF& area, const QColor& base, const auto& paint) {
        const QRectF scaled(area.topLeft() * pixelRatio, area.size() * pixelRatio);
        const QRect pixels = scaled.toAlignedRect();
        Layer result{QPixmap(pixels.size()), pixels.topLeft()};
        result.pixmap.fill(base);
        QPainter painter(&result.pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.translate(-result.position);
        painter.scale(pixelRatio, pixelRatio);
        paint(painter);
        return result;
    };

    const QRectF area(rect());
    m_background = layer(area, Qt::black, [&](QPainter& p) { paintBackground(p, area); });
    QLinearGradient fill;
    const QPainterPath wordmark = wordmarkPath(area.size(), fill);
    m_wordmark = layer(wordmark.boundingRect() & area, Qt::transparent,
                       [&](QPainter& p) { p.fillPath(wordmark, fill); });
    const QRectF line(0, area.height() - 2, area.width(), 2);
    m_bottomLine = layer(line, Qt::transparent, [&](QPainter& p) { paintBottomLine(p, line); });
    m_layerSize = size();
    m_layerPixelRatio = pixelRatio;
}

void BannerWidget::paintEvent(QPaintEvent* /*event*/)
{
    QPainter painter(this);
    // Of the target itself: the window's surface, or the image that the banner is rendered to.
    const qreal pixelRatio = painter.paintEngine()->paintDevice()->devicePixelRatio();
    if (m_layerSize != size() || m_layerPixelRatio != pixelRatio)
        paintLayers(pixelRatio);

    // From here on in device pixels, so that layers and strips lie on them exactly.
    painter.scale(1 / pixelRatio, 1 / pixelRatio);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.drawPixmap(m_background.position, m_background.pixmap);
    for (const Cube& cube : std::as_const(m_cubes))
        paintCube(painter, cube, size(), pixelRatio);
    painter.setClipping(false);
    painter.drawPixmap(m_wordmark.position, m_wordmark.pixmap);
    painter.drawPixmap(m_bottomLine.position, m_bottomLine.pixmap);
}
