#include "services/loader_trial.h"

#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

// A hundred libraries take ten kilobytes. The rest is read, so that the loader ends, and dropped.
constexpr qsizetype maxOutputBytes = 256 * 1024;
constexpr qsizetype maxReasonCharacters = 120;
constexpr int killLimitMs = 1000; // what is killed ends at once, unless a disk holds it

} // namespace

LoaderTrial::LoaderTrial(QObject* parent) : QObject(parent), m_process(new QProcess(this)) {}

LoaderTrial::~LoaderTrial()
{
    // Ending is no answer.
    m_process->disconnect(this);
    m_process->kill();
    m_process->waitForFinished(killLimitMs);
}

void LoaderTrial::start(const QString& loader, const QString& program, int limitMs)
{
    // As it will be started: with the player's LD_LIBRARY_PATH, if there is one.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LD_TRACE_LOADED_OBJECTS"_s, u"1"_s);
    environment.insert(u"LD_WARN"_s, u"1"_s);
    environment.insert(u"LD_BIND_NOW"_s, u"1"_s);
    // These have it say more than is read here.
    environment.remove(u"LD_VERBOSE"_s);
    environment.remove(u"LD_DEBUG"_s);
    m_process->setProcessEnvironment(environment);
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    m_process->setStandardInputFile(QProcess::nullDevice());
    connect(m_process, &QProcess::readyReadStandardOutput, this, &LoaderTrial::takeOutput);
    connect(m_process, &QProcess::finished, this, [this, program](int, QProcess::ExitStatus how) {
        takeOutput();
        if (how == QProcess::NormalExit)
            Q_EMIT finished(lackOf(program, m_output));
        else // as it would when it starts the program
            Q_EMIT finished(m_gaveUp ? QString() : u"the system's loader breaks off"_s);
    });
    connect(
        m_process, &QProcess::errorOccurred, this,
        [this](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                Q_EMIT finished({});
        },
        Qt::QueuedConnection);
    QTimer::singleShot(limitMs, m_process, [this] {
        m_gaveUp = true;
        m_process->kill();
    });
    m_process->start(loader, {program}, QIODevice::ReadOnly);
}

void LoaderTrial::takeOutput()
{
    const QByteArray more = m_process->readAllStandardOutput();
    m_output += more.left(maxOutputBytes - m_output.size());
}

QString LoaderTrial::lackOf(const QString& program, const QByteArray& loaderSays)
{
    static const QRegularExpression library(uR"(^\t([^\n]+) => not found$)"_s,
                                            QRegularExpression::MultilineOption);
    // A weak version may be missing; the loader calls it so.
    static const QRegularExpression version(
        uR"(([^/:\n]+): version `([^'\n]+)' not found \(required by )"_s);
    static const QRegularExpression damage(
        uR"(: error while loading shared libraries: (?:/[^:\n]*/)?([^\n]+)$)"_s,
        QRegularExpression::MultilineOption);
    // Those of libraries do not matter: the running launcher does without them as well.
    const QRegularExpression symbol(uR"(undefined symbol: ([^\s,]+)[^\n]*\t\()"_s +
                                    QRegularExpression::escape(program) + u"\\)"_s);
    const QString says = QFile::decodeName(loaderSays);
    const auto inShort = [](const QString& name) { return name.left(maxReasonCharacters); };
    if (const auto match = library.match(says); match.hasMatch())
        return inShort(match.captured(1)) + u" is missing"_s;
    if (const auto match = version.match(says); match.hasMatch())
        return inShort(match.captured(1)) + u" is too old (it has no "_s +
               inShort(match.captured(2)) + u')';
    if (const auto match = symbol.match(says); match.hasMatch())
        return u"no library has "_s + inShort(match.captured(1));
    if (const auto match = damage.match(says); match.hasMatch())
        return inShort(match.captured(1));
    return {};
}
