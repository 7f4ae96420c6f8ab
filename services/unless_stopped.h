#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>
#include <type_traits>
#include <utility>

// For a Worker's piece of work that has a long part which cannot be broken off: hands back what
// `work` gives, or nothing as soon as `stop` asks to stop. `work` then goes on by itself, on a
// thread of its own, until it is through or the program has ended; so it may touch nothing but what
// it holds, and not the disk.
template <typename Work>
std::optional<std::invoke_result_t<Work&>> unlessStopped(const std::stop_token& stop, Work work)
{
    struct Shared
    {
        std::mutex mutex; // never waited for by the thread that asks to stop
        std::condition_variable_any finished;
        std::optional<std::invoke_result_t<Work&>> result;
    };
    const auto shared = std::make_shared<Shared>();
    std::thread([shared, work = std::move(work)]() mutable {
        auto result = work();
        const std::scoped_lock lock(shared->mutex);
        shared->result = std::move(result);
        shared->finished.notify_all();
    }).detach();
    std::unique_lock lock(shared->mutex);
    shared->finished.wait(lock, stop, [&shared] { return shared->result.has_value(); });
    return std::exchange(shared->result, {});
}
