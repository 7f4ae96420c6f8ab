#include "archive/archive_reader.h"
#include "tests/fuzz/fuzz.h"

namespace {

constexpr ArchiveLimits limits = {1'000, 1'000'000};

} // namespace

// Whatever the bytes: every entry stands below the archive's directory, and what comes out of them
// keeps to the limits.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ArchiveReader reader(ArchiveSource::memory(fuzz::bytes(data, size)), ArchiveReader::Format::Zip,
                         limits);
    qint64 unpacked = 0;
    int entries = 0;
    while (reader.next() && reader.skim()) {
        unpacked += reader.entryBytes();
        ++entries;
        fuzz::require(!reader.steps().isEmpty());
        for (const QByteArray& step : reader.steps())
            fuzz::require(!step.isEmpty() && step != "." && step != ".." && !step.contains('/'));
        fuzz::require(!reader.target().startsWith('/'));
    }
    fuzz::require(entries <= limits.entries && unpacked <= limits.bytes);
    return 0;
}
