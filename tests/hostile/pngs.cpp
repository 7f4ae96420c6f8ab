#include "tests/hostile/pngs.h"

#include "tests/support/png_files.h"

#include <QImage>
#include <QRandomGenerator>
#include <QtEndian>

using png_files::chunk;

namespace hostile_pngs {

namespace {

constexpr qsizetype signatureSize = 8;
constexpr qsizetype headerEnd = 33; // with the header chunk

QImage picture(int side = 24)
{
    QImage image(side, side, QImage::Format_RGBA8888);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x)
            image.setPixelColor(x, y, QColor(x * 10 % 256, y * 9 % 256, x * y % 256, 255 - x));
    }
    return image;
}

QByteArray header(quint32 width, quint32 height, int depth, int colour, int interlaced = 0)
{
    QByteArray data(13, '\0');
    qToBigEndian(width, data.data());
    qToBigEndian(height, data.data() + 4);
    data[8] = static_cast<char>(depth);
    data[9] = static_cast<char>(colour);
    data[12] = static_cast<char>(interlaced);
    return chunk("IHDR", data);
}

// As qCompress does it, without the length in front.
QByteArray deflated(const QByteArray& bytes)
{
    return qCompress(bytes, 9).sliced(4);
}

QByteArray signature()
{
    return QByteArray("\x89PNG\r\n\x1a\n", signatureSize);
}

QByteArray end()
{
    return chunk("IEND", {});
}

// Of lines of zeros.
QByteArray plain(quint32 side, int depth, int colour, int interlaced = 0, qsizetype extra = 0)
{
    const QByteArray palette = colour == 3 ? chunk("PLTE", QByteArray(30, '\x55')) : QByteArray();
    const qsizetype line = (qsizetype{side} * depth * 4 + 7) / 8 + 1; // four channels at most
    return signature() + header(side, side, depth, colour, interlaced) + palette +
           chunk("IDAT", deflated(QByteArray((interlaced + 1) * side * line + extra, '\0'))) +
           end();
}

QByteArray text(qsizetype bytes = 9)
{
    return chunk("tEXt", QByteArray("Title\0", 6) + QByteArray(bytes, 'x'));
}

// The file's chunks: each a type with its data.
QList<QByteArray> chunksOf(const QByteArray& png)
{
    QList<QByteArray> chunks;
    for (qsizetype at = signatureSize; at < png.size();) {
        const qsizetype length = qFromBigEndian<quint32>(png.data() + at);
        chunks.append(png.mid(at + 4, 4 + length));
        at += 12 + length;
    }
    return chunks;
}

QByteArray fileOf(const QList<QByteArray>& chunks)
{
    QByteArray png = signature();
    for (const QByteArray& whole : chunks)
        png += chunk(whole.first(4), whole.sliced(4));
    return png;
}

// The pixel data in pieces of so many bytes, with something between them.
QByteArray inPieces(qsizetype size, const QByteArray& between)
{
    QByteArray data;
    for (const QByteArray& whole : chunksOf(png_files::encode(picture()))) {
        if (whole.startsWith("IDAT"))
            data += whole.sliced(4);
    }
    QByteArray pieces;
    for (qsizetype at = 0; at < data.size(); at += size)
        pieces += (at > 0 ? between : QByteArray()) +
                  chunk("IDAT", data.sliced(at, qMin(size, data.size() - at)));
    return signature() + header(24, 24, 8, 6) + pieces + end();
}

QByteArray zText(qsizetype inflated)
{
    return chunk("zTXt", QByteArray("Comment\0\0", 9) + deflated(QByteArray(inflated, '\0')));
}

QByteArray iText(qsizetype inflated)
{
    return chunk("iTXt", QByteArray("Comment\0\1\0\0\0", 12) + deflated(QByteArray(inflated, 'x')));
}

QByteArray profile(qsizetype inflated)
{
    return chunk("iCCP", QByteArray("icc\0\0", 5) + deflated(QByteArray(inflated, '\0')));
}

