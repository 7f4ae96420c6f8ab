#include "tests/support/figure_view.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

// In skin pixels and in texels of a 64 x 64 skin. The outer layer stands a quarter pixel out.
struct Box
{
    double low[3], high[3];
    double u, v;
    double inflate;
};

constexpr double layer = 0.25;
constexpr Box figure[] = {
    {{-4, 24, -4}, {4, 32, 4}, 0, 0, 0},    {{-4, 24, -4}, {4, 32, 4}, 32, 0, layer},
    {{-4, 12, -2}, {4, 24, 2}, 16, 16, 0},  {{-4, 12, -2}, {4, 24, 2}, 16, 32, layer},
    {{4, 12, -2}, {8, 24, 2}, 40, 16, 0},   {{4, 12, -2}, {8, 24, 2}, 40, 32, layer},
    {{-8, 12, -2}, {-4, 24, 2}, 32, 48, 0}, {{-8, 12, -2}, {-4, 24, 2}, 48, 48, layer},
    {{0, 0, -2}, {4, 12, 2}, 0, 16, 0},     {{0, 0, -2}, {4, 12, 2}, 0, 32, layer},
    {{-4, 0, -2}, {0, 12, 2}, 16, 48, 0},   {{-4, 0, -2}, {0, 12, 2}, 0, 48, layer},
};

struct Hit
{
    double distance;
    double texelX, texelY; // of 64
};

// How far along the face's texture a point is: 0 at low, 1 at high.
double along(const Box& box, const double* point, int axis)
{
    const double low = box.low[axis] - box.inflate;
    const double high = box.high[axis] + box.inflate;
    return (point[axis] - low) / (high - low);
}

Hit hitOn(const Box& box, const double* point, int axis, bool atHigh, double distance)
{
    const double w = box.high[0] - box.low[0];
    const double h = box.high[1] - box.low[1];
    const double d = box.high[2] - box.low[2];
    const double x = along(box, point, 0);
    const double y = along(box, point, 1);
    const double z = along(box, point, 2);
    if (axis == 1) // top, with the bottom to its right
        return {distance, box.u + d + (atHigh ? 0 : w) + x * w, box.v + (1 - z) * d};
    const double fromTop = box.v + d + (1 - y) * h;
    if (axis == 2) // front at low z, then the high side, then the back
        return {distance, box.u + d + (atHigh ? w + d : 0) + x * w, fromTop};
    return {distance, box.u + (atHigh ? d + w : 0) + (1 - z) * d, fromTop};
}

// Both faces that a ray meets, when it meets the box.
void addHits(std::vector<Hit>& hits, const Box& box, const double* eye, const double* ray)
{
    for (int axis = 0; axis < 3; ++axis) {
        for (const bool atHigh : {false, true}) {
            const double plane =
                atHigh ? box.high[axis] + box.inflate : box.low[axis] - box.inflate;
            const double distance = (plane - eye[axis]) / ray[axis];
            if (!(distance > 0) || !std::isfinite(distance))
                continue;
            double point[3];
            bool inside = true;
            for (int i = 0; i < 3; ++i) {
                point[i] = eye[i] + distance * ray[i];
                inside = inside && (i == axis || (point[i] >= box.low[i] - box.inflate &&
                                                  point[i] <= box.high[i] + box.inflate));
            }
            if (inside)
                hits.push_back(hitOn(box, point, axis, atHigh, distance));
        }
    }
}

} // namespace

double FigureView::Vector::dot(const Vector& other) const
{
    return v[0] * other.v[0] + v[1] * other.v[1] + v[2] * other.v[2];
}

FigureView::Vector FigureView::cross(const Vector& a, const Vector& b)
{
    Vector c{{a.v[1] * b.v[2] - a.v[2] * b.v[1], a.v[2] * b.v[0] - a.v[0] * b.v[2],
              a.v[0] * b.v[1] - a.v[1] * b.v[0]}};
    const double length = std::sqrt(c.dot(c));
    for (double& x : c.v)
        x /= length;
    return c;
}

// Everything in skin pixels from here on: the centre is 16 of them above the feet.
FigureView::FigureView(const QImage& skin, QSize size, double yaw, double pitch, double distance)
    : m_skin(skin)
    , m_size(size)
    , m_forward{{-std::cos(pitch) * std::sin(yaw), -std::sin(pitch),
                 -std::cos(pitch) * std::cos(yaw)}}
    , m_right(cross(m_forward, Vector{{0, 1, 0}}))
    , m_up(cross(m_right, m_forward))
{
    for (int i = 0; i < 3; ++i)
        m_eye.v[i] = (i == 1 ? 16 : 0) - 16 * distance * m_forward.v[i];
}

FigureView::Vector FigureView::rayThrough(QPointF point) const
{
    const double half = std::tan(22.5 * M_PI / 180);
    const double up = (1 - 2 * point.y() / m_size.height()) * half;
    const double right =
        (2 * point.x() / m_size.width() - 1) * half * m_size.width() / m_size.height();
    Vector ray;
    for (int i = 0; i < 3; ++i)
        ray.v[i] = m_forward.v[i] + right * m_right.v[i] + up * m_up.v[i];
    return ray;
}

FigureView::Seen FigureView::atPoint(QPointF point) const
{
    std::vector<Hit> hits;
    for (const Box& box : figure)
        addHits(hits, box, m_eye.v, rayThrough(point).v);
    std::ranges::sort(hits, {}, &Hit::distance);
    Seen seen;
    double distance = 0;
    for (const Hit& hit : hits) {
        const auto texel = [](double position, int side) {
            return std::clamp(static_cast<int>(std::floor(position * side / 64)), 0, side - 1);
        };
        const QRgb colour =
            m_skin.pixel(texel(hit.texelX, m_skin.width()), texel(hit.texelY, m_skin.height()));
        if (qAlpha(colour) < 26)
            continue;
        if (seen.colour)
            return {seen.colour, seen.colour == colour || hit.distance - distance > 0.02};
        seen.colour = colour;
        distance = hit.distance;
    }
    return seen;
}

FigureView::Seen FigureView::at(QPoint pixel) const
{
    const QPointF centre = QPointF(pixel) + QPointF(0.5, 0.5);
    Seen seen = atPoint(centre);
    for (const QPointF offset : {QPointF(-1, 0), QPointF(1, 0), QPointF(0, -1), QPointF(0, 1)})
        seen.isCertain = seen.isCertain && atPoint(centre + offset).colour == seen.colour;
    return seen;
}
