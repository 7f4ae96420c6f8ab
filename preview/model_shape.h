#pragma once

#include "preview/baked_model.h"

#include <QJsonObject>
#include <QMap>
#include <QString>

class QJsonDocument;
class QJsonValue;

// What a block-model file gives, without its picture: the server judges uploads by it and has no
// use for one. refusal is empty for an accepted model; otherwise it says why not, in words for
// people, and the model is empty and not valid.
struct ImportedShape
{
    BakedModel model;
    QString refusal;
    qsizetype elements = 0;       // entries of the file's list, whatever they are
    bool hasLeftBoxesOut = false; // the model would have been too costly to draw whole
};

// Reads a block model: boxes with box UV, named groups, an outliner that decides what is drawn. A
// model whose outliner draws nothing is accepted. Safe on any input; time and memory are a small
// multiple of what reading the JSON takes, and what is drawn is bounded: see affordableBoxes and
// maxDrawnBoxes. Boxes beyond that are left out, and no part loses its place.
ImportedShape importShape(const QJsonDocument& document);

// A frame takes half a microsecond for each, however small.
constexpr int maxDrawnBoxes = 20000;

// One box while importing; model pixels, 16 to a model unit.
struct BbCube
{
    float fromX = 0, fromY = 0, fromZ = 0;
    float toX = 0, toY = 0, toZ = 0;
    float u = 0, v = 0; // texture origin
    float inflate = 0;
};

// Walks one outliner entry: a string draws the box of that key, an object is a group that becomes
// a part after its children. (ox, oy, oz) is the sum of the origins above it, which moves pivots
// only. A group's name may be a number instead of a text: a part's name is then a blank and that
// number. Stops drawing once maxDrawnBoxes is exceeded.
void bbWalk(const QJsonValue& node, const QMap<QString, BbCube>& cubes,
            const QMap<QString, QJsonObject>& groups, QList<float>& vertices, int texW, int texH,
            float uvScale, BakedModel* model, float ox, float oy, float oz);
