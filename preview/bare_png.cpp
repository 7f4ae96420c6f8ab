#include "preview/bare_png.h"

#include "preview/png_stream.h"

#include <QByteArrayView>
#include <QtEndian>

#include <algorithm>
#include <optional>

#include <zlib.h>

namespace {

constexpr char signature[] = "\x89PNG\r\n\x1a\n";
constexpr qsizetype signatureSize = 8;
constexpr qsizetype chunkFrame = 12; // length, type, checksum
constexpr qsizetype headerSize = 13;
constexpr qsizetype maxJoined = 1024 * 1024; // of pixel data in a chunk
constexpr int maxChunks = 10'000;            // once joined; a picture needs 130 at most

QByteArray chunk(QByteArrayView type, QByteArrayView data)
{
    QByteArray bytes(4, '\0');
    qToBigEndian(static_cast<quint32>(data.size()), bytes.data());
    bytes.append(type).append(data).append(4, '\0');
    const auto* summed = reinterpret_cast<const Bytef*>(bytes.constData() + 4);
    const auto sum = crc32_z(0, summed, static_cast<z_size_t>(bytes.size() - 8));
    qToBigEndian(static_cast<quint32>(sum), bytes.data() + bytes.size() - 4);
    return bytes;
}

bool isIntact(QByteArrayView chunk)
{
    const auto* summed = reinterpret_cast<const Bytef*>(chunk.data() + 4);
    return crc32_z(0, summed, static_cast<z_size_t>(chunk.size() - 8)) ==
           qFromBigEndian<quint32>(chunk.last(4).data());
}

// By the letters of their types: what a reader may skip, but for the transparency of a palette.
bool isBesideThePicture(QByteArrayView type)
{
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    return std::ranges::all_of(type, isLetter) && (type.front() & 0x20) != 0 && type != "tRNS";
}

// The same picture as cheap to read as it can be. Where chunks were that are no part of it, one
// empty text stands in for them: their place can decide whether a file is well-formed.
class BarePng
{
public:
    explicit BarePng(QByteArrayView file)
        : m_rest(file.sliced(signatureSize)), m_bare(file.first(signatureSize).toByteArray())
    {
    }

    // Empty when the file must not reach the decoder.
    QByteArray make()
    {
        while (!m_atEnd && m_rest.size() >= chunkFrame) {
            const qsizetype length = qFromBigEndian<quint32>(m_rest.data());
            if (length > m_rest.size() - chunkFrame)
                break;
            if (!take(m_rest.first(chunkFrame + length)) || m_chunks > maxChunks)
                return {};
            m_rest = m_rest.sliced(chunkFrame + length);
        }
        writePixels();
        // A file cut within a chunk can still be a picture if that is its last one.
        if (!m_atEnd && (m_rest.size() < 8 || !isBesideThePicture(m_rest.sliced(4, 4))))
            m_bare.append(m_rest);
        return m_bare;
    }

private:
    bool take(QByteArrayView chunk)
    {
        const QByteArrayView type = chunk.sliced(4, 4);
        const QByteArrayView data = chunk.sliced(8, chunk.size() - chunkFrame);
        if (m_stream && isBesideThePicture(type)) {
            takeSideChunk();
            return true;
        }
        if (m_stream && type == "IDAT" && isIntact(chunk))
            return takePixels(data);
        if (!m_stream && type == "IHDR" && data.size() == headerSize) {
            m_stream.emplace(data);
            if (m_stream->width() > maxPngSide || m_stream->height() > maxPngSide)
                return false;
        }
        write(chunk);
        m_atEnd = type == "IEND";
        return true;
    }

    void takeSideChunk()
    {
        if (!m_isBesideNow)
            write(chunk("tEXt", {}));
        m_isBesideNow = true;
    }

    bool takePixels(QByteArrayView data)
    {
        if (m_pixels.size() + data.size() > maxJoined)
            writePixels();
        m_isBesideNow = false;
        m_hasPixels = true;
        m_pixels.append(data);
        return m_stream && m_stream->take(data);
    }

    void writePixels()
    {
        if (m_hasPixels)
            m_bare.append(chunk("IDAT", m_pixels));
        m_hasPixels = false;
        m_pixels.clear();
    }

    void write(QByteArrayView bytes)
    {
        writePixels();
        m_isBesideNow = false;
        m_bare.append(bytes);
        ++m_chunks;
    }

    QByteArrayView m_rest;
    QByteArray m_bare;
    QByteArray m_pixels; // joined, not written yet
    bool m_hasPixels = false;
    bool m_isBesideNow = false; // the last thing written stands for side chunks
    bool m_atEnd = false;
    int m_chunks = 0;
    std::optional<PngStream> m_stream; // once the header is known
};

} // namespace

QByteArray barePng(const QByteArray& file)
{
    if (!file.startsWith(QByteArrayView(signature, signatureSize)))
        return {};
    return BarePng(file).make();
}
