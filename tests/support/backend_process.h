#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// The real tessellan-backend on a free loopback port, with a data directory that vanishes with the
// object. It is stopped by SIGTERM when the object goes.
class BackendProcess
{
public:
    BackendProcess() = default;
    ~BackendProcess();
    Q_DISABLE_COPY_MOVE(BackendProcess)

    // False when it did not listen within ten seconds; output() says why.
    bool start(const QStringList& moreOptions = {});
    // Asks it to end and waits; its exit code, -1 when it had to be killed or crashed.
    int stop();
    void kill();

    // "http://127.0.0.1:PORT"
    QString origin() const { return m_origin; }
    quint16 port() const;
    QString data() const { return m_data.path(); }
    qint64 processId() const { return m_process.processId(); }
    // All that it has printed so far, both streams.
    QByteArray output();

    struct Run
    {
        int exitCode = -1;
        QByteArray output;
        QByteArray errors;
    };
    // Runs another command on the same data directory (--data is added).
    Run command(const QStringList& words, const QByteArray& input = {}) const;
    // Where its database is: the path of an SQLite file, or a postgresql:// address.
    QString databaseLocation() const;
    // Changes the database behind the program's back.
    bool runSql(const QString& sql) const;

    // Whether TESSELLAN_TEST_POSTGRES names a PostgreSQL server ("postgresql://USER@HOST:PORT"):
    // each object then makes a database of its own there instead of using SQLite.
    static bool isOnPostgres();
    static QString program();
    // The options that say where its data are.
    QStringList location() const;
    // Runs the program as it is.
    static Run runProgram(const QStringList& words, const QByteArray& input = {});

private:
    QString databaseUrl() const;

    QTemporaryDir m_data;
    mutable QString m_databaseName;
    QProcess m_process;
    QString m_origin;
    QByteArray m_output;
};

// One blocking HTTP exchange with nothing in between: exactly the given bytes on a fresh
// connection, exactly what came back.
struct RawReply
{
    int status = 0;
    QHash<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
    QByteArray whole;
    bool closed = false; // the server closed the connection

    QJsonObject json() const;
    QString error() const;
};

namespace raw_http {

// Sends `bytes` and reads until the reply is complete (by its Content-Length) or the server closes.
RawReply send(quint16 port, const QByteArray& bytes, int timeoutMs = 15000);

using Headers = QList<std::pair<QByteArray, QByteArray>>;

RawReply get(quint16 port, const QByteArray& path, const Headers& headers = {});
RawReply post(quint16 port, const QByteArray& path, const QByteArray& contentType,
              const QByteArray& body, const Headers& headers = {});
// POST of a JSON object.
RawReply postJson(quint16 port, const QByteArray& path, const QJsonObject& object,
                  const QByteArray& token = {});
std::pair<QByteArray, QByteArray> bearer(const QByteArray& token);

} // namespace raw_http
