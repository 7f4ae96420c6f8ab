#include "tests/support/installed_probe.h"

#include "tests/support/throwaway_home.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTest>

#include <algorithm>

namespace {

constexpr int runLimitMs = 60'000;

void writeFile(const QString& path, const QByteArray& content)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write %s", qPrintable(path));
}

} // namespace

QByteArray sha256Of(const QByteArray& data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

InstalledProbe::InstalledProbe(const QString& directoryName)
    : m_directoryName(directoryName), m_old(contentOf(QStringLiteral(UPDATE_PROBE)))
{
    QDir().mkpath(directory());
    QDir().mkpath(temporaryDirectory());
    writeFile(exe(), m_old);
    QFile::setPermissions(exe(), QFile::permissions(exe()) | QFile::ExeOwner);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("HOME"), m_home.path());
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"),
                       m_home.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("TMPDIR"), temporaryDirectory());
    m_process.setProcessEnvironment(environment);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_server,
                     [this] { m_output += m_process.readAllStandardOutput(); });

    const QString settings = m_home.filePath(QStringLiteral("config/Tessellan/Launcher.conf"));
    QSettings(settings, QSettings::IniFormat)
        .setValue(QStringLiteral("manifestUrl"), m_server.url(QStringLiteral("/manifest.json")));
}

InstalledProbe::~InstalledProbe()
{
    m_process.closeWriteChannel();
    if (m_process.state() != QProcess::NotRunning && !m_process.waitForFinished(runLimitMs))
        m_process.kill();
    if (!QTest::qWaitFor([this] { return !scriptRuns(); }))
        qWarning("a swap script still runs");
}

bool InstalledProbe::openForEverybody()
{
    const QFile::Permissions all = QFile::Permissions::fromInt(0x7755);
    return QFile::setPermissions(throwaway_home::path(), all) &&
           QFile::setPermissions(QDir::tempPath(), all) &&
           QFile::setPermissions(m_home.path(), all) && QFile::setPermissions(exe(), all) &&
           QFile::setPermissions(temporaryDirectory(), QFile::Permissions::fromInt(0x7777)) &&
           QFile::setPermissions(m_home.filePath(QStringLiteral("config/Tessellan/Launcher.conf")),
                                 all);
}

QByteArray InstalledProbe::newBuild(qsizetype size) const
{
    QByteArray build =
        "#!/bin/sh\necho started >\"" + QFile::encodeName(startedMark()) + "\"\nexit 0\n";
    for (int line = 0; build.size() < size; ++line)
        build += "# " + QByteArray::number(line) + QByteArray(60, 'x') + '\n';
    return build;
}

void InstalledProbe::offer(const QByteArray& build)
{
    offer(HttpAnswer::ok(build), QStringLiteral("1.0.17"), sha256Of(build));
}

void InstalledProbe::offer(const HttpAnswer& answer, const QString& version,
                           const QByteArray& sha256)
{
    const QJsonObject build{{QStringLiteral("version"), version},
                            {QStringLiteral("url"), m_server.url(QStringLiteral("/build"))},
                            {QStringLiteral("sha256"), QString::fromLatin1(sha256)}};
    m_server.answer("/build", answer);
    m_server.answer(
        "/manifest.json",
        HttpAnswer::json(
            QJsonDocument(QJsonObject{{QStringLiteral("launcherLinux"), build}}).toJson()));
}

void InstalledProbe::setVariable(const QString& name, const QString& value)
{
    QProcessEnvironment environment = m_process.processEnvironment();
    environment.insert(name, value);
    m_process.setProcessEnvironment(environment);
}

void InstalledProbe::setPoint(const QString& variable, int point)
{
    setVariable(QStringLiteral("FAULT_LOG"), operationsLog());
    setVariable(variable, QString::number(point));
}

QByteArrayList InstalledProbe::operations() const
{
    QByteArrayList lines = contentOf(operationsLog()).split('\n');
    lines.removeLast(); // after the last line's end
    for (QByteArray& line : lines)
        line = line.mid(line.indexOf(' ') + 1);
    return lines;
}

void InstalledProbe::start(const QStringList& arguments)
{
    m_output.clear();
    QFile::remove(operationsLog());
    m_process.start(exe(), arguments);
    QVERIFY2(m_process.waitForStarted(), qPrintable(m_process.errorString()));
}

void InstalledProbe::run(const QStringList& arguments)
{
    start(arguments);
    const auto reported = [this] {
        return lastLine().startsWith(u"up") && !lastLine().startsWith(u"updateAvailable");
    };
    const auto over = [&] { return reported() || m_process.state() == QProcess::NotRunning; };
    if (!QTest::qWaitFor(over, runLimitMs))
        qWarning("the copy neither reports nor ends");
}

QStringList InstalledProbe::lines() const
{
    QStringList lines = QString::fromUtf8(m_output).split(u'\n', Qt::SkipEmptyParts);
    lines.removeIf([](const QString& line) {
        return line.startsWith(u"updateProgress ") || line.startsWith(u"longestGap ");
    });
    return lines;
}

qint64 InstalledProbe::longestGapMs() const
{
    const qsizetype at = m_output.indexOf("longestGap ");
    return at < 0 ? -1 : m_output.mid(at + 11).split('\n').first().toLongLong();
}

bool InstalledProbe::end()
{
    m_process.closeWriteChannel();
    return m_process.state() == QProcess::NotRunning || m_process.waitForFinished(runLimitMs);
}

bool InstalledProbe::stands(const QByteArray& build) const
{
    return contentOf(exe()) == build && QFileInfo(exe()).isExecutable();
}

bool InstalledProbe::oldStands() const
{
    return stands(m_old);
}

bool InstalledProbe::nothingIsStaged() const
{
    return !QFileInfo(staged()).isSymLink() && !QFile::exists(staged()) &&
           !QFile::exists(script()) && QDir(directory()).entryList(QDir::Files).size() == 1;
}

bool InstalledProbe::oldStarts()
{
    m_server.goOffline();
    run();
    return lastLine() == u"upToDate" && end();
}

bool InstalledProbe::scriptRuns() const
{
    const QByteArray shell = QByteArray("/bin/sh\0", 8) + QFile::encodeName(script()) + '\0';
    const QStringList processes = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    return std::ranges::any_of(processes, [&shell](const QString& id) {
        return contentOf(u"/proc/" + id + u"/cmdline") == shell;
    });
}
