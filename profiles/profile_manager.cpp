#include "profiles/profile_manager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLatin1StringView>

#include <algorithm>

namespace {

constexpr QLatin1StringView profilesKey{"profiles"};
constexpr QLatin1StringView activeProfileKey{"activeProfile"};

constexpr int minimumHeapMb = 32;

LaunchProfile fromJson(const QJsonObject& object)
{
    LaunchProfile p;
    p.name = object[u"name"].toString();
    p.version = object[u"version"].toString();
    p.xms = object[u"xms"].toInt(p.xms);
    p.xmx = object[u"xmx"].toInt(p.xmx);
    p.extraJvmArgs = object[u"extraJvmArgs"].toString();
    return p;
}

QJsonObject toJson(const LaunchProfile& p)
{
    return {{QStringLiteral("name"), p.name},
            {QStringLiteral("version"), p.version},
            {QStringLiteral("xms"), p.xms},
            {QStringLiteral("xmx"), p.xmx},
            {QStringLiteral("extraJvmArgs"), p.extraJvmArgs}};
}

// The rules that need no look at the other profiles; empty when all hold.
QString objectionTo(const LaunchProfile& p)
{
    if (p.name.trimmed().isEmpty())
        return QStringLiteral("Profile name cannot be empty");
    // Before the minimum checks on purpose: 16 and 8 are reported as the wrong way round.
    if (p.xms > p.xmx)
        return QStringLiteral("Xms cannot be greater than Xmx");
    if (p.xms < minimumHeapMb)
        return QStringLiteral("Xms must be at least 32 MB");
    if (p.xmx < minimumHeapMb)
        return QStringLiteral("Xmx must be at least 32 MB");
    if (p.extraJvmArgs.contains(u'"'))
        return QStringLiteral("Quotes are not allowed in JVM args");
    return {};
}

} // namespace

ProfileManager::ProfileManager()
{
    load();
}

ProfileManager& ProfileManager::get()
{
    static ProfileManager manager;
    return manager;
}

const LaunchProfile* ProfileManager::find(const QString& name) const
{
    const auto it = std::ranges::find(m_profiles, name, &LaunchProfile::name);
    return it == m_profiles.cend() ? nullptr : &*it;
}

LaunchProfile* ProfileManager::findMutable(const QString& name)
{
    const auto it = std::ranges::find(m_profiles, name, &LaunchProfile::name);
    return it == m_profiles.end() ? nullptr : &*it;
}

QString ProfileManager::activeProfile() const
{
    return m_store.value(activeProfileKey, QString()).toString();
}

void ProfileManager::setActiveProfile(const QString& name)
{
    m_store.setValue(activeProfileKey, name);
}

bool ProfileManager::save(const LaunchProfile& p, const QString& previousName, QString* error)
{
    QString objection = objectionTo(p);
    if (objection.isEmpty() && p.name != previousName && find(p.name))
        objection = QStringLiteral("A profile with this name already exists");
    if (!objection.isEmpty()) {
        if (error)
            *error = objection;
        return false;
    }

    // The name is stored as given, blanks included; trimming served the emptiness test alone.
    if (LaunchProfile* existing = findMutable(previousName))
        *existing = p;
    else
        m_profiles.append(p);
    persist();
    return true;
}

bool ProfileManager::remove(const QString& name)
{
    const LaunchProfile* found = find(name);
    if (!found)
        return false;
    // First: the name may be the one that the profile takes with it.
    if (activeProfile() == name)
        m_store.remove(activeProfileKey);
    m_profiles.removeAt(found - m_profiles.constData());
    persist();
    return true;
}

QString ProfileManager::unwrittenFile()
{
    return m_store.unwrittenFile();
}

void ProfileManager::load()
{
    const QByteArray stored = m_store.value(profilesKey).toByteArray();
    const QJsonArray array = QJsonDocument::fromJson(stored).array();
    for (const auto& value : array) {
        LaunchProfile p = fromJson(value.toObject());
        if (!p.name.isEmpty())
            m_profiles.append(std::move(p));
    }
}

void ProfileManager::persist()
{
    QJsonArray array;
    for (const LaunchProfile& p : std::as_const(m_profiles))
        array.append(toJson(p));
    m_store.setValue(profilesKey, QJsonDocument(array).toJson(QJsonDocument::Compact));
}
