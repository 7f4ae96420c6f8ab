#pragma once

#include "backend/http/engine.h"
#include "tests/fuzz/engine_wire.h"

#include <QList>

// The application behind a fuzzed connection: it compares what it is asked with the bytes that
// arrived, answers in the ways that the path names, and judges the answers in the end. One thread.
class EngineWitness : public server::Application
{
public:
    // Impatient: nobody waits for an answer that is not given at once.
    EngineWitness(EngineWire& wire, bool isImpatient);

    void judge(const server::RequestPtr& request, const server::AnswerPtr& answer) override;
    void answer(const server::RequestPtr& request, const server::AnswerPtr& answer) override;
    // Of the connection that has ended: each answer is well-formed, none is missing, none is twice.
    void judgeAnswers() const;

private:
    // What must come back for one request.
    struct Expected
    {
        QList<int> statuses;
        server::Reply reply;
        bool isHead = false;
        bool mayAskForBody = false;
        bool mustClose = false;
    };
    struct Seen
    {
        qsizetype end = 0; // in the output
        bool isLast = false;
        bool isCut = false;
    };
    void compare(const server::Request& request, const QByteArray& head);
    void give(const server::Request& request, const server::AnswerPtr& answer, server::Reply reply);
    [[noreturn]] void fail(int status);
    Seen judgeAnswer(const Expected* expected, qsizetype number, qsizetype at) const;

    EngineWire& m_wire;
    const bool m_isImpatient;
    qsizetype m_head = 0; // where the next one begins in the input
    bool m_isRefused = false;
    QList<Expected> m_expected;
};
