#include "preview/draw_budget.h"

#include "preview/baked_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

// Only operations that IEEE 754 rounds exactly, and no fused ones (see CMakeLists.txt): the result
// must not depend on the machine.

namespace {

constexpr qsizetype floatsPerBox =
    static_cast<qsizetype>(BakedModel::verticesPerBox) * BakedModel::floatsPerVertex;

// The unit of cost is a square as high as the picture, drawn once. llvmpipe draws one of 340 pixels
// in 0.3 ms.
constexpr float budget = 500;
// What a box takes wherever it is, its vertices above all.
constexpr float costOfAnyBox = 0.01F;
// Back and front of a box that fills a picture two and a half times as wide as it is high.
constexpr float costOfFullView = 5;
// The picture's height is 0.83 of the distance, for a field of view of 45 degrees.
constexpr float coverPerArea = 1.46F;
constexpr float nearPlane = 0.1F;
// Of the angle between the view's axis and a corner of such a picture.
constexpr float viewCosine = 0.667F;
constexpr float viewSine = 0.745F;

// The camera looks at (0, 1, 0) from all sides, from 1.2 to 8 units away.
constexpr float aimHeight = 1;
constexpr float minDistance = 1.2F;
constexpr float maxDistance = 8;

constexpr int maxDivisions = 5;            // a region is then 0.15 units wide near the figure
constexpr qsizetype maxLooks = 16'000'000; // at a box from a region: some 40 ms

// Side by side, for several to be looked at in one instruction.
struct Boxes
{
    std::array<std::vector<float>, 3> low, high;
    std::vector<float> cover;  // at a distance of one unit
    std::vector<float> radius; // of the sphere around it

    std::size_t count() const { return cover.size(); }

    void add(const float* vertices)
    {
        std::array<float, 3> size{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            float least = vertices[axis];
            float most = least;
            for (int i = 1; i < BakedModel::verticesPerBox; ++i) {
                const float at = vertices[i * BakedModel::floatsPerVertex + static_cast<int>(axis)];
                least = std::min(least, at);
                most = std::max(most, at);
            }
            low[axis].push_back(least);
            high[axis].push_back(most);
            size[axis] = most - least;
        }
        const auto [w, h, d] = size;
        // From whatever side: front and back cover no more than twice this root.
        cover.push_back(coverPerArea * 2 *
                        std::sqrt(w * h * w * h + h * d * h * d + d * w * d * w));
        radius.push_back(std::sqrt(w * w + h * h + d * d) / 2);
    }
};

// Camera places: directions through a square on one face of a cube around the aim, between two
// distances.
struct Region
{
    int face = 0;                     // 0..5
    float a = 0, b = 0, halfEdge = 1; // on a cube from -1 to 1
    float from = minDistance, to = maxDistance;
    int divisions = 0;

    // From the aim, of length one.
    std::array<float, 3> direction() const
    {
        const float scale = 1 / std::sqrt(a * a + b * b + 1);
        std::array<float, 3> direction{};
        const auto axis = static_cast<std::size_t>(face % 3);
        direction[axis] = face < 3 ? -scale : scale;
        direction[(axis + 1) % 3] = a * scale;
        direction[(axis + 2) % 3] = b * scale;
        return direction;
    }

    // How far any of its directions is from that one, in radians; a little more than that.
    float angle() const { return halfEdge * 1.415F; }

    // How far any of its places is from its middle.
    float radius() const
    {
        const float across = to * angle();
        const float along = (to - from) / 2;
        return std::sqrt(across * across + along * along);
    }

    Region part(int index) const
    {
        Region part = *this;
        part.halfEdge = halfEdge / 2;
        part.a += (index & 1) != 0 ? part.halfEdge : -part.halfEdge;
        part.b += (index & 2) != 0 ? part.halfEdge : -part.halfEdge;
        ((index & 4) != 0 ? part.from : part.to) = std::sqrt(from * to);
        ++part.divisions;
        return part;
    }
};

// The most that any camera of a region sees.
class View
{
public:
    explicit View(const Region& region)
        : m_direction(region.direction()), m_angle(region.angle()), m_radius(region.radius())
    {
        for (std::size_t axis = 0; axis < 3; ++axis)
            m_place[axis] = m_direction[axis] * (region.from + region.to) / 2;
        m_place[1] += aimHeight;
    }

