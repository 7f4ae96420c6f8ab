#include "backend/base/refusals.h"

using namespace Qt::StringLiterals;

namespace {

QString inWords(int seconds)
{
    if (seconds < 60)
        return seconds == 1 ? u"1 second"_s : u"%1 seconds"_s.arg(seconds);
    if (seconds < 90)
        return u"1 minute"_s;
    const int minutes = (seconds + 30) / 60;
    if (minutes < 90)
        return u"%1 minutes"_s.arg(minutes);
    return u"%1 hours"_s.arg((minutes + 30) / 60);
}

} // namespace

namespace refusals {

Refusal tooMany(const QString& what, int seconds)
{
    return {429, u"Too many %1. Try again in %2."_s.arg(what, inWords(seconds)), {}, seconds};
}

Refusal noSession()
{
    return {401, u"You are not logged in. Log in again."_s};
}

Refusal tooBusy()
{
    return {503, u"The server is busy. Try again in a moment."_s, {}, 1};
}

} // namespace refusals
