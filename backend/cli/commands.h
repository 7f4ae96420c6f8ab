#pragma once

#include <QStringList>

// The commands of tessellan-backend. Each gets the words after its name.
namespace commands {

// The whole command line, without the program's name.
int run(const QStringList& words);

int serve(const QStringList& words);
int publish(const QStringList& words);
int withdraw(const QStringList& words);
int list(const QStringList& words);
int accounts(const QStringList& words);
int looks(const QStringList& words);
int check(const QStringList& words);
int backup(const QStringList& words);

} // namespace commands
