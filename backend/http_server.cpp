#include "backend/http_server.h"

#include "backend/outcome.h"
#include "backend/router.h"

#include <httplib.h>

#include <QFile>

using namespace Qt::StringLiterals;

namespace {

constexpr size_t workerThreads = 16;

QByteArray headerOf(const httplib::Request& request, const char* name)
{
    return QByteArray::fromStdString(request.get_header_value(name));
}

Call callOf(const httplib::Request& request)
{
    Call call;
    call.method =
        request.method == "HEAD" ? QByteArray("GET") : QByteArray::fromStdString(request.method);
    call.path = QByteArray::fromStdString(request.path);
    // A launcher whose server address ends in "/" asks for "//auth/login".
    while (call.path.startsWith("//"))
        call.path.remove(0, 1);
    const QByteArray authorization = headerOf(request, "Authorization");
    if (authorization.left(7).toLower() == "bearer ")
        call.token = authorization.mid(7).trimmed();
    call.contentType = headerOf(request, "Content-Type").split(';').first().trimmed().toLower();
    call.ifNoneMatch = headerOf(request, "If-None-Match");
    call.bodyBytes = headerOf(request, "Content-Length").toLongLong();
    call.address = QString::fromStdString(request.remote_addr);
    return call;
}

void streamFile(const QString& path, const QByteArray& contentType, httplib::Response& response)
{
    auto file = std::make_shared<QFile>(path);
    if (!file->open(QIODevice::ReadOnly))
        throw Fault(u"cannot read %1: %2"_s.arg(path, file->errorString()));
    response.set_content_provider(
        static_cast<size_t>(file->size()), contentType.toStdString(),
        [file](size_t offset, size_t length, httplib::DataSink& sink) {
            file->seek(static_cast<qint64>(offset));
            const QByteArray block =
                file->read(std::min<qint64>(static_cast<qint64>(length), 65536));
            return !block.isEmpty() &&
                   sink.write(block.constData(), static_cast<size_t>(block.size()));
        });
}

void put(const Reply& reply, httplib::Response& response)
{
    response.status = reply.status;
    for (const auto& [name, value] : reply.headers)
        response.set_header(name.toStdString(), value.toStdString());
    if (!reply.file.isEmpty())
        streamFile(reply.file, reply.contentType, response);
    else if (!reply.body.isEmpty())
        response.set_content(reply.body.toStdString(), reply.contentType.toStdString());
}

bool readBody(const httplib::ContentReader& reader, Call& call, qint64 limit)
{
    return reader([&call, limit](const char* data, size_t size) {
        call.body.append(data, static_cast<qsizetype>(size));
        return call.body.size() <= limit;
    });
}

Reply answer(const Router& router, Call& call, const httplib::ContentReader* reader)
{
    const auto match = router.match(call);
    if (const Reply* refusal = std::get_if<Reply>(&match))
        return *refusal;
    const auto& found = std::get<Router::Match>(match);
    if (reader && call.bodyBytes > 0 && !readBody(*reader, call, found.route->bodyLimit))
        return reply::refused({400, u"The body did not arrive whole."_s});
    return Router::answer(found, call);
}

} // namespace

HttpServer::HttpServer(const Router& router)
    : m_router(router), m_server(std::make_unique<httplib::Server>())
{
    m_server->new_task_queue = [] { return new httplib::ThreadPool(workerThreads); };
    // One request per connection: a body that was turned away unread must not be taken for the
    // next request.
    m_server->set_keep_alive_max_count(1);
    // No SO_REUSEPORT, which would let a second server share the port in silence.
    m_server->set_socket_options([](socket_t socket) {
        const int yes = 1;
        setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    m_server->set_pre_routing_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
            Call call = callOf(request);
            if (call.method == "POST" && !request.has_header("Transfer-Encoding") &&
                !request.has_header("Content-Encoding"))
                return httplib::Server::HandlerResponse::Unhandled;
            put(request.method == "POST"
                    ? reply::refused({411, u"The body must come plain and with its length."_s})
                    : answer(m_router, call, nullptr),
                response);
            return httplib::Server::HandlerResponse::Handled;
        });
    m_server->Post("[^]*", [this](const httplib::Request& request, httplib::Response& response,
                                  const httplib::ContentReader& reader) {
        Call call = callOf(request);
        put(answer(m_router, call, &reader), response);
    });
    m_server->set_exception_handler(
        [](const httplib::Request&, httplib::Response& response, const std::exception_ptr&) {
            put(reply::refused({500, u"The server had a problem. Try again later."_s}), response);
        });
}

HttpServer::~HttpServer() = default;

int HttpServer::bind(const QString& host, int port)
{
    const std::string address = host.toStdString();
    const bool bound = port == 0 ? (port = m_server->bind_to_any_port(address)) > 0
                                 : m_server->bind_to_port(address, port);
    if (!bound)
        throw Fault(u"cannot listen on %1:%2: the port is in use or the address is not of this "
                    "machine"_s.arg(host)
                        .arg(port));
    return port;
}

void HttpServer::run()
{
    m_server->listen_after_bind();
}

void HttpServer::stop()
{
    m_server->stop();
}
