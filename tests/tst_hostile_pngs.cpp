#include "preview/png_image.h"
#include "preview/skin_preview_3d.h"
#include "tests/hostile/pngs.h"
#include "tests/support/costs.h"
#include "tests/support/heartbeat.h"
#include "tests/support/profile_page_stage.h"
#include "tests/support/throwaway_home.h"

#include <QColorSpace>
#include <QLabel>
#include <QTest>
#include <QtEndian>

namespace {

using Stage = ProfilePageStage;
using hostile_pngs::File;

constexpr double megabyte = 1'000'000;

void addRows(const QList<File>& files)
{
    QTest::addColumn<QByteArray>("bytes");
    for (const File& file : files)
        QTest::newRow(file.name.constData()) << file.bytes;
}

// What the decoder must do, told by Qt's own reader; empty when both agree.
QByteArray disagreement(const QByteArray& bytes)
{
    QImage expected;
    const bool taken = expected.loadFromData(bytes, "PNG");
    QImage image = decodePng(bytes);
    // What the colours mean exactly is nothing that the preview looks at.
    image.setColorSpace({});
    expected.setColorSpace({});
    if (image.isNull() == taken)
        return taken ? "refused, though Qt takes it" : "taken, though Qt does not";
    return image == expected ? QByteArray() : QByteArray("other pixels");
}

// Whether a chunk's name uses what the format keeps for later: newer versions of libpng refuse it,
// older ones and the launcher pass over the chunk.
bool hasReservedName(const QByteArray& bytes)
{
    for (qsizetype at = 8; at + 8 <= bytes.size();) {
        if (bytes.at(at + 6) & 0x20)
            return true;
        at += 12 + qFromBigEndian<quint32>(bytes.constData() + at);
    }
    return false;
}

} // namespace

// Pictures of strangers: as Qt's reader sees them, at the price of the picture.
class TestHostilePngs : public QObject
{
    Q_OBJECT

public:
    static void initMain() { Stage::prepareProgram(); }

private Q_SLOTS:
    void initTestCase() { Stage::prepareStyle(); }
    void init() { throwaway_home::clear(); }

    void readsOddFilesAsQtDoes_data() { addRows(hostile_pngs::odd()); }

    void readsOddFilesAsQtDoes()
    {
        QFETCH(QByteArray, bytes);
        QCOMPARE(disagreement(bytes), QByteArray());
    }

    void readsMutationsAsQtDoes()
    {
        int taken = 0;
        const QList<File> files = hostile_pngs::mutated(6000);
        for (const File& file : files) {
            const QByteArray difference = disagreement(file.bytes);
            if (difference == "taken, though Qt does not" && hasReservedName(file.bytes))
                continue;
            const QByteArray said = file.name + ": " + difference + ' ' + file.bytes.toHex();
            QVERIFY2(difference.isEmpty(), said.constData());
            taken += decodePng(file.bytes).isNull() ? 0 : 1;
        }
        // Otherwise the set would say little.
        QVERIFY(taken > files.size() / 20 && taken < files.size() * 19 / 20);
    }

    void readsCostlyFilesAtThePriceOfThePicture_data() { addRows(hostile_pngs::costlyPictures()); }

    void readsCostlyFilesAtThePriceOfThePicture()
    {
        QFETCH(QByteArray, bytes);
        const qint64 memory = costs::peakBytes();
        const double start = costs::cpuSeconds();
        const QImage image = decodePng(bytes);
        const double seconds = costs::cpuSeconds() - start;
        const double grown = static_cast<double>(costs::peakBytes() - memory) / megabyte;
        qInfo("%lld bytes: %.0f ms, %.0f MB", bytes.size(), 1000 * seconds, grown);
        QVERIFY(!image.isNull());
        QVERIFY(seconds < (image.width() > 1000 ? 3 : 0.5));
        QVERIFY(grown < (image.width() > 1000 ? 250 : 50));
    }

    void stopsBombs_data() { addRows(hostile_pngs::bombs()); }

    void stopsBombs()
    {
        QFETCH(QByteArray, bytes);
        const qint64 memory = costs::peakBytes();
        const double start = costs::cpuSeconds();
        QVERIFY(decodePng(bytes).isNull());
        const double seconds = costs::cpuSeconds() - start;
        const double grown = static_cast<double>(costs::peakBytes() - memory) / megabyte;
        qInfo("%lld bytes: %.0f ms, %.0f MB", bytes.size(), 1000 * seconds, grown);
        QVERIFY(seconds < 0.5);
        QVERIFY(grown < 50);
    }

    // All of them, one after the other, where a player would see them.
    void leavesTheAccountPageResponsive()
    {
        Stage stage;
        Stage::signIn();
        stage.server.answer(Stage::skinPath, HttpAnswer::htmlError(404));
        stage.open();
        (void)stage.preview()->grabFramebuffer();
        const qint64 memory = costs::peakBytes();
        qint64 longest = 0;
        for (const File& file : hostile_pngs::costlyPictures() + hostile_pngs::bombs()) {
            stage.label("skinStatus")->clear();
            stage.server.answer(Stage::skinPath, HttpAnswer::ok(file.bytes));
            const Heartbeat heartbeat;
            stage.click("Refresh");
            QTRY_COMPARE(stage.text("skinStatus"), QStringLiteral("Skin active."));
            (void)stage.preview()->grabFramebuffer();
            QTest::qWait(20);
            longest = qMax(longest, heartbeat.longestProcessorMs());
            qInfo("%s: %lld ms", file.name.constData(), heartbeat.longestProcessorMs());
        }
        const double grown = static_cast<double>(costs::peakBytes() - memory) / megabyte;
        qInfo("longest gap %lld ms of processor time, %.0f MB more", longest, grown);
        QVERIFY(longest < 4000);
        QVERIFY(grown < 600);
    }
};

QTEST_MAIN(TestHostilePngs)
#include "tst_hostile_pngs.moc"
