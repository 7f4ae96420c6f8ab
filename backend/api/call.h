#pragma once

#include "backend/accounts/accounts.h"

#include <QByteArray>
#include <QString>

// One request, as the handlers see it: nothing of the network reaches them.
struct Call
{
    QByteArray method; // a HEAD arrives as GET
    QByteArray path;
    QByteArray token;       // of "Authorization: Bearer ..."
    QByteArray contentType; // without parameters, in lower case
    QByteArray ifNoneMatch;
    QByteArray range;
    QByteArray ifRange;
    qint64 bodyBytes = 0; // as announced
    QByteArray body;
    QString address; // who asks
    // Set for routes that need a session.
    Account account;
};
