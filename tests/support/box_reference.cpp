#include "tests/support/box_reference.h"

#include <cctype>
#include <cmath>

namespace {

// Corners: lower case is the low side of the box, upper case the high side; then the corner of the
// texture rectangle: left or right, top or bottom.
struct Face
{
    const char* corners[4];
    int depthsRight; // the rectangle's left edge: this many depths ...
    int widthsRight; // ... and widths right of the origin
    bool belowTop;   // its upper edge is one depth below the origin
    char across;     // which size of the box the rectangle is wide
    char down;       // and high
};

constexpr Face faces[] = {
    {{"xYZlt", "xYzlb", "XYzrb", "XYZrt"}, 1, 0, false, 'w', 'd'}, // top
    {{"xyZlt", "xyzlb", "Xyzrb", "XyZrt"}, 1, 1, false, 'w', 'd'}, // bottom
    {{"xYzlt", "xyzlb", "Xyzrb", "XYzrt"}, 1, 0, true, 'w', 'h'},  // front
    {{"xYZlt", "xyZlb", "XyZrb", "XYZrt"}, 2, 1, true, 'w', 'h'},  // back
    {{"xYzrt", "xyzrb", "xyZlb", "xYZlt"}, 0, 0, true, 'd', 'h'},  // low x
    {{"XYzrt", "Xyzrb", "XyZlb", "XYZlt"}, 1, 1, true, 'd', 'h'},  // high x
};

} // namespace

QList<double> box_reference::bake(const Box& box, double textureWidth, double textureHeight,
                                  double texelsPerPixel)
{
    const auto size = [&](char which) {
        const int axis = which == 'w' ? 0 : which == 'h' ? 1 : 2;
        return (box.high[axis] - box.low[axis]) * texelsPerPixel;
    };
    QList<double> out;
    for (const Face& face : faces) {
        const double left = box.u + face.depthsRight * size('d') + face.widthsRight * size('w');
        const double top = box.v + (face.belowTop ? size('d') : 0);
        for (const int index : {0, 1, 2, 0, 2, 3}) {
            const char* corner = face.corners[index];
            for (int axis = 0; axis < 3; ++axis) {
                const bool high = std::isupper(static_cast<unsigned char>(corner[axis])) != 0;
                const double pixels =
                    high ? box.high[axis] + box.inflate : box.low[axis] - box.inflate;
                out << pixels / 16;
            }
            const double texelX = left + (corner[3] == 'r' ? size(face.across) : 0);
            const double texelY = top + (corner[4] == 'b' ? size(face.down) : 0);
            out << texelX / textureWidth << 1 - texelY / textureHeight;
        }
    }
    return out;
}

qsizetype box_reference::firstDifference(const QList<float>& baked, const QList<double>& expected)
{
    if (baked.size() != expected.size())
        return qMin(baked.size(), expected.size());
    for (qsizetype i = 0; i < baked.size(); ++i) {
        const double value = static_cast<double>(baked[i]);
        if (!(std::abs(value - expected[i]) <= 1e-4 * qMax(1.0, std::abs(expected[i]))))
            return i;
    }
    return -1;
}
