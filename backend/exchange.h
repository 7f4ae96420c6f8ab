#pragma once

#include <QByteArray>
#include <QString>

#include <httplib.h>

class Connection;

// What the HTTP library reads and writes while it works on one request: the head that lies ready
// in the connection's input, and an answer that is only collected here. It never waits.
class Exchange : public httplib::Stream
{
public:
    explicit Exchange(const Connection& connection) : m_connection(connection) {}

    bool is_readable() const override { return true; }
    bool is_writable() const override { return true; }
    ssize_t read(char* data, size_t size) override;
    ssize_t write(const char* data, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override;

    const Connection& connection() const { return m_connection; }
    const QByteArray& answer() const { return m_answer; }

    // Found out while the request is worked on.
    QString client; // its address, behind a trusted proxy
    QByteArray range;
    bool expectsContinue = false;
    bool isUnderstood = false; // the head made sense to the library
    bool needsBody = false;
    bool closes = false;
    qint64 bodyBytes = 0;
    int fileHandle = -1;
    qint64 fileOffset = 0;
    qint64 contentLength = -1; // -1: no such header
    int status = 0;

private:
    const Connection& m_connection;
    qsizetype m_read = 0;
    QByteArray m_answer;
};
