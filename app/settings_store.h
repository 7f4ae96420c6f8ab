#pragma once

#include <QSettings>
#include <QString>
#include <QVariantMap>

#include <optional>

class QEvent;

// The launcher's settings file, which holds the session token: nobody but its owner may read it, at
// no moment. The file is made with mode 0600, the directories that are missing with 0700; a file
// that others can read is closed to them before anything is read from or written to it. Files of
// the organisation or of the whole system are not asked: a session found there could not be ended.
// A named pipe or a device in the file's place is put aside, as nobody may ever write to it.
//
// QSettings writes by itself, when the event loop comes round and at destruction. A write that does
// not arrive whole, on a full disk say, leaves the file as it was; the values stay in memory and
// are tried again with the next change. Owned by the stores that read and write it; GUI thread
// only, but for value(), which the runtime's worker may call.
class SettingsStore : public QSettings
{
public:
    SettingsStore();
    ~SettingsStore() override;

    void setValue(QAnyStringView key, const QVariant& value);
    void remove(QAnyStringView key);

    // Lets QSettings write what waits. Empty when the file holds it now, otherwise the file's path.
    QString unwrittenFile();

protected:
    bool event(QEvent* event) override;

private:
    void beginChange();
    void letQSettingsUpdate();
    std::optional<QVariantMap> write();
    void holdAgainstTheFile(const QVariantMap& wanted);
    QVariantMap everything() const;

    bool m_pending = false; // something was changed that the file does not hold yet
    bool m_failed = false;  // and the last attempt to write it failed
};
