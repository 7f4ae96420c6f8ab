#pragma once

#include "backend/base/outcome.h"

#include <QByteArray>
#include <QString>

#include <array>

// A kind of file that makes up a character: everything in which skins and models differ.
struct Look
{
    QLatin1StringView name; // its column of the accounts, too
    QLatin1StringView uploadPath;
    QLatin1StringView pattern; // where it is offered; the star stands for the account
    QLatin1StringView contentType;
    qint64 sizeLimit; // of an upload, in bytes
    // What is kept of an upload, or why it is refused.
    Outcome<QByteArray> (*accept)(const QByteArray& upload);
};

extern const std::array<Look, 2> allLooks;
