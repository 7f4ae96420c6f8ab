#pragma once

#include "app/settings_store.h"
#include "profiles/launch_profile.h"

#include <QList>
#include <QString>

// The launch profiles, in the order they were made, and which of them is active. get() is the one
// instance of the program, created on first use and destroyed at exit; GUI thread only.
//
// The list is read once, at construction, from the launcher's settings file; afterwards the memory
// is the truth and every successful save or remove writes the whole list back. Corrupt stored data
// reads as an empty list.
class ProfileManager
{
public:
    ProfileManager();

    static ProfileManager& get();

    const QList<LaunchProfile>& profiles() const { return m_profiles; }
    // The first profile of exactly that name, or null. Valid until the next save or remove.
    const LaunchProfile* find(const QString& name) const;

    // Empty when none is active. The stored name need not belong to a profile.
    QString activeProfile() const;
    void setActiveProfile(const QString& name);

    // Overwrites the profile called previousName, or appends when there is none of that name.
    // On refusal sets *error (when given) to the text to show and changes nothing. Never touches
    // the active profile, also not when the active one is renamed.
    bool save(const LaunchProfile& p, const QString& previousName, QString* error);
    // False when there is no such profile. Removing the active one leaves none active.
    bool remove(const QString& name);

    // Empty when everything stored is in the file, otherwise the path of the file that refused it.
    QString unwrittenFile();

    // The JVM part of the command line: both heap flags, then the extra options without the locked
    // ones. Sets *warning (when given) only when something was dropped.
    QList<QString> jvmArgsFor(const LaunchProfile& p, QString* warning) const;
    static bool isLockedArg(const QString& arg);

private:
    void load();
    void persist();
    LaunchProfile* findMutable(const QString& name);

    QList<LaunchProfile> m_profiles;
    SettingsStore m_store;
};
