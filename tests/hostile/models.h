#pragma once

#include <QByteArray>
#include <QList>

// Block models that were made to cost a reader, or whoever draws them, far more than they weigh.
namespace hostile_models {

struct Kind
{
    const char* name;
    // A file of about so many bytes, and no more.
    QByteArray (*make)(qsizetype bytes);
};

// Whose reading costs.
QList<Kind> ofWork();
// Whose drawing costs: 20,000 boxes in the camera's way. They do not grow with the bytes.
QList<Kind> ofPicture();

} // namespace hostile_models
