#pragma once

#include "preview/baked_model.h"

#include <QByteArray>
#include <QImage>
#include <QJsonObject>
#include <QMap>
#include <QString>

class QJsonValue;

// What a block-model file gives. refusal is empty for an accepted model; otherwise it says why not,
// in words for people, and the model is empty and not valid. The texture is null unless one was
// embedded and decoded; it outlives a refusal that follows it.
struct ImportedModel
{
    BakedModel model;
    QImage texture;
    QString refusal;
};

// Reads a block model: boxes with box UV, named groups, an outliner that decides what is drawn. A
// model whose outliner draws nothing is accepted. Safe on any input; the cost is bounded by the
// input's size and by maxDrawnBoxes.
ImportedModel importModel(const QByteArray& json);

// Enough for any character; a file that lists its boxes more often than this would fill the
// memory and stall the picture.
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
// only. Stops adding once maxDrawnBoxes is exceeded.
void bbWalk(const QJsonValue& node, const QMap<QString, BbCube>& cubes,
            const QMap<QString, QJsonObject>& groups, QList<float>& vertices, int texW, int texH,
            float uvScale, BakedModel* model, float ox, float oy, float oz);
