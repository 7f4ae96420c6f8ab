#include "preview/png_stream.h"

#include <QtEndian>

#include <array>

#include <zlib.h>

namespace {

constexpr qsizetype slack = 1024 * 1024; // some programs leave a little behind the last line

// Before compression: the lines, each with a filter byte. Interlacing less than doubles them.
qsizetype pictureBytes(QByteArrayView header, qsizetype width, qsizetype height)
{
    constexpr std::array channels{1, 4, 3, 1, 2, 4, 4, 4}; // by the colour type
    const qsizetype depth = qMin(16, int{static_cast<uchar>(header[8])});
    const qsizetype pixel = depth * channels[static_cast<uchar>(header[9]) % channels.size()];
    return 2 * height * ((width * pixel + 7) / 8 + 1);
}

} // namespace

PngStream::PngStream(QByteArrayView header)
    : m_width(qFromBigEndian<quint32>(header.data()))
    , m_height(qFromBigEndian<quint32>(header.data() + 4))
    , m_inflater(std::make_unique<z_stream_s>())
{
    m_limit = pictureBytes(header, qMin(m_width, 0xffffU), qMin(m_height, 0xffffU)) + slack;
    m_ended = inflateInit(m_inflater.get()) != Z_OK;
}

PngStream::~PngStream()
{
    inflateEnd(m_inflater.get());
}

bool PngStream::take(QByteArrayView piece)
{
    std::array<Bytef, 32768> scratch;
    m_inflater->next_in = reinterpret_cast<Bytef*>(const_cast<char*>(piece.data()));
    m_inflater->avail_in = static_cast<uInt>(piece.size());
    while (!m_ended && m_inflated <= m_limit) {
        m_inflater->next_out = scratch.data();
        m_inflater->avail_out = scratch.size();
        const int state = inflate(m_inflater.get(), Z_NO_FLUSH);
        m_inflated += static_cast<qsizetype>(scratch.size() - m_inflater->avail_out);
        m_ended = state != Z_OK && state != Z_BUF_ERROR;
        if (m_inflater->avail_out > 0)
            break; // wants the next piece
    }
    return m_inflated <= m_limit;
}
