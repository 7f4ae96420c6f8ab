#include "backend/message/head.h"

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>

#include <algorithm>
#include <limits>

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

// Whether a line ends otherwise than in CRLF, or goes on in the next one.
bool isAmbiguous(char one, char next)
{
    return next == '\n' ? one != '\r' : one == '\n' && (next == ' ' || next == '\t');
}

int faultOf(const beast::request<beast::empty_body>& read, boost::system::error_code error)
{
    if (std::distance(read.begin(), read.end()) > fieldLimit)
        return 431;
    // Also together with a length, which the parser turns away by itself.
    if (read.count(field::transfer_encoding) > 0 || error == beast::error::bad_transfer_encoding)
        return 411;
    if (error == beast::error::body_limit)
        return 413;
    // The parser also takes a list of lengths.
    if (error || read.count(field::content_length) > 1 ||
        read[field::content_length].find(',') != boost::beast::string_view::npos ||
        read.count(field::host) > 1 || (read.version() >= 11 && read.count(field::host) == 0))
        return 400;
    if (read.target().size() > targetLimit)
        return 414;
    // The parser hands over the first of several alone.
    const auto expectations = read.count(field::expect);
    const bool knows =
        expectations == 1 && boost::beast::iequals(read[field::expect], "100-continue");
    return expectations == 0 || knows ? 0 : 417;
}

} // namespace

std::optional<int> server::takeHead(std::string& input, Request& request)
{
    const size_t end = input.find("\r\n\r\n");
    const std::string_view lines = std::string_view(input).substr(0, end);
    if (std::ranges::adjacent_find(lines, isAmbiguous) != lines.end())
        return 400;
    if (lines.size() + 4 > headLimit)
        return 431;
    if (end == input.npos)
        return {};
    beast::request_parser<beast::empty_body> parser;
    parser.header_limit(headLimit);
    parser.body_limit(std::numeric_limits<qint64>::max());
    boost::system::error_code error;
    request.timer.start();
    parser.put(boost::asio::buffer(input.data(), end + 4), error);
    const auto& read = parser.get();
    request.method = bytesOf(read.method_string());
    request.path = pathOf(bytesOf(read.target()));
    if (const int fault = faultOf(read, error))
        return fault;
    for (const auto& one : read)
        request.fields[bytesOf(one.name_string()).toLower()].append(bytesOf(one.value()));
    request.bodyBytes = static_cast<qint64>(parser.content_length().value_or(0));
    request.keepsAlive = parser.keep_alive();
    request.expectsLeave = read.version() >= 11 && read.count(field::expect) > 0;
    input.erase(0, end + 4);
    return 0;
}