    // Of so many boxes from the first on; without branches, or it would take five times as long.
    void findCosts(const Boxes& boxes, std::size_t first, std::size_t count, float* costs) const
    {
        const float* lows[] = {&boxes.low[0][first], &boxes.low[1][first], &boxes.low[2][first]};
        const float* highs[] = {&boxes.high[0][first], &boxes.high[1][first],
                                &boxes.high[2][first]};
        const float* covers = &boxes.cover[first];
        const float* radii = &boxes.radius[first];
        const std::array<float, 3> place = m_place;
        const std::array<float, 3> direction = m_direction;
        const float angle = m_angle;
        const float radius = m_radius;
        for (std::size_t i = 0; i < count; ++i) {
            float toBox = 0, toCentre = 0, depth = 0; // the first two are squares
            for (std::size_t axis = 0; axis < 3; ++axis) {
                const float at = place[axis];
                const float low = lows[axis][i];
                const float high = highs[axis][i];
                const float centre = (low + high) / 2 - at;
                const float beyond = std::max(std::max(low - at, at - high), 0.0F);
                toBox += beyond * beyond;
                toCentre += centre * centre;
                depth -= centre * direction[axis];
            }
            const float aside = std::sqrt(std::max(0.0F, toCentre - depth * depth));
            const float outside = aside * viewCosine - depth * viewSine;
            const float distance = std::max(std::sqrt(toBox) - radius, nearPlane);
            const float seen = std::min(costOfFullView, covers[i] / (distance * distance));
            const bool isSeen = outside <= radii[i] + radius + std::sqrt(toCentre) * angle;
            costs[i] = costOfAnyBox + (isSeen ? seen : 0.0F);
        }
    }

private:
    std::array<float, 3> m_direction;
    std::array<float, 3> m_place{};
    float m_angle;
    float m_radius;
};

class Budget
{
public:
    explicit Budget(const QList<float>& vertices)
    {
        for (qsizetype i = 0; i + floatsPerBox <= vertices.size(); i += floatsPerBox)
            m_boxes.add(vertices.constData() + i);
    }

    // Fewer boxes need fewer looks: when those run out, half of the boxes are tried.
    std::size_t affordable()
    {
        m_affordable = m_boxes.count();
        while (!isFound())
            m_affordable = m_tried / 2;
        return m_affordable;
    }

private:
    bool isFound()
    {
        m_tried = m_affordable;
        m_looks = 0;
        bool isFound = true;
        for (int face = 0; face < 6 && isFound; ++face)
            isFound = look({.face = face});
        return isFound;
    }

    // False when there were too many looks.
    bool look(const Region& region)
    {
        const std::size_t count = countSeenFrom(region);
        if (count == m_affordable)
            return true;
        if (m_looks > maxLooks)
            return false;
        if (region.divisions == maxDivisions) {
            m_affordable = count;
            return true;
        }
        for (int i = 0; i < 8; ++i) {
            if (!look(region.part(i)))
                return false;
        }
        return true;
    }

    // Of the boxes that are affordable so far.
    std::size_t countSeenFrom(const Region& region)
    {
        const View view(region);
        std::array<float, 64> costs{};
        float sum = 0;
        for (std::size_t first = 0; first < m_affordable; first += costs.size()) {
            const std::size_t count = std::min(costs.size(), m_affordable - first);
            view.findCosts(m_boxes, first, count, costs.data());
            m_looks += static_cast<qsizetype>(count);
            for (std::size_t i = 0; i < count; ++i) {
                sum += costs[i];
                if (sum > budget)
                    return first + i;
            }
        }
        return m_affordable;
    }

    Boxes m_boxes;
    std::size_t m_affordable = 0;
    std::size_t m_tried = 0;
    qsizetype m_looks = 0;
};

} // namespace

qsizetype affordableBoxes(const QList<float>& vertices)
{
    return static_cast<qsizetype>(Budget(vertices).affordable());
}
