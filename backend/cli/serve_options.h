#pragma once

#include "backend/accounts/accounts.h"
#include "backend/api/body_budget.h"
#include "backend/data/data_directory.h"
#include "backend/http/engine.h"
#include "backend/looks/appearance.h"

#include <QString>
#include <QStringList>

#include <variant>

// What `serve` was asked for, checked.
struct ServeOptions
{
    DataLocation data;
    server::Options network;
    BodyBudget::Limits bodies;
    Accounts::Limits accounts;
    Appearance::Limits uploads;
    int registrationsOfAddress = 20; // by the hour
    // Without a last slash; empty when not given.
    QString publicOrigin;
    QString filesOrigin;
    QString certificate; // PEM files, both or neither: then plain HTTP
    QString key;
    QString accessLog;

    // The options, or the exit code when the command is over already.
    static std::variant<ServeOptions, int> parse(const QStringList& words);
    // How the server is reached from its own machine, at the port that it listens on.
    QString localOrigin(int port) const;
};
