#include "backend/http_application.h"

using namespace Qt::StringLiterals;

// A request between its judgement and its answer.
struct HttpApplication::Job
{
    Call call;
    Router::Match match;
    BodyBudget::Share share;

    Reply run() const { return match.route->handler(call, match.parameter); }
};

namespace {

Call callOf(const http::Request& request)
{
    Call call;
    call.method = request.method == "HEAD" ? QByteArray("GET") : request.method;
    call.path = request.path;
    // A launcher whose server address ends in "/" asks for "//auth/login".
    while (call.path.startsWith("//"))
        call.path.remove(0, 1);
    const QByteArray authorization = request.field("Authorization");
    if (authorization.left(7).toLower() == "bearer ")
        call.token = authorization.mid(7).trimmed();
    call.contentType = request.field("Content-Type").split(';').first().trimmed().toLower();
    call.ifNoneMatch = request.field("If-None-Match");
    call.range = request.field("Range");
    call.ifRange = request.field("If-Range");
    call.bodyBytes = request.bodyBytes;
    call.address = request.address;
    return call;
}

} // namespace

HttpApplication::HttpApplication(const Router& router, BodyBudget::Limits limits)
    : m_router(router), m_bodies(limits)
{
}

Lane& HttpApplication::laneOf(Work work)
{
    switch (work) {
    case Work::Files:
        return m_files;
    case Work::Health:
        return m_health;
    case Work::Reading:
        return m_reading;
    case Work::Writing:
        return m_writing;
    case Work::Login:
        return m_login;
    case Work::Registration:
        return m_registration;
    }
    Q_UNREACHABLE();
}

void HttpApplication::judge(const http::RequestPtr& request, const http::AnswerPtr& answer)
{
    if (!request->field("Content-Encoding").isEmpty())
        return answer->give(reply::refused({415, u"The body must not be compressed."_s}));
    const auto job = std::make_shared<Job>();
    job->call = callOf(*request);
    auto match = m_router.find(job->call);
    if (Reply* refusal = std::get_if<Reply>(&match))
        return answer->give(std::move(*refusal));
    job->match = std::get<Router::Match>(match);
    if (!job->match.route->needsSession)
        return admit(job, request, answer);
    m_reading.run(answer, [this, job, request, answer] {
        if (const auto refusal = m_router.authenticate(job->call))
            return answer->give(reply::refused(*refusal));
        admit(job, request, answer);
    });
}

// Of a call whose session is known, where one is needed.
void HttpApplication::admit(const std::shared_ptr<Job>& job, const http::RequestPtr& request,
                            const http::AnswerPtr& answer)
{
    const Route& route = *job->match.route;
    if (const auto fault = Router::faultOfBody(route, job->call))
        return answer->give(reply::refused(*fault));
    if (job->call.bodyBytes > 0) {
        job->share = m_bodies.take(job->call.account.uuid, job->call.bodyBytes);
        if (!job->share)
            return answer->give(http::failure(503));
        request->context = job;
        return answer->give({});
    }
    // Where the session was looked up, that may be on this very thread.
    if (route.needsSession && route.work == Work::Reading)
        return answer->give(job->run());
    laneOf(route.work).run(answer, [job, answer] { answer->give(job->run()); });
}

void HttpApplication::answer(const http::RequestPtr& request, const http::AnswerPtr& answer)
{
    const auto job = std::static_pointer_cast<Job>(request->context);
    job->call.body = std::move(request->body);
    laneOf(job->match.route->work).run(answer, [job, answer] { answer->give(job->run()); });
}
