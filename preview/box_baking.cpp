#include "preview/box_baking.h"

#include "preview/baked_model.h"

#include <initializer_list>

namespace {

constexpr float unitsPerPixel = 0.0625F;
constexpr int skinTexels = 128; // the usual 64 x 64 layout doubled
constexpr float outerLayer = 0.25F;

struct FigurePart
{
    const char16_t* name;
    float x0, y0, z0, x1, y1, z1; // skin pixels
    float baseU, baseV, outerU, outerV;
    float pivotX, pivotY, pivotZ;
};

// The limbs at positive x take the skin areas of the figure's right limbs; that is how skins of
// this layout are meant to show here.
constexpr FigurePart figure[] = {
    {u"head", -4, 24, -4, 4, 32, 4, 0, 0, 64, 0, 0, 1.5F, 0},
    {u"torso", -4, 12, -2, 4, 24, 2, 32, 32, 32, 64, 0, 0.75F, 0},
    {u"arm_l", 4, 12, -2, 8, 24, 2, 80, 32, 80, 64, 0.375F, 1.4375F, 0},
    {u"arm_r", -8, 12, -2, -4, 24, 2, 64, 96, 96, 96, -0.375F, 1.4375F, 0},
    {u"leg_l", 0, 0, -2, 4, 12, 2, 0, 32, 0, 64, 0.125F, 0.75F, 0},
    {u"leg_r", -4, 0, -2, 0, 12, 2, 32, 96, 0, 96, -0.125F, 0.75F, 0},
};

struct Corner
{
    float x, y, z, s, t;
};

// At once: number by number it would take longer than reading the file that the boxes are from.
void appendTriangles(QList<float>& out, std::initializer_list<Corner> corners)
{
    const qsizetype end = out.size();
    const auto added = static_cast<qsizetype>(corners.size()) * BakedModel::floatsPerVertex;
    out.resize(end + added);
    float* at = out.data() + end;
    for (const Corner& corner : corners) {
        for (const float number : {corner.x, corner.y, corner.z, corner.s, corner.t})
            *at++ = number;
    }
}

int vertexCount(const BakedModel& model)
{
    return static_cast<int>(model.vertices.size() / BakedModel::floatsPerVertex);
}

} // namespace

// The mapping is the same for both faces of an axis: the back shows its rectangle as seen from the
// front. Winding is free, because nothing is culled.
void bakeFace(QList<float>& out, int texW, int texH, float x0, float y0, float z0, float x1,
              float y1, float z1, float u, float v, float uw, float vh, int axis)
{
    const auto width = static_cast<float>(texW);
    const auto height = static_cast<float>(texH);
    const float s0 = u / width;
    const float s1 = (u + uw) / width;
    const float top = (height - v) / height;
    const float bottom = (height - v - vh) / height;

    Corner a, b, c, d;
    switch (axis) {
    case 0:
        a = {x0, y0, z1, s0, top};
        b = {x0, y0, z0, s0, bottom};
        c = {x1, y0, z0, s1, bottom};
        d = {x1, y0, z1, s1, top};
        break;
    case 1:
        a = {x0, y1, z0, s0, top};
        b = {x0, y0, z0, s0, bottom};
        c = {x1, y0, z0, s1, bottom};
        d = {x1, y1, z0, s1, top};
        break;
    default: // the sides run the texture against z
        a = {x0, y1, z0, s1, top};
        b = {x0, y0, z0, s1, bottom};
        c = {x0, y0, z1, s0, bottom};
        d = {x0, y1, z1, s0, top};
        break;
    }
    appendTriangles(out, {a, b, c, a, c, d});
}

void bakeScaledBox(QList<float>& out, int texW, int texH, float x0, float y0, float z0, float x1,
                   float y1, float z1, float u, float v, float inflate, float texelsPerPixel)
{
    const float w = (x1 - x0) * texelsPerPixel;
    const float h = (y1 - y0) * texelsPerPixel;
    const float d = (z1 - z0) * texelsPerPixel;
    x0 = (x0 - inflate) * unitsPerPixel;
    y0 = (y0 - inflate) * unitsPerPixel;
    z0 = (z0 - inflate) * unitsPerPixel;
    x1 = (x1 + inflate) * unitsPerPixel;
    y1 = (y1 + inflate) * unitsPerPixel;
    z1 = (z1 + inflate) * unitsPerPixel;

    bakeFace(out, texW, texH, x0, y1, z0, x1, y1, z1, u + d, v, w, d, 0);
    bakeFace(out, texW, texH, x0, y0, z0, x1, y0, z1, u + d + w, v, w, d, 0);
    bakeFace(out, texW, texH, x0, y0, z0, x1, y1, z0, u + d, v + d, w, h, 1);
    bakeFace(out, texW, texH, x0, y0, z1, x1, y1, z1, u + 2 * d + w, v + d, w, h, 1);
    bakeFace(out, texW, texH, x0, y0, z0, x0, y1, z1, u, v + d, d, h, 2);
    bakeFace(out, texW, texH, x1, y0, z0, x1, y1, z1, u + d + w, v + d, d, h, 2);
}

void bakeBox(QList<float>& out, int texW, int texH, float x0, float y0, float z0, float x1,
             float y1, float z1, float u, float v, float inflate)
{
    bakeScaledBox(out, texW, texH, x0, y0, z0, x1, y1, z1, u, v, inflate, 2);
}

void bakeDefaultFigure(BakedModel& model)
{
    for (const FigurePart& part : figure) {
        const int first = vertexCount(model);
        bakeBox(model.vertices, skinTexels, skinTexels, part.x0, part.y0, part.z0, part.x1, part.y1,
                part.z1, part.baseU, part.baseV, 0);
        bakeBox(model.vertices, skinTexels, skinTexels, part.x0, part.y0, part.z0, part.x1, part.y1,
                part.z1, part.outerU, part.outerV, outerLayer);
        model.parts.append({QString::fromUtf16(part.name), part.pivotX, part.pivotY, part.pivotZ,
                            first, vertexCount(model) - first});
    }
    model.textureWidth = skinTexels;
    model.textureHeight = skinTexels;
    model.valid = true;
}
