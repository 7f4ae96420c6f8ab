#pragma once

#include "backend/message/reply.h"
#include "backend/message/request.h"
#include "backend/tls/certificate.h"

#include <QStringList>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

// An HTTP/1.1 server that knows nothing of what it serves.
namespace server {

struct Answer
{
    // Once, from any thread.
    std::function<void(std::optional<Reply>)> give;
    // Nobody waits any more: work that has not begun is in vain.
    std::atomic<bool> abandoned = false;
};
using AnswerPtr = std::shared_ptr<Answer>;

// Called on any of the engine's threads, which must not be kept waiting: what blocks goes
// elsewhere.
class Application
{
public:
    virtual ~Application() = default;
    // May this head have its body? Nothing: yes. A reply ends the matter.
    virtual void judge(const RequestPtr& request, const AnswerPtr& answer) = 0;
    // The answer to the whole request.
    virtual void answer(const RequestPtr& request, const AnswerPtr& answer) = 0;
};

struct Options
{
    QString host = {};
    int port = 0;
    std::shared_ptr<Certificate> certificate = {}; // none: plain HTTP
    QStringList trustedProxies = {};               // their X-Forwarded-For is believed
    QList<Header> headers = {};                    // of every answer
    size_t threads = std::clamp<size_t>(std::thread::hardware_concurrency(), 1, 8);
    size_t connections = 4000;                     // more wait in the kernel's queue
    size_t connectionsOfAddress = 100;             // or IPv6 network; more are closed
    std::chrono::milliseconds body{15'000};        // for every 64 KiB of it
    std::chrono::milliseconds transfer{30'000};    // for every 64 KiB of an answer
    std::chrono::milliseconds application{10'000}; // then the answer is 503
};

// A few threads share all clients: none of these holds one up, and every wait has a deadline.
class Engine
{
public:
    // Listens already. Throws Fault when it cannot.
    static std::unique_ptr<Engine> make(const Options& options);
    virtual ~Engine() = default;

    virtual int port() const = 0;
    // Until stop(), from any thread. The application's threads must end before the engine goes.
    virtual void run(Application& application) = 0;
    virtual void stop() = 0;
};

} // namespace server
