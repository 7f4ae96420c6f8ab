#include "tests/support/backend_process.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>
#include <QtEndian>

#include <zlib.h>

using namespace Qt::StringLiterals;

// Skins and models: what is taken, what is refused and why, and what is handed out.
class TestBackendAppearance : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void answersNotFoundBeforeUpload();
    void keepsSkin_data();
    void keepsSkin();
    void dropsEverythingButThePicture();
    void refusesSkin_data();
    void refusesSkin();
    void keepsModel();
    void keepsNoMoreThanWasSent();
    void refusesModel_data();
    void refusesModel();
    void namesEveryReason();
    void needsSessionForUploads();
    void keepsLookAcrossRename();
    void findsNothingUnderOddNames_data();
    void findsNothingUnderOddNames();
    void answersNotModified();

private:
    RawReply uploadSkin(const QByteArray& png);
    RawReply uploadModel(const QByteArray& json);
    RawReply skin() { return raw_http::get(m_backend.port(), "/skins/" + m_uuid + ".png"); }
    RawReply model() { return raw_http::get(m_backend.port(), "/models/" + m_uuid + ".json"); }

    BackendProcess m_backend;
    QByteArray m_token;
    QByteArray m_uuid;
};

namespace {

QByteArray pngOf(const QImage& image)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return buffer.data();
}

QImage picture(int width, int height, QImage::Format format = QImage::Format_ARGB32)
{
    QImage image(width, height, format);
    image.fill(Qt::transparent);
    for (int x = 0; x < width; ++x)
        image.setPixelColor(x, x % height, QColor(x * 255 / width, 40, 80, 255 - x));
    return image;
}

QByteArray chunk(const QByteArray& type, const QByteArray& data)
{
    const QByteArray body = type + data;
    QByteArray frame(4, '\0');
    qToBigEndian(static_cast<quint32>(data.size()), frame.data());
    QByteArray sum(4, '\0');
    const auto crc = crc32(0, reinterpret_cast<const Bytef*>(body.constData()), uInt(body.size()));
    qToBigEndian(static_cast<quint32>(crc), sum.data());
    return frame + body + sum;
}

// A picture with one more chunk behind its header.
QByteArray withChunk(const QByteArray& png, const QByteArray& extra)
{
    return png.left(33) + extra + png.mid(33);
}

QByteArray withSize(const QByteArray& png, quint32 width, quint32 height)
{
    QByteArray header = png.mid(16, 13);
    qToBigEndian(width, header.data());
    qToBigEndian(height, header.data() + 4);
    return png.left(8) + chunk("IHDR", header) + png.mid(33);
}

