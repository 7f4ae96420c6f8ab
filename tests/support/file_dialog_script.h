#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

class QFileDialog;

// Answers the next file dialog that opens, as a player would: types a path and accepts, or cancels
// when the path is empty. Make one before what opens the dialog; the dialog must not be native
// (Qt::AA_DontUseNativeDialogs).
class FileDialogScript : public QObject
{
    Q_OBJECT

public:
    explicit FileDialogScript(const QString& path);

    // Runs after the choice, before the dialog's caller goes on.
    std::function<void()> afterChoice;

    bool wasShown() const { return m_shown; }
    QString caption() const { return m_caption; }
    QStringList filters() const { return m_filters; }

private:
    void lookForDialog();
    void answer(QFileDialog* dialog);

    QString m_path;
    bool m_shown = false;
    QString m_caption;
    QStringList m_filters;
};
