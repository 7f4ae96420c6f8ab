#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

// What the benchmarks share: a stopwatch, the median of several runs, and the line on which each
// figure is printed. scripts/bench reads those lines and judges them, so a figure has one form:
// name, value, unit, control, how the two are compared, the outcome and the aim, between tabs.
// The control is the same thing done by the bare tools, measured in the same run; every aim is the
// most that the outcome may be.
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

inline void figure(const char* name, double value, const char* unit, double control,
                   const char* compared, double outcome, double aim)
{
    std::printf("%s\t%.3f\t%s\t%.3f\t%s\t%.3f\t%.3f\n", name, value, unit, control, compared,
                outcome, aim);
    std::fflush(stdout);
}

inline void ratio(const char* name, double value, const char* unit, double control, double aim)
{
    figure(name, value, unit, control, "ratio", value / control, aim);
}

// What is left when the machine's own noise is taken off.
inline void excess(const char* name, double value, const char* unit, double control, double aim)
{
    figure(name, value, unit, control, "excess", value - control, aim);
}

// Held to a figure of its own; the control says what kind of machine it was.
inline void absolute(const char* name, double value, const char* unit, double control, double aim)
{
    figure(name, value, unit, control, "value", value, aim);
}

} // namespace measure
