#include "tests/hostile/answers.h"

#include "tests/support/gzip.h"

using Framing = HttpAnswer::Framing;

namespace {

constexpr qint64 giga = 1024LL * 1024 * 1024;

HttpAnswer withStatus(int status, const QByteArray& body)
{
    HttpAnswer answer = HttpAnswer::ok(body);
    answer.status = status;
    return answer;
}

HttpAnswer framed(HttpAnswer answer, Framing framing)
{
    answer.framing = framing;
    return answer;
}

HttpAnswer cut(HttpAnswer answer, qint64 after)
{
    answer.cutAfter = after;
    return answer;
}

HttpAnswer announcing(HttpAnswer answer, qint64 length)
{
    answer.announcedLength = length;
    return answer;
}

HttpAnswer packed(const QByteArray& content, const QByteArray& encoding = "gzip")
{
    return HttpAnswer::ok(gzip(content)).addHeader("Content-Encoding", encoding);
}

HttpAnswer raw(const QByteArray& bytes)
{
    HttpAnswer answer;
    answer.raw = bytes;
    return answer;
}

// 64 MB of blanks.
HttpAnswer bomb()
{
    static const QByteArray bytes = gzip(QByteArray(64'000'000, ' '));
    return HttpAnswer::ok(bytes).addHeader("Content-Encoding", "gzip");
}

QByteArray manyHeaders()
{
    QByteArray head;
    for (int i = 0; i < 50'000; ++i)
        head += "X-Filler-" + QByteArray::number(i) + ": " + QByteArray(100, 'x') + "\r\n";
    return head;
}

} // namespace

namespace hostile {

QList<Answer> answers(const QByteArray& honest, const QString& elsewhere, bool endless)
{
    using enum Verdict;
    const qint64 half = honest.size() / 2;
    const HttpAnswer plain = HttpAnswer::ok(honest);
    const QByteArray zipped = gzip(honest);
    const QByteArray length = QByteArray::number(honest.size());
    const QByteArray head = "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + length;
    QList<Answer> all{
        {"honest", plain, Whole},
        {"chunked", framed(plain, Framing::Chunked), Whole},
        {"until the connection closes", framed(plain, Framing::UntilClose), Whole},
        {"the whole as a range",
         withStatus(206, honest)
             .addHeader("Content-Range",
                        "bytes 0-" + QByteArray::number(honest.size() - 1) + '/' + length),
         Whole},
        {"after interim answers",
         raw(QByteArray("HTTP/1.1 100 Continue\r\n\r\n").repeated(2'000) + head + "\r\n\r\n" +
             honest),
         Either},
        {"many headers", raw(head + "\r\n" + manyHeaders() + "\r\n" + honest), Either},
        {"one header of 5 MB",
         raw(head + "\r\nX-Long: " + QByteArray(5'000'000, 'x') + "\r\n\r\n" + honest), Either},
        {"cut", cut(plain, half), Fails},
        {"cut at once", cut(plain, 0), Fails},
        {"announces more", announcing(plain, honest.size() + 1), Fails},
        {"announces less than nothing", announcing(plain, -5), Fails},
        {"announces words",
         framed(HttpAnswer(plain).addHeader("Content-Length", "ten"), Framing::UntilClose), Fails},
        {"announces more than any limit", announcing(plain, 2 * giga), Fails},
        {"chunked, cut", cut(framed(plain, Framing::Chunked), half), Either},
        {"a chunk that never comes", framed(plain, Framing::BadChunkSize), Either},
        {"half a range", withStatus(206, honest).addHeader("Content-Range", "bytes 0-9/1000000"),
         Fails},
        {"compressed", packed(honest), CompressedWhole},
        {"compressed, chunked", framed(packed(honest), Framing::Chunked), CompressedWhole},
        {"compressed, cut", cut(packed(honest), zipped.size() / 2), CompressedCut},
        {"compressed, half a file",
         HttpAnswer::ok(zipped.left(zipped.size() / 2)).addHeader("Content-Encoding", "gzip"),
         CompressedCut},
        {"compressed, chunked, cut",
         cut(framed(packed(honest), Framing::Chunked), zipped.size() / 2), CompressedCut},
        {"not compressed as it says", HttpAnswer::ok(honest).addHeader("Content-Encoding", "gzip"),
         CompressedCut},
        {"compressed as nobody can", packed(honest, "br"), Fails},
        {"a bomb", bomb(), Fails},
        {"a chunked bomb", framed(bomb(), Framing::Chunked), Fails},
        {"not modified", withStatus(304, {}), Fails},
        {"multiple choices", withStatus(300, honest), Fails},
        {"switching protocols", raw("HTTP/1.1 101 Switching\r\nUpgrade: x\r\n\r\n" + honest),
         Fails},
        {"an error page", HttpAnswer::htmlError(500), Fails},
        {"an error of a megabyte",
         HttpAnswer::json("{\"error\":\"" + QByteArray(900'000, 'x') + "\"}", 400), Fails},
        {"status 999", withStatus(999, honest), Fails},
        {"redirect to nowhere", withStatus(302, honest), Fails},
        {"redirect to a file", HttpAnswer::redirect(QStringLiteral("file:///etc/passwd")), Fails},
        {"redirect without end", HttpAnswer::redirect(QStringLiteral("?")), Fails},
        {"redirect elsewhere", HttpAnswer::redirect(elsewhere, 307), Either},
        {"no HTTP", raw("SSH-2.0-server\r\n"), Fails},
        {"nothing", raw({}), Fails},
        {"half a head", raw("HTTP/1.1 200 OK\r\nContent-Le"), Fails},
        {"silence", HttpAnswer::silence(), Silent},
    };
    HttpAnswer stalls = plain;
    stalls.stallAfter = half;
    all.append({"half, then silence", stalls, Silent});
    HttpAnswer drips = announcing(stalls, giga / 2048);
    drips.trickles = true;
    all.append({"drips", drips, Silent});
    if (endless) {
        HttpAnswer flood = framed(HttpAnswer::ok(QByteArray(64 * 1024, ' ')), Framing::UntilClose);
        flood.endless = true;
        all.append({"endless", flood, Fails});
    }
    return all;
}

} // namespace hostile
