#pragma once

#include "backend/site.h"

#include <QString>
#include <QStringList>

#include <variant>

// What `serve` was asked for, checked.
struct ServeOptions
{
    SiteLocation site;
    QString host;
    int port = 0;
    // Without a last slash; empty when not given.
    QString publicOrigin;
    QString filesOrigin;
    QString tlsCertificate;
    QString tlsKey;
    QString accessLog;
    QStringList trustedProxies;

    // The options, or the exit code when the command is over already.
    static std::variant<ServeOptions, int> parse(const QStringList& words);
    // How the server is reached from its own machine.
    QString localOrigin() const;
};
