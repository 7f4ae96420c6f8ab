// Linked into a launcher, this writes down what its window shows, one line each in WINDOW_LOG's
// file: every new text of the status line, and the progress bar whenever it is painted.
#include <QApplication>
#include <QEvent>
#include <QFile>
#include <QLabel>
#include <QProgressBar>

namespace {

class WindowLog : public QObject
{
public:
    explicit WindowLog(QObject* parent) : QObject(parent)
    {
        m_file.setFileName(qEnvironmentVariable("WINDOW_LOG"));
        if (!m_file.fileName().isEmpty() &&
            m_file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
            QCoreApplication::instance()->installEventFilter(this);
    }

    bool eventFilter(QObject* watched, QEvent* event) override
    {
        // The tool tip changes right after the text; a text that is replaced at once is never
        // painted.
        if (event->type() == QEvent::ToolTipChange && watched->objectName() == u"status")
            writeStatus(static_cast<QLabel*>(watched)->text());
        const auto* bar =
            event->type() == QEvent::Paint ? qobject_cast<QProgressBar*>(watched) : nullptr;
        if (bar)
            write(QStringLiteral("progress %1 of %2").arg(bar->value()).arg(bar->maximum()));
        return false;
    }

private:
    void writeStatus(const QString& text)
    {
        if (text != m_status)
            write(u"status " + text);
        m_status = text;
    }
    void write(const QString& line) { m_file.write(line.toUtf8() + '\n'); }

    QFile m_file;
    QString m_status;
};

void startLog()
{
    new WindowLog(QCoreApplication::instance());
}
Q_COREAPP_STARTUP_FUNCTION(startLog)

} // namespace
