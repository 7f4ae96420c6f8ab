#pragma once

#include <QElapsedTimer>
#include <QString>

// A bar on standard error for work that takes long; nothing when that is no terminal.
class ProgressBar
{
public:
    explicit ProgressBar(QString label);
    ~ProgressBar();
    Q_DISABLE_COPY_MOVE(ProgressBar)

    void set(qint64 done, qint64 total);

private:
    QString m_label;
    bool m_isShown;
    bool m_hasDrawn = false;
    QElapsedTimer m_lastDrawn;
};
