#include "preview/draw_budget.h"

#include "preview/baked_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <span>
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
constexpr std::size_t maxInGroup = 32;
constexpr qsizetype looksForGroups = 20; // at each box

// Side by side, for several to be looked at in one instruction. What stands for a group of boxes is
// as large as all of them together and covers as much as each by itself.
struct Boxes
{
    std::array<std::vector<float>, 3> low, high;
    std::vector<float> cover;  // at a distance of one unit
    std::vector<float> radius; // of the sphere around it
    std::vector<float> boxes;  // 1, or as many as it stands for

    std::size_t count() const { return cover.size(); }
    float twiceCentre(std::size_t axis, std::size_t i) const
    {
        return low[axis][i] + high[axis][i];
    }

    void add(const float* vertices)
    {
        std::array<float, 3> least{vertices[0], vertices[1], vertices[2]};
        std::array<float, 3> most = least;
        for (int i = 1; i < BakedModel::verticesPerBox; ++i) {
            const float* vertex = vertices + i * BakedModel::floatsPerVertex;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                least[axis] = std::min(least[axis], vertex[axis]);
                most[axis] = std::max(most[axis], vertex[axis]);
            }
        }
        const float w = most[0] - least[0], h = most[1] - least[1], d = most[2] - least[2];
        // From whatever side: front and back cover no more than twice this root.
        put(least, most,
            coverPerArea * 2 * std::sqrt(w * h * w * h + h * d * h * d + d * w * d * w), 1);
    }

    void addGroup(const Boxes& of, std::span<const std::size_t> members)
    {
        std::array<float, 3> least{}, most{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            least[axis] = of.low[axis][members[0]];
            most[axis] = of.high[axis][members[0]];
            for (const std::size_t i : members) {
                least[axis] = std::min(least[axis], of.low[axis][i]);
                most[axis] = std::max(most[axis], of.high[axis][i]);
            }
        }
        float covered = 0;
        for (const std::size_t i : members)
            covered += of.cover[i];
        put(least, most, covered, static_cast<float>(members.size()));
    }

private:
    void put(const std::array<float, 3>& least, const std::array<float, 3>& most, float covered,
             float standsFor)
    {
        float diagonal = 0; // its square
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis].push_back(least[axis]);
            high[axis].push_back(most[axis]);
            const float size = most[axis] - least[axis];
            diagonal += size * size;
        }
        cover.push_back(covered);
        radius.push_back(std::sqrt(diagonal) / 2);
        boxes.push_back(standsFor);
    }
};

// Neighbours in space, whatever their order in the model is.
void findGroups(const Boxes& boxes, std::span<std::size_t> members, Boxes& groups)
{
    if (members.size() <= maxInGroup) {
        if (!members.empty())
            groups.addGroup(boxes, members);
        return;
    }
    std::size_t longest = 0;
    float length = -1;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto centre = [&](std::size_t i) { return boxes.twiceCentre(axis, i); };
        const auto [least, most] = std::ranges::minmax(members, {}, centre);
        if (const float found = centre(most) - centre(least); found > length) {
            length = found;
            longest = axis;
        }
    }
    const std::size_t half = members.size() / 2;
    std::ranges::nth_element(members, members.begin() + static_cast<std::ptrdiff_t>(half), {},
                             [&](std::size_t i) { return boxes.twiceCentre(longest, i); });
    findGroups(boxes, members.first(half), groups);
    findGroups(boxes, members.subspan(half), groups);
}

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
        const float* numbers = &boxes.boxes[first];
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
            const float seen =
                std::min(numbers[i] * costOfFullView, covers[i] / (distance * distance));
            const bool isSeen = outside <= radii[i] + radius + std::sqrt(toCentre) * angle;
            costs[i] = numbers[i] * costOfAnyBox + (isSeen ? seen : 0.0F);
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
        m_groups = {};
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

    // Of the boxes that are affordable so far. Mostly the groups tell already that all are.
    std::size_t countSeenFrom(const Region& region)
    {
        const View view(region);
        if (isWorthGroups() &&
            countWithinBudget(view, m_groups, m_groups.count()) == m_groups.count())
            return m_affordable;
        return countWithinBudget(view, m_boxes, m_affordable);
    }

    // Once as many looks were taken as it costs to find them.
    bool isWorthGroups()
    {
        if (m_groups.count() == 0 &&
            m_looks > looksForGroups * static_cast<qsizetype>(m_affordable)) {
            std::vector<std::size_t> members(m_affordable);
            std::iota(members.begin(), members.end(), 0);
            findGroups(m_boxes, members, m_groups);
        }
        return m_groups.count() > 0;
    }

    // So many at most.
    std::size_t countWithinBudget(const View& view, const Boxes& boxes, std::size_t most)
    {
        std::array<float, 64> costs{};
        float sum = 0;
        for (std::size_t first = 0; first < most; first += costs.size()) {
            const std::size_t count = std::min(costs.size(), most - first);
            view.findCosts(boxes, first, count, costs.data());
            m_looks += static_cast<qsizetype>(count);
            for (std::size_t i = 0; i < count; ++i) {
                sum += costs[i];
                if (sum > budget)
                    return first + i;
            }
        }
        return most;
    }

    Boxes m_boxes;
    Boxes m_groups; // of those that are tried
    std::size_t m_affordable = 0;
    std::size_t m_tried = 0;
    qsizetype m_looks = 0;
};

} // namespace

qsizetype affordableBoxes(const QList<float>& vertices)
{
    return static_cast<qsizetype>(Budget(vertices).affordable());
}
