#pragma once

#include <QList>
#include <QString>

// One named body part: a range of the vertex list. A parent's range includes its children's.
struct ModelPart
{
    QString name;
    float pivotX = 0; // model units
    float pivotY = 0;
    float pivotZ = 0;
    int firstVertex = 0;
    int vertexCount = 0;
};

// What the preview draws. One model unit is 16 skin pixels; the default figure is 2 units tall and
// stands at y = 0.
struct BakedModel
{
    static constexpr int floatsPerVertex = 5; // x, y, z, u, t; t is counted from the image's bottom
    static constexpr int verticesPerBox = 36;

    QList<float> vertices; // every three vertices are one triangle
    QList<ModelPart> parts;
    int textureWidth = 64; // the texels that the coordinates were divided by
    int textureHeight = 64;
    bool valid = false; // nothing is drawn until something was baked

    qsizetype boxCount() const { return vertices.size() / floatsPerVertex / verticesPerBox; }
};
