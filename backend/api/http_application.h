#pragma once

#include "backend/api/body_budget.h"
#include "backend/api/lane.h"
#include "backend/api/router.h"
#include "backend/http/engine.h"

// What the engine serves: the router's operations, each on the lane of its kind of work. Requests
// that need neither database nor lock nor hash are never behind those that do.
class HttpApplication : public server::Application
{
public:
    HttpApplication(const Router& router, BodyBudget::Limits limits);

    void judge(const server::RequestPtr& request, const server::AnswerPtr& answer) override;
    void answer(const server::RequestPtr& request, const server::AnswerPtr& answer) override;

private:
    struct Job;

    void admit(const std::shared_ptr<Job>& job, const server::RequestPtr& request,
               const server::AnswerPtr& answer);
    void work(const std::shared_ptr<Job>& job, const server::AnswerPtr& answer);
    void give(server::Answer& answer, const Job& job, const Outcome<Reply>& outcome) const;
    Lane& laneOf(Work work);

    const Router& m_router;
    BodyBudget m_bodies;
    Lane m_files{2, 500};
    Lane m_health{1, 100};
    Lane m_reading{6, 500};
    Lane m_writing{4, 100};
    // Two hashes at a time, of which logins are never without one.
    Lane m_login{2, 10};
    Lane m_registration{1, 10};
};
