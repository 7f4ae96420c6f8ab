#include "tests/fuzz/engine_witness.h"

#include <QFile>
#include <QTemporaryFile>

#include <memory>
#include <new>
#include <stdexcept>

using fuzz::require;

namespace {

constexpr qint64 bodyLimit = 64 * 1024;
// What may lie before the engine unread: a head that is not refused yet, and one read more.
constexpr qsizetype readAhead = 16 * 1024 + 4096;

const QByteArray leave = "HTTP/1.1 100 Continue\r\n\r\n";

const QByteArray& fileContent()
{
    static const QByteArray content = QByteArray("0123456789abcdef").repeated(10'000);
    return content;
}

std::shared_ptr<QFile> file()
{
    static const std::shared_ptr<QTemporaryFile> made = [] {
        auto temporary = std::make_shared<QTemporaryFile>();
        require(temporary->open() && temporary->write(fileContent()) > 0 && temporary->flush());
        return temporary;
    }();
    return made;
}

QByteArrayList trimmed(const QByteArray& list)
{
    QByteArrayList parts;
    for (const QByteArray& part : list.split(','))
        parts.append(part.trimmed().toLower());
    return parts;
}

server::Reply replyTo(const server::Request& request)
{
    server::Reply reply{.contentType = "text/plain", .body = request.body};
    const QByteArray& path = request.path;
    if (path == "/same")
        reply.status = 304;
    if (path == "/large")
        reply.body = QByteArray(100'000, 'x');
    if (path.startsWith("/file") || path == "/short") {
        const qint64 size = fileContent().size();
        reply.body.clear();
        reply.file = file();
        reply.offset = 1000 * path.size() % size;
        reply.fileBytes = path == "/short" ? size : (size - reply.offset) / path.size();
    }
    return reply;
}

} // namespace

EngineWitness::EngineWitness(EngineWire& wire, bool isImpatient)
    : m_wire(wire), m_isImpatient(isImpatient)
{
    m_wire.readLimit = [this] { return m_isRefused ? 0 : m_head + readAhead; };
}

// The head that the engine took for this request, looked at by other means.
void EngineWitness::compare(const server::Request& request, const QByteArray& head)
{
    require(head.size() + 4 <= 16 * 1024 && !head.contains('\0'));
    QByteArrayList lines;
    for (qsizetype at = 0, end = 0; at <= head.size(); at = end + 2) {
        end = head.indexOf("\r\n", at) < 0 ? head.size() : head.indexOf("\r\n", at);
        lines.append(head.mid(at, end - at));
        require(!lines.last().contains('\r') && !lines.last().contains('\n'));
    }
    const QByteArrayList first = lines.takeFirst().split(' ');
    require(first.size() == 3 && first[0] == request.method && first[1].size() <= 8 * 1024);
    require(first[2] == "HTTP/1.1" || first[2] == "HTTP/1.0");
    if (first[1].startsWith('/') && !first[1].contains('%'))
        require(request.path == first[1].split('?').first());
    require(lines.size() <= 100);
    QHash<QByteArray, QByteArrayList> fields;
    for (const QByteArray& line : std::as_const(lines)) {
        const qsizetype colon = line.indexOf(':');
        const QByteArray name = line.left(colon);
        require(colon > 0 && !name.contains(' ') && !name.contains('\t'));
        fields[name.toLower()].append(line.mid(colon + 1).trimmed());
    }
    for (auto one = fields.cbegin(); one != fields.cend(); ++one)
        require(request.field(one.key().constData()) == one.value().join(','));
    const bool isNew = first[2] == "HTTP/1.1";
    require(!fields.contains("transfer-encoding"));
    require(fields["host"].size() == 1 || (!isNew && fields["host"].isEmpty()));
    const QByteArray length = fields["content-length"].join(',');
    require(QByteArray::number(request.bodyBytes).rightJustified(length.size(), '0') ==
            (fields["content-length"].isEmpty() ? QByteArray("0") : length));
    const QByteArray expectation = fields["expect"].join(',').toLower();
    require(expectation.isEmpty() || expectation == "100-continue");
    Expected& expected = m_expected.last();
    expected.isHead = request.method == "HEAD";
    expected.mayAskForBody = isNew && !expectation.isEmpty() && request.bodyBytes > 0;
    expected.mustClose = isNew && trimmed(fields["connection"].join(',')).contains("close");
}

void EngineWitness::judge(const server::RequestPtr& request, const server::AnswerPtr& answer)
{
    require(m_expected.isEmpty() || !m_expected.last().statuses.isEmpty());
    m_expected.append(Expected());
    const qsizetype end = m_wire.input.indexOf("\r\n\r\n", m_head);
    require(end >= 0 && end + 4 <= m_wire.arrived);
    compare(*request, m_wire.input.mid(m_head, end - m_head));
    m_head = end + 4;
    const bool isThrown = request->path == "/judge/thrown";
    const bool isRefused = request->path == "/refused" || request->bodyBytes > bodyLimit;
    const bool isHere = m_wire.arrived - m_head >= request->bodyBytes;
    m_isRefused = isThrown || (isRefused && !isHere);
    m_expected.last().mustClose |= m_isRefused;
    if (!m_isRefused)
        m_head += request->bodyBytes;
    if (isRefused)
        return give(*request, answer, {.status = 403, .body = "no"});
    if (isThrown)
        fail(500);
    answer->give({});
}

void EngineWitness::answer(const server::RequestPtr& request, const server::AnswerPtr& answer)
{
    require(m_expected.last().statuses.isEmpty());
    require(request->body == m_wire.input.mid(m_head - request->bodyBytes, request->bodyBytes));
    if (request->path == "/memory")
        fail(503);
    if (request->path == "/thrown")
        fail(500);
    if (request->path == "/never" && m_isImpatient)
        m_expected.last().statuses = {503};
    else if (request->path == "/nothing")
        m_expected.last().statuses = {500};
    else
        return give(*request, answer, replyTo(*request));
    if (request->path == "/nothing")
        answer->give({});
}

void EngineWitness::fail(int status)
{
    m_expected.last().statuses = {status};
    m_expected.last().mustClose = true;
    if (status == 503)
        throw std::bad_alloc();
    throw std::runtime_error("secret");
}

void EngineWitness::give(const server::Request& request, const server::AnswerPtr& answer,
                         server::Reply reply)
{
    Expected& expected = m_expected.last();
    reply.headers.emplaceBack("X-Number", QByteArray::number(m_expected.size()));
    expected.reply = reply;
    expected.statuses = {reply.status};
    if (request.path != "/late")
        return answer->give(std::move(reply));
    if (m_isImpatient)
        expected.statuses.append(503);
    boost::asio::post(m_wire.context, [answer, reply] { answer->give(reply); });
}

void EngineWitness::judgeAnswers() const
{
    const QByteArray& output = m_wire.output;
    const bool mayBeCut = m_wire.outputLimit >= 0 || m_wire.isClosed;
    Seen seen;
    for (qsizetype i = 0; i < m_expected.size(); ++i) {
        const Expected& expected = m_expected[i];
        require(!seen.isLast);
        if (expected.mayAskForBody && output.mid(seen.end).startsWith(leave))
            seen.end += leave.size();
        if (expected.statuses.isEmpty()) {
            // Its body never came, and nothing after it.
            require(i + 1 == m_expected.size());
            require(seen.end == output.size() ||
                    (mayBeCut && leave.startsWith(output.mid(seen.end))));
            return;
        }
        seen = judgeAnswer(&expected, i + 1, seen.end);
        if (seen.isCut)
            return require(mayBeCut || (expected.reply.file && i + 1 == m_expected.size()));
    }
    // What is wrong with a head is told once, and ends the matter.
    if (seen.end < output.size()) {
        require(!seen.isLast);
        seen = judgeAnswer(nullptr, 0, seen.end);
        require(seen.isCut ? mayBeCut : seen.isLast);
    }
    require(seen.isCut || seen.end == output.size());
}

EngineWitness::Seen EngineWitness::judgeAnswer(const Expected* expected, qsizetype number,
                                               qsizetype at) const
{
    const QByteArray& output = m_wire.output;
    const qsizetype end = output.indexOf("\r\n\r\n", at);
    if (end < 0)
        return {.isCut = true};
    QByteArrayList lines;
    for (const QByteArray& line : output.mid(at, end - at).split('\n'))
        lines.append(line.endsWith('\r') ? line.chopped(1) : line);
    const QByteArray first = lines.takeFirst();
    const int status = first.mid(9, 3).toInt();
    require(first.startsWith("HTTP/1.1 ") && first.size() > 13 && first[12] == ' ');
    QHash<QByteArray, QByteArray> fields;
    for (const QByteArray& line : std::as_const(lines)) {
        const qsizetype colon = line.indexOf(": ");
        require(colon > 0 && !fields.contains(line.left(colon)) && !line.contains('\r'));
        fields[line.left(colon)] = line.mid(colon + 2);
    }
    require(fields["Date"].size() == 29 && fields["Date"].endsWith(" GMT"));
    require(fields["X-Of-All"] == "yes");
    const bool isLast = fields["Connection"] == "close";
    require(isLast || fields["Connection"] == "keep-alive");
    require(isLast || !expected || !expected->mustClose);
    bool isSized = false;
    const qsizetype size = fields["Content-Length"].toLongLong(&isSized);
    require(isSized ? size >= 0 : status == 304);

    const bool isOwn = fields.contains("X-Number");
    if (expected) {
        require(expected->statuses.contains(status));
        require(!isOwn || fields["X-Number"].toLongLong() == number);
        require(isOwn == (status == expected->reply.status && !expected->reply.headers.isEmpty()));
    } else {
        require(QList<int>({400, 411, 413, 414, 417, 431}).contains(status) && !isOwn);
    }
    // A refused head may be one of HEAD.
    const bool isBare = status == 304 || (expected ? expected->isHead : end + 4 == output.size());
    const QByteArray body = output.mid(end + 4, isBare ? 0 : size);
    if (isOwn && !isBare) {
        const server::Reply& reply = expected->reply;
        const QByteArray whole =
            reply.file ? fileContent().mid(reply.offset, reply.fileBytes) : reply.body;
        require(size == (reply.file ? reply.fileBytes : reply.body.size()));
        require(whole.startsWith(body));
    } else if (!isBare) {
        require(QByteArray(R"({"error":")").startsWith(body.left(10)));
    }
    return {.end = end + 4 + body.size(), .isLast = isLast, .isCut = !isBare && body.size() < size};
}
