#include "backend/http/head.h"

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>

#include <algorithm>

namespace http {

namespace {

namespace beast = boost::beast::http;
using beast::field;

constexpr size_t headLimit = 16 * 1024;
constexpr size_t targetLimit = 8 * 1024;
constexpr int fieldLimit = 100;

QByteArray bytesOf(boost::beast::string_view text)
{
    return {text.data(), static_cast<qsizetype>(text.size())};
}

// The path of "/path?query" and of "http://host/path?query".
QByteArray pathOf(QByteArray target)
{
    const qsizetype authority = target.indexOf("://") + 3;
    if (authority > 2 && target.left(4).toLower() == "http")
        target = target.mid(std::max(target.indexOf('/', authority), authority));
    return QByteArray::fromPercentEncoding(target.split('?').first());
}

int faultOf(const beast::request<beast::empty_body>& read, boost::system::error_code error)
{
    if (std::distance(read.begin(), read.end()) > fieldLimit)
        return 431;
    // Also together with a length, which the parser turns away by itself.
    if (read.count(field::transfer_encoding) > 0 || error == beast::error::bad_transfer_encoding)
        return 411;
    if (error || read.count(field::content_length) > 1 || read.count(field::host) > 1 ||
        (read.version() >= 11 && read.count(field::host) == 0))
        return 400;
    if (read.target().size() > targetLimit)
        return 414;
    const bool knows = boost::beast::iequals(read[field::expect], "100-continue");
    return read.count(field::expect) > 0 && !knows ? 417 : 0;
}

} // namespace

qsizetype headBytes(std::string_view input)
{
    const size_t end = input.find("\r\n\r\n");
    const std::string_view head = input.substr(0, end);
    for (size_t at = head.find('\n'); at != head.npos; at = head.find('\n', at + 1)) {
        const char next = at + 1 < head.size() ? head[at + 1] : '\0';
        if (at == 0 || head[at - 1] != '\r' || next == ' ' || next == '\t')
            return -400;
    }
    if (head.size() + 4 > headLimit)
        return -431;
    return end == input.npos ? 0 : static_cast<qsizetype>(end + 4);
}

int parseHead(std::string_view input, Request& request, Head& head)
{
    request.timer.start();
    const qsizetype size = headBytes(input);
    if (size < 0)
        return static_cast<int>(-size);
    head.bytes = static_cast<size_t>(size);
    beast::request_parser<beast::empty_body> parser;
    parser.header_limit(headLimit);
    parser.body_limit(boost::none);
    boost::system::error_code error;
    parser.put(boost::asio::buffer(input.data(), head.bytes), error);
    const auto& read = parser.get();
    request.method = bytesOf(read.method_string());
    request.path = pathOf(bytesOf(read.target()));
    if (const int fault = faultOf(read, error))
        return fault;
    for (const auto& one : read)
        request.fields.emplaceBack(bytesOf(one.name_string()), bytesOf(one.value()));
    request.bodyBytes = static_cast<qint64>(parser.content_length().value_or(0));
    head.keepsAlive = parser.keep_alive();
    head.expectsLeave = read.version() >= 11 && read.count(field::expect) > 0;
    return 0;
}

QByteArray Request::field(const char* name) const
{
    QByteArrayList values;
    for (const auto& [key, value] : fields) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            values.append(value);
    }
    return values.join(',');
}

} // namespace http
