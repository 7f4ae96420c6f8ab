#pragma once

#include "preview/model_shape.h"

#include <QByteArray>
#include <QImage>

// A block model with its picture. The texture is null unless one was embedded and decoded; it
// outlives a refusal.
struct ImportedModel : ImportedShape
{
    QImage texture;
};

ImportedModel importModel(const QByteArray& json);