// Compressed texts that cost a careless decoder seconds and gigabytes.
QByteArray textBomb()
{
    const QByteArray text =
        QByteArray("key\0\0", 5) + qCompress(QByteArray(8'000'000, 'x'), 9).mid(4);
    QByteArray bomb;
    while (bomb.size() + text.size() < 450'000)
        bomb += chunk("zTXt", text);
    return bomb;
}

QJsonObject box(const QString& name = u"box"_s)
{
    return {{u"name"_s, name},
            {u"uuid"_s, name},
            {u"box_uv"_s, true},
            {u"from"_s, QJsonArray{0, 0, 0}},
            {u"to"_s, QJsonArray{4, 4, 4}}};
}

QJsonObject modelOf(const QJsonArray& elements)
{
    return {{u"elements"_s, elements},
            {u"resolution"_s, QJsonObject{{u"width"_s, 64}, {u"height"_s, 64}}},
            {u"outliner"_s, QJsonArray{u"box"_s}}};
}

QByteArray bytesOf(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

} // namespace

void TestBackendAppearance::initTestCase()
{
    QVERIFY2(m_backend.start(), m_backend.output().constData());
    const RawReply created =
        raw_http::postJson(m_backend.port(), "/auth/register",
                           {{u"username"_s, u"Painter"_s}, {u"password"_s, u"correct horse"_s}});
    m_token = created.json()[u"token"_s].toString().toLatin1();
    m_uuid = created.json()[u"uuid"_s].toString().toLatin1();
    QVERIFY(!m_token.isEmpty());
}

RawReply TestBackendAppearance::uploadSkin(const QByteArray& png)
{
    return raw_http::post(m_backend.port(), "/skins/upload", "image/png", png,
                          {raw_http::bearer(m_token)});
}

RawReply TestBackendAppearance::uploadModel(const QByteArray& json)
{
    return raw_http::post(m_backend.port(), "/models/upload", "application/json", json,
                          {raw_http::bearer(m_token)});
}

void TestBackendAppearance::answersNotFoundBeforeUpload()
{
    QCOMPARE(skin().status, 404);
    QVERIFY(!skin().error().isEmpty());
    QCOMPARE(model().status, 404);
    QVERIFY(!model().error().isEmpty());
}

void TestBackendAppearance::keepsSkin_data()
{
    QTest::addColumn<QImage>("image");
    QTest::newRow("64x64") << picture(64, 64);
    QTest::newRow("128x128") << picture(128, 128);
    QTest::newRow("without alpha") << picture(64, 64, QImage::Format_RGB888);
    QTest::newRow("palette") << picture(64, 64).convertToFormat(QImage::Format_Indexed8);
    QTest::newRow("16 bits a channel") << picture(64, 64).convertToFormat(QImage::Format_RGBA64);
    QTest::newRow("gray") << picture(64, 64).convertToFormat(QImage::Format_Grayscale8);
}

void TestBackendAppearance::keepsSkin()
{
    QFETCH(QImage, image);
    const QByteArray png = pngOf(image);
    const RawReply uploaded = uploadSkin(png);
    QVERIFY2(uploaded.status == 200, uploaded.body.constData());
    const RawReply got = skin();
    QCOMPARE(got.status, 200);
    QCOMPARE(got.headers.value("content-type"), "image/png");
    const QImage kept = QImage::fromData(got.body, "PNG");
    QCOMPARE(kept.convertToFormat(QImage::Format_ARGB32),
             QImage::fromData(png, "PNG").convertToFormat(QImage::Format_ARGB32));
}

void TestBackendAppearance::dropsEverythingButThePicture()
{
    const QByteArray secret = "<script>planted</script>";
    const QByteArray png = pngOf(picture(64, 64));
    QCOMPARE(
        uploadSkin(withChunk(png, chunk("tEXt", "Comment" + QByteArray(1, '\0') + secret))).status,
        200);
    QVERIFY(!skin().body.contains(secret));
    QVERIFY(!skin().body.contains("tEXt"));
}

void TestBackendAppearance::refusesSkin_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("reason");
    const QByteArray png = pngOf(picture(64, 64));
    const QString damaged = u"the PNG image is damaged or holds more than a picture"_s;
    const auto row = [](const char* name, const QByteArray& body, const QString& reason) {
        QTest::newRow(name) << body << 422 << reason;
    };
    row("empty", {}, u"it is not a PNG image"_s);
    row("text", "hello", u"it is not a PNG image"_s);
    row("signature alone", png.left(8), u"it is not a PNG image"_s);
    row("another first chunk", png.left(8) + chunk("tEXt", "Key\0Text") + png.mid(8),
        u"it is not a PNG image"_s);
    row("1x1", pngOf(picture(1, 1)), u"it is 1x1 pixels; 64x64 and 128x128 are allowed"_s);
    row("128x64", pngOf(picture(128, 64)), u"it is 128x64 pixels; 64x64 and 128x128 are allowed"_s);
    row("20000x20000 in the header", withSize(png, 20000, 20000),
        u"it is 20000x20000 pixels; 64x64 and 128x128 are allowed"_s);
    row("larger in the header than in its data", withSize(png, 128, 128), damaged);
    row("cut", png.chopped(40), damaged);
    row("no end", png.chopped(12), damaged);
    QByteArray flipped = png;
    flipped[60] = static_cast<char>(~flipped[60]);
    row("one byte wrong", flipped, damaged);
    row("data bomb",
        png.left(33) + chunk("IDAT", qCompress(QByteArray(90'000'000, 0), 9).mid(4)) +
            chunk("IEND", {}),
        damaged);
    QTest::newRow("larger than the limit")
        << withChunk(png, chunk("tEXt", QByteArray(600'000, 'x'))) << 413 << QString();
}

void TestBackendAppearance::refusesSkin()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, reason);
    const QByteArray before = skin().body;
    const RawReply refused = uploadSkin(body);
    QCOMPARE(refused.status, status);
    QVERIFY(!refused.error().isEmpty());
    if (!reason.isEmpty())
        QCOMPARE(refused.json()[u"reasons"_s].toArray(), QJsonArray{reason});
    QCOMPARE(skin().body, before);

    // Texts in it cost nothing: they never reach a decoder.
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(uploadSkin(withChunk(pngOf(picture(64, 64)), textBomb())).status, 200);
    QVERIFY2(timer.elapsed() < 1000, QByteArray::number(timer.elapsed()).constData());
}

void TestBackendAppearance::keepsModel()
{
    const QJsonObject uploaded = modelOf({box(), box(u"second"_s)});
    const RawReply answer = uploadModel(bytesOf(uploaded));
    QVERIFY2(answer.status == 200, answer.body.constData());
    const RawReply got = model();
    QCOMPARE(got.status, 200);
    QCOMPARE(got.headers.value("content-type"), "application/json");
    QCOMPARE(got.json(), uploaded);
}

// Numbers that are longer once they are written again.
void TestBackendAppearance::keepsNoMoreThanWasSent()
{
    const QByteArray sent =
        R"({"elements":[{"box_uv":true,"from":[0,0,0],"to":[1,1,1]}],"more":[)" +
        QByteArray("1e300,").repeated(1000) + "1]}";
    QCOMPARE(uploadModel(sent).status, 200);
    const QByteArray kept = model().body;
    QVERIFY2(kept.size() <= sent.size(), QByteArray::number(kept.size()).constData());
    QCOMPARE(QJsonDocument::fromJson(kept), QJsonDocument::fromJson(sent));
}

void TestBackendAppearance::refusesModel_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("reasons");
    const auto row = [](const char* name, const QByteArray& body, const QStringList& reasons) {
        QTest::newRow(name) << body << reasons;
    };
    row("empty", {}, {u"it is not JSON"_s});
    row("no JSON", "{", {u"it is not JSON"_s});
    row("bad UTF-8", "{\"elements\":\"\xff\xfe\"}", {u"it is not JSON"_s});
    row("array", "[]", {u"it is not a JSON object"_s});
    row("too deep", QByteArray(5000, '[') + QByteArray(5000, ']'), {u"it is nested too deep"_s});
    row("no elements", "{}", {u"the model has no elements"_s});
    row("elements of the wrong type", R"({"elements":{"a":1}})", {u"the model has no elements"_s});
    QJsonObject wide = modelOf({box()});
    wide[u"resolution"_s] = QJsonObject{{u"width"_s, 65}};
    row("texture too wide", bytesOf(wide),
        {u"the texture must be between 1 and 128 pixels wide and high"_s});
    QJsonObject faces = box(u"Hat"_s);
    faces[u"box_uv"_s] = false;
    row("per-face textures", bytesOf(modelOf({box(), faces})),
        {u"element 2 (Hat) does not use box UV"_s});
    QJsonObject flat = box({});
    flat[u"from"_s] = QJsonArray{0, 0};
    row("two coordinates", bytesOf(modelOf({flat})),
        {u"element 1 needs \"from\" of three numbers"_s});
    QJsonObject words = box();
    words[u"to"_s] = QJsonArray{u"NaN"_s, 1, 2};
    row("a text for a number", bytesOf(modelOf({words})),
        {u"element 1 (box) needs \"to\" of three numbers"_s});
    QJsonArray often;
    for (int i = 0; i < 30'000; ++i)
        often.append(u"box"_s);
    QJsonObject many = modelOf({box()});
    many[u"outliner"_s] = often;
    row("listed 30,000 times", bytesOf(many),
        {u"the model draws more boxes than the launcher can show"_s});
}

void TestBackendAppearance::refusesModel()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, reasons);
    const QByteArray before = model().body;
    const RawReply refused = uploadModel(body);
    QCOMPARE(refused.status, 422);
    QCOMPARE(refused.error(), u"The model was refused"_s);
    QCOMPARE(refused.json()[u"reasons"_s].toArray(), QJsonArray::fromStringList(reasons));
    QCOMPARE(model().body, before);
}

