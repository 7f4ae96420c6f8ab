#pragma once

#include <QImage>
#include <QPointF>
#include <QRgb>
#include <QSize>

#include <optional>

// What the preview must show of the default figure, found without it: a ray through a pixel, the
// boxes it meets in order, the first texel that is not transparent. Slow, plain, in double
// precision, and without a line of the code that it checks.
class FigureView
{
public:
    // Angles in radians, distance in model units, size in pixels.
    FigureView(const QImage& skin, QSize size, double yaw, double pitch, double distance);

    // Without a colour where the background shows.
    struct Seen
    {
        std::optional<QRgb> colour;
        bool isCertain = true;
    };

    // Not certain when colours meet within the pixel or close by, or where faces share a place.
    Seen at(QPoint pixel) const;

private:
    struct Vector
    {
        double v[3];
        double dot(const Vector& other) const;
    };

    Seen atPoint(QPointF point) const;
    Vector rayThrough(QPointF point) const;
    static Vector cross(const Vector& a, const Vector& b);

    QImage m_skin;
    QSize m_size;
    Vector m_eye;
    Vector m_forward, m_right, m_up;
};
