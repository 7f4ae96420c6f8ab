#pragma once

#include <QByteArrayView>

#include <memory>

struct z_stream_s;

// Follows the compressed pixel data of a PNG to see that it holds no more than the pixels: a
// decoder inflates what comes behind the last pixel as well, at the price of seconds.
class PngStream
{
public:
    // The data of the header chunk: 13 bytes.
    explicit PngStream(QByteArrayView header);
    ~PngStream();
    Q_DISABLE_COPY_MOVE(PngStream)

    quint32 width() const { return m_width; }
    quint32 height() const { return m_height; }

    // The next piece. False once it has inflated to more than the picture; damaged data count as
    // the end, which is for the decoder to judge.
    bool take(QByteArrayView piece);

private:
    quint32 m_width = 0;
    quint32 m_height = 0;
    qsizetype m_limit = 0; // of inflated bytes
    qsizetype m_inflated = 0;
    bool m_ended = false;
    std::unique_ptr<z_stream_s> m_inflater;
};
