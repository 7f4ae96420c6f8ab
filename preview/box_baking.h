#pragma once

#include <QList>

struct BakedModel;

// Turns boxes into textured triangles; every function appends to its list. See BakedModel for the
// vertex format.

// One rectangle. The corners are in model units and equal in the coordinate that axis names:
// 0 for constant y, 1 for constant z, 2 for constant x. (u, v) is the top left corner of its
// texture rectangle and (uw, vh) the rectangle's size, in texels of a texW x texH texture, v
// counted from the top.
void bakeFace(QList<float>& out, int texW, int texH, float x0, float y0, float z0, float x1,
              float y1, float z1, float u, float v, float uw, float vh, int axis);

// The six faces of a box given in skin pixels, unfolded from texel (u, v): top, bottom, front
// (low z), back, low x, high x. Two texels to a skin pixel. inflate moves the faces outwards, the
// texture rectangles keep their size.
void bakeBox(QList<float>& out, int texW, int texH, float x0, float y0, float z0, float x1,
             float y1, float z1, float u, float v, float inflate);

// The same with texelsPerPixel texels to a skin pixel; (u, v) are texels already.
void bakeScaledBox(QList<float>& out, int texW, int texH, float x0, float y0, float z0, float x1,
                   float y1, float z1, float u, float v, float inflate, float texelsPerPixel);

// The default figure: six parts of two boxes each, 432 vertices, made for a skin of the usual
// layout in 64 x 64 or 128 x 128. Appends to vertices and parts and marks the model valid.
void bakeDefaultFigure(BakedModel& model);
