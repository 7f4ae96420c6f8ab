#pragma once

#include <QList>

// How a vertex list (see BakedModel) goes to the graphics driver: the vertex count of each draw
// call, in order. One call for everything, unless the triangles are so large and so many that a
// software driver may need seconds for them when the camera is close. Then in calls of bounded
// cost, between which a frame can stop.
QList<int> drawSlices(const QList<float>& vertices);
