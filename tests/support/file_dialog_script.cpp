#include "tests/support/file_dialog_script.h"

#include <QApplication>
#include <QFileDialog>
#include <QLineEdit>
#include <QTimer>

FileDialogScript::FileDialogScript(const QString& path) : m_path(path)
{
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, &FileDialogScript::lookForDialog);
    timer->start(5);
}

void FileDialogScript::lookForDialog()
{
    auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
    if (m_shown || !dialog || !dialog->isVisible())
        return;
    m_shown = true;
    m_caption = dialog->windowTitle();
    m_filters = dialog->nameFilters();
    answer(dialog);
}

void FileDialogScript::answer(QFileDialog* dialog)
{
    if (!m_path.isEmpty())
        dialog->findChild<QLineEdit*>()->setText(m_path);
    if (m_path.isEmpty())
        dialog->reject();
    else
        static_cast<QDialog*>(dialog)->accept();
    if (afterChoice)
        afterChoice();
}
