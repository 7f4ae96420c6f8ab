#pragma once

#include <QList>

// How many of the boxes of a vertex list (see BakedModel), counted from the first, a software
// driver draws within an eighth of a second wherever the camera is: all of them, unless the model
// was made to stall the window. A matter of the list alone: every machine finds the same number.
//
// A box costs what it covers of the picture, which is most for the nearest camera. The space in
// which the camera moves is divided into regions; what each box can cover at most, seen from
// anywhere in a region, is added up, and a region where the sum exceeds the budget is divided
// again, until it is small enough to be believed. The amount of this work is bounded, too.
qsizetype affordableBoxes(const QList<float>& vertices);