void addPixelKinds(QList<File>& files)
{
    for (const int colour : {0, 1, 2, 3, 4, 5, 6, 7}) {
        for (const int depth : {0, 1, 2, 3, 4, 8, 16, 32}) {
            for (const int interlaced : {0, 1, 2})
                files.append({"colour " + QByteArray::number(colour) + " depth " +
                                  QByteArray::number(depth) + " interlaced " +
                                  QByteArray::number(interlaced),
                              plain(9, depth, colour, interlaced)});
        }
    }
}

void addChunks(QList<File>& files, const QByteArray& name, const QByteArray& chunks)
{
    const QByteArray png = png_files::encode(picture());
    const QByteArray palette = plain(9, 8, 3);
    const QByteArray colours = palette.sliced(headerEnd, 42);
    files.append({name + " first", png.first(signatureSize) + chunks + png.sliced(signatureSize)});
    files.append({name + " behind the header", png_files::withChunk(png, chunks)});
    files.append({name + " behind the palette",
                  palette.first(headerEnd) + colours + chunks + palette.sliced(headerEnd + 42)});
    files.append({name + " behind the pixels", png.chopped(12) + chunks + end()});
    files.append({name + " behind the end", png + chunks});
    files.append({name + " between pixels", inPieces(40, chunks)});
    QByteArray wrong = chunks;
    wrong.back() = static_cast<char>(~wrong.back());
    files.append({name + " with a wrong sum", png_files::withChunk(png, wrong)});
    files.append({name + " with a wrong sum between pixels", inPieces(40, wrong)});
    files.append({name + " cut", png.chopped(12) + chunks.chopped(2)});
}

} // namespace

QList<File> odd()
{
    QList<File> files;
    addPixelKinds(files);
    addChunks(files, "a text", text());
    addChunks(files, "an empty text", chunk("tEXt", {}));
    addChunks(files, "a compressed text", zText(1000));
    addChunks(files, "an international text", iText(1000));
    addChunks(files, "a profile", profile(1000));
    addChunks(files, "a palette", chunk("PLTE", QByteArray(30, '\x77')));
    addChunks(files, "a transparency", chunk("tRNS", QByteArray(6, '\1')));
    addChunks(files, "a short transparency", chunk("tRNS", QByteArray(1, '\1')));
    addChunks(files, "a gamma", chunk("gAMA", QByteArray("\0\0\xb1\x8f", 4)));
    addChunks(files, "a background", chunk("bKGD", QByteArray(6, '\1')));
    addChunks(files, "a density", chunk("pHYs", QByteArray(9, '\1')));
    addChunks(files, "significant bits", chunk("sBIT", QByteArray(4, '\2')));
    addChunks(files, "an animation", chunk("acTL", QByteArray(8, '\1')));
    addChunks(files, "a frame", chunk("fcTL", QByteArray(26, '\1')) + chunk("fdAT", text()));
    addChunks(files, "an unknown chunk", chunk("zzZz", "data"));
    addChunks(files, "an unknown critical chunk", chunk("ZZZZ", "data"));
    addChunks(files, "a phone's chunk", chunk("CgBI", QByteArray("\x50\0\x20\2", 4)));
    addChunks(files, "a chunk without a name", chunk(QByteArray(4, '\0'), "data"));
    addChunks(files, "a misspelt chunk", chunk("t&Xt", "data"));
    addChunks(files, "a second header", header(9, 9, 8, 6));
    addChunks(files, "an early end", end());
    addChunks(files, "no pixels", chunk("IDAT", {}));

    const QByteArray png = png_files::encode(picture());
    for (qsizetype size = 0; size <= png.size(); ++size)
        files.append({"the first " + QByteArray::number(size) + " bytes", png.first(size)});
    files.append({"trailing bytes", png + QByteArray(1000, 'x')});
    for (const int size : {1, 2, 7, 100})
        files.append({"pieces of " + QByteArray::number(size), inPieces(size, {})});
    files.append({"empty pieces between", inPieces(40, chunk("IDAT", {}).repeated(3))});
    files.append({"a little behind the pixels", plain(9, 8, 6, 0, 5000)});
    files.append({"zero size", png_files::withClaimedSize(png, 0, 0)});
    files.append({"larger than its pixels", png_files::withClaimedSize(png, 4096, 4096)});
    files.append({"smaller than its pixels", png_files::withClaimedSize(png, 4, 4)});
    files.append({"a text of 7 MB", png_files::withChunk(png, text(7'900'000))});
    return files;
}