void TestBackendAppearance::namesEveryReason()
{
    QJsonObject bad = box(u"Bad"_s);
    bad[u"box_uv"_s] = false;
    bad.remove(u"to"_s);
    QJsonObject model = modelOf({bad, box(), bad});
    model[u"textures"_s] = QJsonArray{QJsonObject{{u"width"_s, 4096}, {u"height"_s, 64}}};
    const QStringList expected{u"the texture must be between 1 and 128 pixels wide and high"_s,
                               u"element 1 (Bad) does not use box UV"_s,
                               u"element 1 (Bad) needs \"to\" of three numbers"_s,
                               u"element 3 (Bad) does not use box UV"_s,
                               u"element 3 (Bad) needs \"to\" of three numbers"_s};
    QCOMPARE(uploadModel(bytesOf(model)).json()[u"reasons"_s].toArray(),
             QJsonArray::fromStringList(expected));

    // A thousand faults are not a thousand lines.
    QJsonArray elements;
    for (int i = 0; i < 1000; ++i)
        elements.append(bad);
    const QJsonArray reasons =
        uploadModel(bytesOf(modelOf(elements))).json()[u"reasons"_s].toArray();
    QCOMPARE(reasons.size(), 13);
    QCOMPARE(reasons.last().toString(), u"and 1988 more"_s);
}

