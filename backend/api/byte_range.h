#pragma once

#include <QByteArray>

#include <optional>

// The part of a file that a client asked for.
struct ByteRange
{
    qint64 offset = 0;
    qint64 bytes = 0;
};

namespace byte_range {

// Reads "bytes=a-b", "bytes=a-" or "bytes=-n" for a file of `size` bytes. Anything else, several
// ranges included, asks for the whole file. Nothing when the range lies outside the file.
std::optional<ByteRange> parse(const QByteArray& header, qint64 size);

} // namespace byte_range
