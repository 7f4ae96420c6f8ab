#pragma once

#include "tests/support/http_server.h"

#include <QByteArray>
#include <QList>
#include <QString>

// Answers of servers that are broken, or mean harm.
namespace hostile {

enum class Verdict {
    Whole,           // odd, but it must be taken
    CompressedWhole, // the same, where the body can show that nothing is missing
    CompressedCut,   // must fail, unless whoever takes it checks the body
    Fails,
    Either, // the network layer cannot tell; but it has to end
    Silent, // there are no time-outs: nothing may happen, and nothing may hang
};

struct Answer
{
    QByteArray name;
    HttpAnswer answer;
    Verdict verdict;
};

// What a server may send in place of the honest body; redirects lead to the address elsewhere. The
// endless ones only end where a limit is small.
QList<Answer> answers(const QByteArray& honest, const QString& elsewhere, bool endless);

} // namespace hostile