QList<File> mutated(int count)
{
    const QImage image = picture();
    return mutationsOf({png_files::encode(image),
                        png_files::encode(image.convertToFormat(QImage::Format_Indexed8)),
                        png_files::withChunk(png_files::encode(image), zText(3000)),
                        inPieces(60, {}), plain(9, 16, 2, 1)},
                       count);
}

QList<File> mutationsOf(const QList<QByteArray>& seeds, int count)
{
    const QList<QByteArray> others{"tEXtKey", "tRNS12", "tRNS123456", "PLTE123456", "IDAT",
                                   "IDAT1",   "zzZzab", "gAMA1234",   "IEND",       "aBCD"};
    QRandomGenerator random(20261121);
    QList<File> files;
    for (int i = 0; i < count; ++i) {
        QList<QByteArray> chunks = chunksOf(seeds[random.bounded(seeds.size())]);
        for (int change = random.bounded(1, 3); change > 0 && chunks.size() > 1; --change) {
            const qsizetype at = random.bounded(chunks.size());
            QByteArray& whole = chunks[at];
            switch (random.bounded(7)) {
            case 0:
                chunks.removeAt(at);
                break;
            case 1:
                chunks.insert(at, QByteArray(whole));
                break;
            case 2:
                chunks.move(at, random.bounded(chunks.size()));
                break;
            case 3:
                chunks.insert(at, others[random.bounded(others.size())]);
                break;
            case 4:
                whole.chop(random.bounded(int(whole.size()) - 3));
                break;
            case 5:
                whole.append("more");
                break;
            default:
                whole[random.bounded(whole.size())] = static_cast<char>(random.bounded(256));
            }
        }
        QByteArray bytes = fileOf(chunks);
        if (random.bounded(8) == 0)
            bytes.chop(random.bounded(1, 30));
        if (random.bounded(8) == 0)
            bytes[random.bounded(int{signatureSize}, int(bytes.size()))] ^= 1;
        files.append({"mutation " + QByteArray::number(i), bytes});
    }
    return files;
}

QList<File> costlyPictures()
{
    const QByteArray png = png_files::encode(picture());
    return {
        {"compressed texts", png_files::withChunk(png, zText(50'000'000).repeated(9))},
        {"international texts", png_files::withChunk(png, iText(50'000'000).repeated(9))},
        {"texts behind the pixels", png.chopped(12) + zText(50'000'000).repeated(9) + end()},
        {"a profile", png_files::withChunk(png, profile(300'000'000))},
        {"many texts", png_files::withChunk(png, text().repeated(30'000))},
        {"many unknown chunks", png_files::withChunk(png, chunk("zzZz", {}).repeated(80'000))},
        {"many animation frames", png.chopped(12) + chunk("fdAT", "1234").repeated(60'000) + end()},
        {"pixels byte by byte", inPieces(1, chunk("IDAT", {}).repeated(30))},
        {"many empty pieces", inPieces(100, chunk("IDAT", {}).repeated(8'000))},
        {"the largest", plain(4096, 8, 6)}};
}

QList<File> bombs()
{
    const QByteArray png = png_files::encode(picture());
    const QByteArray transparencies = chunk("tRNS", "1") + chunk("tRNS", "12");
    return {{"more behind the pixels", plain(24, 8, 6, 0, 300'000'000)},
            {"too wide", plain(1, 8, 6).replace(8, 25, header(4097, 1, 8, 6))},
            {"65535 x 65535", png_files::withClaimedSize(png, 65535, 65535)},
            {"a plane of 2 GB", png_files::withClaimedSize(png, 0x7fffffff, 1)},
            {"many transparencies", png_files::withChunk(png, transparencies.repeated(20'000))}};
}

} // namespace hostile_pngs
