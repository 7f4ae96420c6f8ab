#include "app/settings_store.h"

#include "app/private_file.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QVariantMap>

#include <cstdio>
#include <optional>
#include <utility>

#include <unistd.h>

namespace {

// A second name for the file as it is, under which it outlives being replaced.
class EarlierFile
{
public:
    explicit EarlierFile(const QString& path)
        : m_path(QFile::encodeName(QFileInfo(path).canonicalFilePath()))
        , m_link(m_path + '.' + QByteArray::number(getpid()))
    {
        if (m_path.isEmpty())
            return;
        unlink(m_link.constData()); // of an earlier process that crashed
        m_linked = link(m_path.constData(), m_link.constData()) == 0;
    }
    ~EarlierFile()
    {
        if (m_linked)
            unlink(m_link.constData());
    }
    Q_DISABLE_COPY_MOVE(EarlierFile)

    void putBack()
    {
        if (m_linked && rename(m_link.constData(), m_path.constData()) == 0)
            m_linked = false;
    }

private:
    QByteArray m_path;
    QByteArray m_link;
    bool m_linked = false;
};

// QSettings believes a write on a full disk and leaves a file that ends somewhere. Every key is a
// line of its own. More of them are another launcher's, which wrote at once.
bool isWhole(const QString& path, qsizetype keys)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    const QByteArray content = file.readAll();
    qsizetype found = 0;
    for (const QByteArray& line : content.split('\n'))
        found += line.contains('=');
    return found >= keys && (content.isEmpty() || content.endsWith('\n'));
}

void putAside(const QString& path)
{
    QString aside = path + u".aside";
    while (QFileInfo::exists(aside))
        aside += u'_';
    std::rename(QFile::encodeName(path).constData(), QFile::encodeName(aside).constData());
}

// QSettings would wait for ever: for somebody to write into a named pipe, and for a lock that is
// nobody's. The settings are a file or a link to one, the lock is a file.
void clearTheWay(const QString& path)
{
    const QFileInfo settings(path);
    if (settings.exists() && !settings.isFile() && !settings.isDir())
        putAside(path);
    const QFileInfo lock(QString(path + u".lock"));
    if (lock.isSymLink() || (lock.exists() && !lock.isFile()))
        putAside(lock.filePath());
}

void prepareFile(const QString& path)
{
    clearTheWay(path);
    private_file::make(path);
}

// The one place of these names. "Launcher" on purpose, not the application's own name "Tessellan
// Launcher". Where such files are, QSettings tells only of one that it has opened: it is asked of
// one that is not there.
QString privatePath()
{
    const QSettings none(QStringLiteral("Tessellan-none"), QStringLiteral("none"));
    const QDir place(QFileInfo(none.fileName()).absolutePath() + u"/..");
    QString path = QDir::cleanPath(place.filePath(QStringLiteral("Tessellan/Launcher.conf")));
    clearTheWay(path);
    private_file::repair(path);
    return path;
}

} // namespace

// By its path, so that QSettings opens no other file beside it. It reads the file at once.
SettingsStore::SettingsStore() : QSettings(privatePath(), NativeFormat) {}

// QSettings writes what still waits when it is destroyed, and nobody would look at the result.
// After write() nothing waits, whether it succeeded or not.
SettingsStore::~SettingsStore()
{
    if (m_pending)
        write();
}

void SettingsStore::setValue(QAnyStringView key, const QVariant& value)
{
    beginChange();
    QSettings::setValue(key, value);
}

void SettingsStore::remove(QAnyStringView key)
{
    beginChange();
    QSettings::remove(key);
}

// The file is private before the value is where another QSettings of this process could write it.
void SettingsStore::beginChange()
{
    prepareFile(fileName());
    m_pending = true;
    if (std::exchange(m_failed, false))
        QCoreApplication::postEvent(this, new QEvent(QEvent::UpdateRequest));
}

QString SettingsStore::unwrittenFile()
{
    if (m_pending && !m_failed) {
        QEvent now(QEvent::UpdateRequest);
        event(&now);
    }
    return m_pending ? fileName() : QString();
}

bool SettingsStore::event(QEvent* event)
{
    if (event->type() != QEvent::UpdateRequest || !m_pending) {
        clearTheWay(fileName());
        return QSettings::event(event);
    }
    const std::optional<QVariantMap> lost = write();
    if (lost)
        holdAgainstTheFile(*lost);
    // No other attempt at once: that would be tried for ever.
    if (m_failed)
        QCoreApplication::removePostedEvents(this, QEvent::UpdateRequest);
    return true;
}

// What its own event does, when the event loop comes round to it: writes what waits, reads what
// changed.
void SettingsStore::letQSettingsUpdate()
{
    QEvent request(QEvent::UpdateRequest);
    QSettings::event(&request);
}

// Returns what the file should hold when it was written and is not whole; the earlier one then
// stands in its place again.
std::optional<QVariantMap> SettingsStore::write()
{
    prepareFile(fileName());
    EarlierFile earlier(fileName());
    letQSettingsUpdate();
    // As QSettings believes to have written it, merged with what another launcher wrote meanwhile.
    QVariantMap believed = everything();
    // A status that was bad once stays bad; one of its own tells how this write went.
    const bool refused = QSettings(fileName(), NativeFormat).status() == AccessError;
    const bool cut = !refused && !isWhole(fileName(), believed.size());
    m_pending = m_failed = refused || cut;
    if (!cut)
        return {};
    earlier.putBack();
    return believed;
}

// Makes QSettings see the earlier file again and hold the changes against it.
void SettingsStore::holdAgainstTheFile(const QVariantMap& wanted)
{
    letQSettingsUpdate(); // nothing waits to be written: it reads
    for (const QString& key : allKeys()) {
        if (!wanted.contains(key))
            QSettings::remove(key);
    }
    for (auto it = wanted.cbegin(); it != wanted.cend(); ++it) {
        if (value(it.key()) != it.value())
            QSettings::setValue(it.key(), it.value());
    }
}

QVariantMap SettingsStore::everything() const
{
    QVariantMap values;
    // A key that somebody wrote with a slash before it loses that when it is written again.
    for (const QString& key : allKeys())
        values.insert(key.startsWith(u'/') ? key.sliced(1) : key, value(key));
    return values;
}