void TestBackendAppearance::needsSessionForUploads()
{
    for (const QByteArray& path : {QByteArray("/skins/upload"), QByteArray("/models/upload")}) {
        const QByteArray type = path.startsWith("/skins") ? "image/png" : "application/json";
        QCOMPARE(raw_http::post(m_backend.port(), path, type, "x").status, 401);
        QCOMPARE(
            raw_http::post(m_backend.port(), path, type, "x", {raw_http::bearer("wrong")}).status,
            401);
        QCOMPARE(
            raw_http::post(m_backend.port(), path, "text/plain", "x", {raw_http::bearer(m_token)})
                .status,
            415);
    }
}

void TestBackendAppearance::keepsLookAcrossRename()
{
    QCOMPARE(uploadSkin(pngOf(picture(64, 64))).status, 200);
    const QByteArray before = skin().body;
    QCOMPARE(raw_http::postJson(m_backend.port(), "/auth/rename", {{u"username"_s, u"Sculptor"_s}},
                                m_token)
                 .status,
             200);
    QCOMPARE(skin().body, before);
}

void TestBackendAppearance::findsNothingUnderOddNames_data()
{
    QTest::addColumn<QByteArray>("path");
    for (const char* path :
         {"/skins/.png", "/skins/../tessellan.sqlite.png", "/skins/%2e%2e%2ftessellan.sqlite.png",
          "/skins/a%00b.png", "/skins/'%20OR%201=1--.png", "/models/..json",
          "/skins/00000000-0000-0000-0000-00000000000g.png", "/files/../tessellan.sqlite",
          "/files/aa/../../tessellan.sqlite", "/files/..%2ftessellan.sqlite"})
        QTest::newRow(path) << QByteArray(path);
}

void TestBackendAppearance::findsNothingUnderOddNames()
{
    QFETCH(QByteArray, path);
    const RawReply none = raw_http::get(m_backend.port(), path);
    QVERIFY2(none.status == 404, none.whole.constData());
    QVERIFY(!none.error().isEmpty());
}

void TestBackendAppearance::answersNotModified()
{
    QCOMPARE(uploadModel(bytesOf(modelOf({box()}))).status, 200);
    for (const QByteArray& path :
         {QByteArray("/skins/" + m_uuid + ".png"), QByteArray("/models/" + m_uuid + ".json")}) {
        const RawReply first = raw_http::get(m_backend.port(), path);
        const QByteArray etag = first.headers.value("etag");
        QVERIFY(etag.startsWith('"'));
        const RawReply again = raw_http::get(m_backend.port(), path, {{"If-None-Match", etag}});
        QCOMPARE(again.status, 304);
        QVERIFY(again.body.isEmpty());
        QCOMPARE(raw_http::get(m_backend.port(), path, {{"If-None-Match", "\"other\""}}).status,
                 200);
    }
}

QTEST_GUILESS_MAIN(TestBackendAppearance)
#include "tst_backend_appearance.moc"
