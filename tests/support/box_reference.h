#pragma once

#include <QList>

// The unfolded-box layout once more, written down as a table and in double precision: slow, plain,
// and without a line of the code that it checks.
namespace box_reference {

struct Box
{
    double low[3]; // pixels
    double high[3];
    double u = 0; // texture origin in texels
    double v = 0;
    double inflate = 0;
};

// 36 vertices of x, y, z, u, t.
QList<double> bake(const Box& box, double textureWidth, double textureHeight,
                   double texelsPerPixel);

// The index of the first float that differs by more than rounding, -1 when there is none. Sizes
// must agree as well.
qsizetype firstDifference(const QList<float>& baked, const QList<double>& expected);

} // namespace box_reference
