#include "tests/fuzz/fuzz.h"
#include "versions/version_manager.h"

#include <QCoreApplication>

namespace {

bool isUsable(const VersionManager& manager)
{
    const auto hasAddress = [](const GameVersion& v) {
        return !v.id.isEmpty() && !v.url.isEmpty();
    };
    const auto hasTitle = [](const NewsItem& item) { return !item.title.isEmpty(); };
    return std::all_of(manager.versions().cbegin(), manager.versions().cend(), hasAddress) &&
           std::all_of(manager.news().cbegin(), manager.news().cend(), hasTitle);
}

} // namespace

// Whatever the bytes: only usable entries get into the lists, and what is no manifest leaves them
// as they were.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char* argv[] = {name, nullptr};
    // Never destroyed: newer Qt's own static objects are gone before it would be.
    static const auto* application = new QCoreApplication(argc, argv);
    Q_UNUSED(application);

    VersionManager manager;
    fuzz::require(manager.parseManifest(R"({"versions":[{"id":"1","url":"u"}]})"));
    const bool taken = manager.parseManifest(fuzz::bytes(data, size));
    fuzz::require(isUsable(manager));
    fuzz::require(taken || (manager.versions().size() == 1 && manager.news().isEmpty()));
    return 0;
}
