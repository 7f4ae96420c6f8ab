#include "backend/api/http_application.h"

using namespace Qt::StringLiterals;

// A request between its judgement and its answer.
struct HttpApplication::Job
{
    Call call;
    Router::Match match;
    BodyBudget::Share share;

    Outcome<Reply> run() const { return match.route->handler(call, match.parameter); }
};

namespace {

Call callOf(const server::Request& request)
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

void HttpApplication::judge(const server::RequestPtr& request, const server::AnswerPtr& answer)
{
    const auto job = std::make_shared<Job>();
    job->call = callOf(*request);
    if (!request->field("Content-Encoding").isEmpty())
        return give(*answer, *job, Refusal{415, u"The body must not be compressed."_s});
    const auto match = m_router.find(job->call);
    if (!match)
        return give(*answer, *job, match.refusal());
    job->match = *match;
    if (!job->match.route->needsSession)
        return admit(job, request, answer);
    m_reading.run(answer, [this, job, request, answer] {
        if (const auto refusal = m_router.authenticate(job->call))
            return give(*answer, *job, *refusal);
        admit(job, request, answer);
    });
}

// Of a call whose session is known, where one is needed.
void HttpApplication::admit(const std::shared_ptr<Job>& job, const server::RequestPtr& request,
                            const server::AnswerPtr& answer)
{
    const Route& route = *job->match.route;
    if (const auto refusal = Router::refusalOfBody(route, job->call))
        return give(*answer, *job, *refusal);
    if (job->call.bodyBytes > 0) {
        job->share = m_bodies.take(job->call.account.uuid, job->call.bodyBytes);
        if (!job->share)
            return answer->give(server::failure(503));
        request->context = job;
        return answer->give({});
    }
    // Where the session was looked up, that may be on this very thread.
    if (route.needsSession && route.work == Work::Reading)
        return give(*answer, *job, job->run());
    work(job, answer);
}

void HttpApplication::answer(const server::RequestPtr& request, const server::AnswerPtr& answer)
{
    const auto job = std::static_pointer_cast<Job>(request->context);
    job->call.body = std::move(request->body);
    work(job, answer);
}

void HttpApplication::work(const std::shared_ptr<Job>& job, const server::AnswerPtr& answer)
{
    laneOf(job->match.route->work).run(answer, [this, job, answer] {
        give(*answer, *job, job->run());
    });
}

// Where every refusal becomes a reply.
void HttpApplication::give(server::Answer& answer, const Job& job,
                           const Outcome<Reply>& outcome) const
{
    if (outcome)
        return answer.give(*outcome);
    Reply reply = reply::refused(outcome.refusal());
    if (reply.status == 405)
        reply.headers.emplaceBack("Allow", m_router.methodsAt(job.call.path));
    answer.give(std::move(reply));
}
