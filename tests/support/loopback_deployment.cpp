#include "tests/support/loopback_deployment.h"

#include "app/deployment.h"

#include <QString>

#include <algorithm>
#include <array>

namespace {

constexpr QLatin1StringView unset{"http://127.0.0.1:00009"};
std::array<char, unset.size()> origin{};

} // namespace

namespace deployment {

const QLatin1StringView version{"1.0.16"};
const QLatin1StringView serverOrigin{unset};
const QLatin1StringView runtimeOrigin{origin.data(), origin.size()};

} // namespace deployment

namespace loopback_deployment {

void setRuntimeOrigin(const QString& address)
{
    const QByteArray bytes = address.toLatin1();
    if (bytes.size() != unset.size())
        qFatal("not an origin of %d characters: %s", int(unset.size()), bytes.constData());
    std::ranges::copy(bytes, origin.begin());
}

} // namespace loopback_deployment
