#pragma once

#include <QObject>
#include <QString>

// Keeps the launcher itself current. Owned by the main window; GUI thread.
class UpdateManager : public QObject
{
    Q_OBJECT

public:
    explicit UpdateManager(QObject* parent = nullptr);

    void checkForUpdate();

Q_SIGNALS:
    void upToDate();
    void updateAvailable(const QString& newVersion);
    // Bytes; total is -1 while unknown.
    void updateProgress(qint64 received, qint64 total);
    void updateReady(const QString& newVersion);
    void updateFailed(const QString& error);
};
