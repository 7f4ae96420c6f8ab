#include "archive/archive_names.h"

#include <algorithm>

namespace archive_names {

std::optional<QByteArrayList> stepsOf(const QByteArray& name)
{
    if (name.isEmpty() || name.startsWith('/'))
        return {};
    QByteArrayList steps;
    for (const QByteArray& step : name.split('/')) {
        if (step == "..")
            return {};
        if (!step.isEmpty() && step != ".")
            steps.append(step);
    }
    return steps;
}

bool isTooLong(const QByteArray& name)
{
    if (name.size() > maxNameBytes)
        return true;
    const QByteArrayList steps = name.split('/');
    return steps.size() > maxSteps || std::ranges::any_of(steps, [](const QByteArray& step) {
               return step.size() > maxStepBytes;
           });
}

// A link may climb only at its start, where it stands in a real directory; a later ".." could
// follow another link and end up anywhere.
bool staysInside(const QByteArray& linkTarget, qsizetype depth)
{
    if (linkTarget.isEmpty() || linkTarget.startsWith('/'))
        return false;
    bool descended = false;
    for (const QByteArray& step : linkTarget.split('/')) {
        if (step.isEmpty() || step == ".")
            continue;
        if (step != "..")
            descended = true;
        else if (descended || --depth < 0)
            return false;
    }
    return true;
}

} // namespace archive_names
