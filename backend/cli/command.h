#pragma once

#include "backend/base/outcome.h"
#include "backend/data/data_directory.h"

#include <QCommandLineParser>
#include <QString>
#include <QStringList>

#include <optional>

// What the commands share: options, messages and exit codes. A command is a function that gets the
// words after its own name and hands back the process's exit code.
namespace command {

enum ExitCode { Success = 0, Failed = 1, WrongUsage = 2 };

// Prints to standard output, and "error: ..." or "warning: ..." to standard error.
void print(const QString& text);
void warn(const Refusal& refusal);
int fail(const QString& text);
int wrongUsage(const QString& text, const QString& name);
int fail(const Refusal& refusal);

// The answer to a group of commands that was not told which, or was asked for --help.
int group(const QString& name, const QString& members, const QString& given);

// The options of one command, with --help, --data and --database.
class Options
{
public:
    // Whether a data directory is made when there is none. What only looks at things would find
    // everything in order in a directory whose name was mistyped.
    enum class Directory { Existing, MadeWhenMissing };

    // `name` is the whole command, such as "publish version".
    Options(QString name, const QString& description, Directory directory = Directory::Existing);

    void add(const QString& option, const QString& description, const QString& valueName,
             const QString& defaultValue = {});
    void addFlag(const QString& option, const QString& description);
    // A value that must be given.
    void require(const QString& option, const QString& description, const QString& valueName);
    void addWord(const QString& word, const QString& description);

    // The exit code when the command is over already: help was asked for, or the line is wrong.
    std::optional<int> parse(const QStringList& words);

    DataLocation dataLocation() const;
    QString value(const QString& option) const { return m_parser.value(option); }
    QString word() const { return m_parser.positionalArguments().value(0); }
    bool has(const QString& option) const { return m_parser.isSet(option); }

private:
    QString m_name;
    Directory m_directory;
    QCommandLineParser m_parser;
    QStringList m_required{QStringLiteral("data")};
    QString m_word;
};

} // namespace command
