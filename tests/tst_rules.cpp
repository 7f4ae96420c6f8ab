#include "tests/support/files.h"

#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <utility>

// That the lint rule for what has one way finds a second one.
class TestRules : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void finds_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("allowed");
        const auto row = [](const char* file, const char* line, bool allowed) {
            QTest::addRow("%s: %s", file, line)
                << QString::fromLatin1(file) << QByteArray(line) << allowed;
        };
        row("ui/a.cpp", "auto* reply = m_network->get(request);", false);
        row("ui/a.cpp", "m_network->post(request, body);", false);
        row("versions/a.cpp", "m_network->sendCustomRequest(request, verb);", false);
        row("services/http.cpp", "network->get(request);", true);
        row("ui/a.cpp", "http::get(m_network, request, exchange);", true);
        row("ui/a.cpp", "Settings::get().authToken();", true);
        row("ui/a.cpp", "owner.get();", true);
        row("services/a.cpp", "connect(reply, &QNetworkReply::finished, this, handler);", false);
        row("services/a.h", "class QNetworkReply;", false);
        row("services/reply_taker.cpp", "m_reply->deleteLater(); // a QNetworkReply", true);
        row("services/a.cpp", "// What a QNetworkReply would do.", true);
        row("services/a.cpp", "QTcpSocket socket;", false);
        row("versions/a.cpp", "QCryptographicHash hash(QCryptographicHash::Sha256);", false);
        row("services/a.cpp", "EVP_DigestUpdate(context, data, size);", false);
        row("services/sha256.cpp", "EVP_DigestUpdate(context, data, size);", true);
        row("tests/a.cpp", "QNetworkReply* reply = network.get(request);", true);
        row("backend/a.cpp", "QTcpSocket socket;", true);
    }

    void finds()
    {
        QFETCH(QString, file);
        QFETCH(QByteArray, line);
        QFETCH(bool, allowed);
        const QTemporaryDir home;
        writeFile(home.filePath(file), QByteArray("\n" + line + "\n"));
        const auto [exitCode, output] = run(home.path(), {file});
        QCOMPARE(exitCode, allowed ? 0 : 1);
        QCOMPARE(output.startsWith(QByteArray(file.toUtf8() + ":2: ")), !allowed);
    }

    void isKept()
    {
        const QDir root(QStringLiteral(PROJECT_ROOT));
        QStringList sources;
        for (const char* folder : {"app", "profiles", "services", "versions", "preview", "ui"}) {
            QDirIterator files(root.filePath(QString::fromLatin1(folder)),
                               {QStringLiteral("*.cpp"), QStringLiteral("*.h")}, QDir::Files);
            while (files.hasNext())
                sources << root.relativeFilePath(files.next());
        }
        QVERIFY(sources.contains(QStringLiteral("services/http.cpp")));
        const auto [exitCode, output] = run(root.path(), sources);
        QCOMPARE(output, QByteArray());
        QCOMPARE(exitCode, 0);
    }

private:
    static std::pair<int, QByteArray> run(const QString& directory, const QStringList& files)
    {
        QProcess process;
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setWorkingDirectory(directory);
        process.start(QStringLiteral(RULES_SCRIPT), files);
        const bool finished = process.waitForFinished();
        return {finished ? process.exitCode() : -1, process.readAll()};
    }
};

QTEST_GUILESS_MAIN(TestRules)
#include "tst_rules.moc"
