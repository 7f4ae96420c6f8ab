#include "backend/cli/command.h"

#include "backend/data/store.h"

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

void writeLine(std::FILE* stream, const QString& text)
{
    std::fputs(QString(text + u'\n').toUtf8().constData(), stream);
    std::fflush(stream);
}

void writeReasons(const Refusal& refusal)
{
    for (const QString& reason : refusal.reasons)
        writeLine(stderr, QString(u"  - "_s + reason));
}

} // namespace

namespace command {

void print(const QString& text)
{
    writeLine(stdout, text);
}

int fail(const QString& text)
{
    writeLine(stderr, QString(u"error: "_s + text));
    return Failed;
}

int fail(const Refusal& refusal)
{
    writeReasons(refusal);
    return fail(refusal.error);
}

void warn(const Refusal& refusal)
{
    writeReasons(refusal);
    writeLine(stderr, u"warning: "_s + refusal.error);
}

int wrongUsage(const QString& text, const QString& name)
{
    fail(text);
    writeLine(stderr, u"Try \"tessellan-backend %1--help\"."_s.arg(
                          name.isEmpty() ? QString() : QString(name + u' ')));
    return WrongUsage;
}

int group(const QString& name, const QString& members, const QString& given)
{
    if (given == "--help"_L1) {
        print(u"Usage: tessellan-backend %1 %2 [options]\n\nEach explains itself, such as: "
              "tessellan-backend %1 %3 --help"_s.arg(name, members, members.section(u'|', 0, 0)));
        return Success;
    }
    return wrongUsage(u"After \"%1\" comes one of %2."_s.arg(name, members), name);
}

Options::Options(QString name, const QString& description, Directory directory)
    : m_name(std::move(name)), m_directory(directory)
{
    const bool made = directory == Directory::MadeWhenMissing;
    m_parser.setApplicationDescription(description);
    m_parser.addOption({u"help"_s, u"Show this text."_s});
    m_parser.addOption(
        {u"data"_s,
         made ? u"The data directory; created when missing."_s : u"The data directory."_s,
         u"DIR"_s});
    m_parser.addOption({u"database"_s,
                        u"A PostgreSQL database instead of the SQLite file in the data directory: "
                        "postgresql://USER@HOST:PORT/NAME. Its password comes from the environment "
                        "(PGPASSWORD) or from ~/.pgpass."_s,
                        u"URL"_s});
}

void Options::add(const QString& option, const QString& description, const QString& valueName,
                  const QString& defaultValue)
{
    m_parser.addOption({option, description, valueName, defaultValue});
}

void Options::addFlag(const QString& option, const QString& description)
{
    m_parser.addOption({option, description});
}

void Options::require(const QString& option, const QString& description, const QString& valueName)
{
    add(option, description, valueName);
    m_required.append(option);
}

void Options::addWord(const QString& word, const QString& description)
{
    m_parser.addPositionalArgument(word, description);
    m_word = word;
}

std::optional<int> Options::parse(const QStringList& words)
{
    const bool parsed = m_parser.parse(QStringList(u"tessellan-backend "_s + m_name) + words);
    if (m_parser.isSet(u"help"_s)) {
        // Qt's first line names the executable's path instead of the command.
        const QString word = m_word.isEmpty() ? QString() : QString(u' ' + m_word);
        print(u"Usage: tessellan-backend %1 [options]%2\n%3"_s.arg(
            m_name, word, m_parser.helpText().section(u'\n', 1).trimmed()));
        return Success;
    }
    if (!parsed)
        return wrongUsage(m_parser.errorText(), m_name);
    for (const QString& option : std::as_const(m_required)) {
        if (m_parser.value(option).isEmpty())
            return wrongUsage(u"--%1 is missing."_s.arg(option), m_name);
    }
    const QString database = m_parser.value(u"database"_s);
    if (!database.isEmpty() && !database.startsWith("postgresql://"_L1))
        return wrongUsage(u"--database must begin with postgresql://."_s, m_name);
    const qsizetype expected = m_word.isEmpty() ? 0 : 1;
    const qsizetype given = m_parser.positionalArguments().size();
    if (given < expected)
        return wrongUsage(u"%1 is missing at the end of the command."_s.arg(m_word), m_name);
    if (given > expected)
        return wrongUsage(
            u"\"%1\" is one word too many."_s.arg(m_parser.positionalArguments().constLast()),
            m_name);
    if (m_directory == Directory::Existing && !Store::isAt(value(u"data"_s)))
        return fail(u"%1 is no data directory"_s.arg(value(u"data"_s)));
    return {};
}

DataLocation Options::dataLocation() const
{
    return {value(u"data"_s), value(u"database"_s)};
}

} // namespace command
