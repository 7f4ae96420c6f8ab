#include "app/until_nul.h"

QString untilNul(const QString& text)
{
    const qsizetype end = text.indexOf(QChar::Null);
    return end < 0 ? text : text.left(end);
}
