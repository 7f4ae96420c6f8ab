#pragma once

#include <QString>

// A named way to start the game. Heap sizes are megabytes; extraJvmArgs is one line of options
// separated by spaces. The name is the key, compared case-sensitively.
struct LaunchProfile
{
    QString name;
    QString version; // game version id; may be empty
    int xms = 512;
    int xmx = 2048;
    QString extraJvmArgs;
};
