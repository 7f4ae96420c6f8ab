#include "tests/support/files.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

// That the lint rule on texts from outside refuses what goes past their door, and nothing else.
class TestTexts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lints_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("allowed");
        const auto row = [](const char* line, bool allowed) {
            QTest::newRow(line) << QByteArray(line) << allowed;
        };
        row("label->setText(QStringLiteral(\"Log in first.\"));", true);
        row("label->setText(u\"Log in first.\"_s);", true);
        row("label->setText(\n    QStringLiteral(\"one \"\n    \"two\"));", true);
        row("label->setText(bad ? QStringLiteral(\"no\") : QStringLiteral(\"yes\"));", true);
        row("label->setText(QString());", true);
        row("foreign_text::show(label, error);", true);
        row("m_statusLabel->showText(u\"Failed: \" + error);", true);
        row("auto* label = new QLabel(page);", true);
        row("auto* label = new QLabel(title, page); // own words", true);
        row("names.append(name);", true);
        row("combo->clear();", true);

        row("label->setText(error);", false);
        row("label->setText(u\"Failed: \" + error);", false);
        row("label->setText(QStringLiteral(\"Failed: \") + error);", false);
        row("label->setText(QStringLiteral(\"Failed: %1\").arg(error));", false);
        row("label->setText(bad ? error : QString());", false);
        row("label->setText(\n    error);", false);
        row("combo->addItem(version.id, version.id);", false);
        row("combo->addItem(QIcon(), version.id);", false);
        row("item->setToolTip(news.title);", false);
        row("auto* item = new QListWidgetItem(news.title, list);", false);
        row("auto* label = new QLabel(error, page);", false);
        row("browser->setPlainText(news.body);", false);
        row("console->appendPlainText(line);", false);
        row("cursor.insertText(line);", false);
        row("browser->append(line);", false);
        row("item->setData(Qt::DisplayRole, title);", false);
        row("form->addRow(title, field);", false);
        row("setText(text);", false);
    }

    void lints()
    {
        QFETCH(QByteArray, line);
        QFETCH(bool, allowed);
        QTemporaryDir home;
        const QString file = QStringLiteral("ui/a.cpp");
        writeFile(home.filePath(file), QByteArray("void f()\n{\n    " + line + "\n}\n"));
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setWorkingDirectory(home.path());
        process.start(QStringLiteral(TEXTS_SCRIPT), {file});
        QVERIFY(process.waitForFinished());
        const QByteArray output = process.readAll();
        QVERIFY2((process.exitCode() == 0) == allowed, output.constData());
        QCOMPARE(output.startsWith("ui/a.cpp:3: "), !allowed);
    }

    void staysOutOfOtherLayers()
    {
        QTemporaryDir home;
        writeFile(home.filePath(QStringLiteral("services/a.cpp")), "label->setText(error);\n");
        QProcess process;
        process.setWorkingDirectory(home.path());
        process.start(QStringLiteral(TEXTS_SCRIPT), {QStringLiteral("services/a.cpp")});
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(TestTexts)
#include "tst_texts.moc"
