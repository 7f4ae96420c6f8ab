#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

// What the benchmarks share: a stopwatch and the median of several runs.
namespace measure {

template <typename Function>
double milliseconds(Function&& function)
{
    const auto start = std::chrono::steady_clock::now();
    function();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

inline double median(std::vector<double> values)
{
    std::ranges::sort(values);
    return values[values.size() / 2];
}

inline void report(const char* what, double ours, const char* reference, double theirs, double aim)
{
    std::printf("%s: %.1f ms; %s: %.1f ms; ratio %.2f (aim: %.2f or less)\n", what, ours, reference,
                theirs, ours / theirs, aim);
}

} // namespace measure
