#pragma once

#include <QList>
#include <QString>

// One installable game version, as the manifest gives it.
struct GameVersion
{
    QString id; // also the directory and jar name
    QString url;
    QString sha256;   // hexadecimal in any letter case; empty means that the jar is not verified
    QString released; // free text
};

// One news item, as the manifest gives it.
struct NewsItem
{
    QString title;
    QString date; // free text
    QString body; // plain text
};

// What the launcher keeps of a manifest, in its order.
struct Manifest
{
    QList<GameVersion> versions;
    QList<NewsItem> news;
};
