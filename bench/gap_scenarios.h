#pragma once

#include <QString>
#include <QStringList>

// What bench_gaps measures the window at, by name.
namespace GapScenario {

QStringList names();
QString description(const QString& name);

// In a process of its own: builds the window as main does, works it, and prints what it measured.
int run(int argc, char* argv[], const QString& name, const QString& origin);

} // namespace GapScenario
