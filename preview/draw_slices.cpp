#include "preview/draw_slices.h"

#include "preview/baked_model.h"

#include <QVector3D>

#include <numeric>

namespace {

constexpr qsizetype floatsPerTriangle = 3L * BakedModel::floatsPerVertex;

// Areas in square model units. The closest camera sees about one: half of it is what a triangle
// can cost at most. A software driver fills some hundred screens a second.
constexpr float screenArea = 1;
constexpr float areaPerFrame = 300;
constexpr float areaPerSlice = 50;

float visibleArea(const float* triangle)
{
    const auto corner = [triangle](int index) {
        const float* xyz = triangle + static_cast<qsizetype>(index) * BakedModel::floatsPerVertex;
        return QVector3D(xyz[0], xyz[1], xyz[2]);
    };
    const QVector3D normal = QVector3D::crossProduct(corner(1) - corner(0), corner(2) - corner(0));
    return qMin(screenArea, normal.length()) / 2;
}

} // namespace

QList<int> drawSlices(const QList<float>& vertices)
{
    QList<int> slices;
    float total = 0;
    float area = areaPerSlice;
    for (qsizetype i = 0; i + floatsPerTriangle <= vertices.size(); i += floatsPerTriangle) {
        if (area >= areaPerSlice) {
            slices.append(0);
            area = 0;
        }
        const float triangle = visibleArea(vertices.constData() + i);
        area += triangle;
        total += triangle;
        slices.last() += 3;
    }
    if (total > areaPerFrame || slices.isEmpty())
        return slices;
    return {std::accumulate(slices.cbegin(), slices.cend(), 0)};
}
