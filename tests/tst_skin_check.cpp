#include "backend/looks/skin_check.h"
#include "preview/png_image.h"
#include "tests/hostile/pngs.h"
#include "tests/support/png_files.h"

#include <QColorSpace>
#include <QTest>

namespace {

// Without a picture for every file that the server must refuse. It wants the header first, where
// the launcher passes over what stands before.
QImage expectedOf(const QByteArray& file)
{
    if (file.mid(12, 4) != "IHDR")
        return {};
    const QImage image = decodePng(file);
    return image.size() == QSize(64, 64) ? image.convertToFormat(QImage::Format_RGBA8888)
                                         : QImage();
}

// Where Qt's reader has rules of its own: it takes a file that is cut in the checksum of its end,
// refuses a second palette behind the pixels, and sees no transparency in a grey picture.
bool hasQtRulesOfItsOwn(const QByteArray& file)
{
    const qsizetype end = file.lastIndexOf("IEND");
    const bool isCut = end > 0 && !file.sliced(end).startsWith("IEND\xae\x42\x60\x82");
    const bool hasLatePalette = file.lastIndexOf("PLTE") > file.indexOf("IDAT");
    constexpr qsizetype colourType = 25;
    const bool isGrey = file.size() > colourType && file[colourType] == 0;
    return isCut || hasLatePalette || (isGrey && file.contains("tRNS"));
}

// A picture as large as a skin, and a file made of its chunks that no honest program writes.
QList<hostile_pngs::File> oddSkins()
{
    QImage image(64, 64, QImage::Format_RGBA8888);
    for (int y = 0; y < 64; ++y) {
        for (int x = 0; x < 64; ++x)
            image.setPixelColor(x, y, QColor(x * 4, y * 4, (x ^ y) * 4, 255 - x - y));
    }
    QList<QByteArray> seeds;
    for (const auto format : {QImage::Format_RGBA8888, QImage::Format_RGB888, QImage::Format_RGBA64,
                              QImage::Format_Grayscale8, QImage::Format_Grayscale16,
                              QImage::Format_Indexed8, QImage::Format_Mono})
        seeds.append(png_files::encode(image.convertToFormat(format)));
    return hostile_pngs::mutationsOf(seeds, 2000);
}

} // namespace

// The server takes no skin that the launcher would not show, and keeps the pixels that it would
// show, though the two decode it in different ways.
class TestSkinCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void roundsDeepColoursAsTheLauncherDoes()
    {
        QImage deep(64, 64, QImage::Format_RGBA64);
        for (int y = 0; y < 64; ++y) {
            for (int x = 0; x < 64; ++x)
                deep.setPixelColor(x, y,
                                   QColor::fromRgba64(quint16(x * 1021), quint16(y * 1019),
                                                      quint16(x * y * 16), quint16(65535 - x * 7)));
        }
        const QByteArray png = png_files::encode(deep);
        const Outcome<QByteArray> kept = skin_check::accept(png);
        QVERIFY(kept);
        const QImage shown = QImage::fromData(*kept, "PNG");
        QCOMPARE(shown.convertToFormat(QImage::Format_RGBA8888), expectedOf(png));
    }

    void takesWhatTheLauncherShows()
    {
        int taken = 0;
        const QList<hostile_pngs::File> files = oddSkins();
        for (const auto& file : files) {
            const QImage expected = expectedOf(file.bytes);
            const Outcome<QByteArray> kept = skin_check::accept(file.bytes);
            const QByteArray said = file.name + ' ' + file.bytes.toHex();
            if (hasQtRulesOfItsOwn(file.bytes))
                continue;
            QVERIFY2(expected.isNull() == !kept, said.constData());
            if (!kept)
                continue;
            ++taken;
            QImage shown = QImage::fromData(*kept, "PNG").convertToFormat(QImage::Format_RGBA8888);
            shown.setColorSpace({});
            QImage meant = expected;
            meant.setColorSpace({});
            QVERIFY2(shown == meant, said.constData());
        }
        // Otherwise the set would say little.
        QVERIFY(taken > files.size() / 20 && taken < files.size() * 19 / 20);
    }
};

QTEST_GUILESS_MAIN(TestSkinCheck)
#include "tst_skin_check.moc"
