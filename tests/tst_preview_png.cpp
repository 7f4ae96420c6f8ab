#include "preview/png_image.h"
#include "tests/support/costs.h"
#include "tests/support/png_files.h"

#include <QTest>

using namespace png_files;

class TestPreviewPng : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsWhatItIsGiven_data()
    {
        QTest::addColumn<QImage::Format>("format");
        QTest::newRow("colour and alpha") << QImage::Format_RGBA8888;
        QTest::newRow("colour") << QImage::Format_RGB888;
        QTest::newRow("grey") << QImage::Format_Grayscale8;
        QTest::newRow("deep grey") << QImage::Format_Grayscale16;
        QTest::newRow("deep colour") << QImage::Format_RGBA64;
        QTest::newRow("two colours") << QImage::Format_Mono;
        QTest::newRow("palette with alpha") << QImage::Format_Indexed8;
    }

    void readsWhatItIsGiven()
    {
        QFETCH(QImage::Format, format);
        QImage image(64, 64, QImage::Format_RGBA8888);
        image.fill(Qt::transparent);
        image.setPixelColor(3, 4, QColor(200, 100, 50));
        image.setPixelColor(5, 6, QColor(10, 220, 90, 128));
        const QByteArray png = encode(image.convertToFormat(format));
        const QImage expected = QImage::fromData(png, "PNG");
        QVERIFY(!expected.isNull());
        QCOMPARE(decodePng(png), expected);
    }

    void takesEverySizeUpToItsLimit_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<bool>("taken");
        QTest::newRow("one pixel") << QSize(1, 1) << true;
        QTest::newRow("flat") << QSize(128, 64) << true;
        QTest::newRow("larger than any skin") << QSize(1025, 1025) << true;
        QTest::newRow("largest") << QSize(4096, 4096) << true;
        QTest::newRow("too wide") << QSize(4097, 1) << false;
        QTest::newRow("too high") << QSize(1, 4097) << false;
    }

    void takesEverySizeUpToItsLimit()
    {
        QFETCH(QSize, size);
        QFETCH(bool, taken);
        QImage image(size, QImage::Format_RGB888);
        image.fill(Qt::red);
        QCOMPARE(decodePng(encode(image)).size(), taken ? size : QImage().size());
    }

    void ignoresWhatIsNotThePicture()
    {
        const QByteArray png = square(64, qRgb(9, 8, 7));
        const QByteArray noise = chunk("tEXt", QByteArray("Title\0hello", 11)) +
                                 chunk("iCCP", QByteArray("x\0\0garbage", 10)) +
                                 chunk("gAMA", QByteArray("\0\1\2\3", 4));
        QCOMPARE(decodePng(withChunk(png, noise)), decodePng(png));
    }

    void refusesWhatIsNoPng_data()
    {
        const QByteArray png = square(64, qRgb(9, 8, 7));
        QImage image(64, 64, QImage::Format_RGB888);
        image.fill(Qt::blue);
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("text") << QByteArray("GIF89a and so on");
        QTest::newRow("signature only") << png.first(8);
        QTest::newRow("header only") << png.first(33);
        QTest::newRow("cut in the pixels") << png.first(png.size() - 20);
        QTest::newRow("cut before the end") << png.first(png.size() - 12);
        QTest::newRow("damaged pixels")
            << QByteArray(png).replace(png.size() - 32, 4, "\xff\xff\xff\xff");
        QTest::newRow("no header first") << png.first(8) + chunk("tEXt", "a") + png.sliced(8);
        QTest::newRow("two headers") << withChunk(png, png.sliced(8, 25));
        QTest::newRow("header too short")
            << png.first(8) + chunk("IHDR", QByteArray(4, '\1')) + png.sliced(33);
        QTest::newRow("no width") << withClaimedSize(png, 0, 64);
        QTest::newRow("larger than its pixels") << withClaimedSize(png, 64, 1000);
        QTest::newRow("20000 x 20000") << withClaimedSize(png, 20000, 20000);
        QTest::newRow("more than a size can be") << withClaimedSize(png, 0xffffffffU, 0x80000000U);
        QTest::newRow("chunk longer than the file") << png.first(33) + QByteArray("\xff\xff\xff\xff"
                                                                                  "IDAT",
                                                                                  8);
    }

    void refusesWhatIsNoPng()
    {
        QFETCH(QByteArray, bytes);
        QVERIFY(decodePng(bytes).isNull());
    }

    void fitsIntoWhatADriverTakes()
    {
        QImage image(300, 20, QImage::Format_RGB888);
        image.fill(Qt::red);
        image.setPixelColor(299, 19, Qt::blue);
        QCOMPARE(fittedInto(image, 300), image);
        const QImage fitted = fittedInto(image, 100);
        QCOMPARE(fitted.size(), QSize(100, 20));
        QCOMPARE(fitted.pixelColor(0, 0), QColor(Qt::red));
    }

    void readsATextBombAtThePriceOfItsPicture()
    {
        const QByteArray bomb = textBomb();
        QVERIFY(bomb.size() > 400'000);
        const qint64 memory = costs::peakBytes();
        const double start = costs::cpuSeconds();
        QCOMPARE(decodePng(bomb), decodePng(square(64, qRgb(1, 2, 3))));
        QVERIFY(costs::cpuSeconds() - start < 0.5);
        QVERIFY(costs::peakBytes() - memory < 50'000'000);
    }

    // The pixels of a small picture, followed by 300 MB of zeros in the same stream.
    void readsNoFurtherThanThePicture()
    {
        const QByteArray png = square(64, qRgb(9, 8, 7));
        const QByteArray zeros = qCompress(QByteArray(300'000'000, '\0'), 9).sliced(4);
        const QByteArray bomb = png.first(33) + chunk("IDAT", zeros) + chunk("IEND", {});
        const qint64 memory = costs::peakBytes();
        const double start = costs::cpuSeconds();
        QVERIFY(decodePng(bomb).isNull());
        QVERIFY(costs::cpuSeconds() - start < 0.5);
        QVERIFY(costs::peakBytes() - memory < 50'000'000);
    }
};

QTEST_GUILESS_MAIN(TestPreviewPng)
#include "tst_preview_png.moc"
