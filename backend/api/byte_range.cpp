#include "backend/api/byte_range.h"

#include <algorithm>

namespace {

// Digits alone, and few enough to be a number.
std::optional<qint64> numberOf(const QByteArray& digits)
{
    const bool plain =
        std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (digits.isEmpty() || digits.size() > 18 || !plain)
        return {};
    return digits.toLongLong();
}

} // namespace

namespace byte_range {

std::optional<ByteRange> parse(const QByteArray& header, qint64 size)
{
    const ByteRange whole{0, size};
    if (header.left(6).toLower() != "bytes=" || header.count('-') != 1)
        return whole;
    const QByteArray from = header.mid(6, header.indexOf('-') - 6).trimmed();
    const QByteArray to = header.mid(header.indexOf('-') + 1).trimmed();
    const auto first = numberOf(from);
    const auto last = numberOf(to);
    if ((!from.isEmpty() && !first) || (!to.isEmpty() && !last) || (!first && !last))
        return whole;
    if (!first) {
        const qint64 bytes = std::min(*last, size);
        return bytes > 0 ? std::optional(ByteRange{size - bytes, bytes}) : std::nullopt;
    }
    const qint64 end = last ? std::min(*last + 1, size) : size;
    if (last && *last < *first)
        return whole;
    if (*first >= size)
        return {};
    return ByteRange{*first, end - *first};
}

} // namespace byte_range
