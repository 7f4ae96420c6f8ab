#include "preview/model_import.h"
#include "tests/support/box_reference.h"
#include "tests/support/costs.h"
#include "tests/support/png_files.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTest>

#include <cmath>

namespace {

constexpr int boxVertices = 36;

// A model file from its parts, each a piece of JSON text.
QByteArray file(const QByteArray& elements, const QByteArray& outliner, const QByteArray& more = {})
{
    return "{\"elements\":[" + elements + "],\"outliner\":[" + outliner + "]" +
           (more.isEmpty() ? QByteArray() : "," + more) + "}";
}

QByteArray quoted(const QByteArray& text)
{
    return '"' + text + '"';
}

QByteArray cube(const QByteArray& uuid, const QByteArray& more = {})
{
    return R"({"box_uv":true,"from":[0,0,0],"to":[4,8,2],"uuid":)" + quoted(uuid) +
           (more.isEmpty() ? QByteArray() : "," + more) + "}";
}

QByteArray texture(const QByteArray& source)
{
    return R"("textures":[{"width":64,"height":64,"source":)" + quoted(source) + "}]";
}

QByteArray embedded(const QByteArray& png)
{
    return "data:image/png;base64," + png.toBase64();
}

// name:first+count of each part, in order.
QString partsOf(const BakedModel& model)
{
    QStringList texts;
    for (const ModelPart& part : model.parts)
        texts << QStringLiteral("%1:%2+%3")
                     .arg(part.name)
                     .arg(part.firstVertex)
                     .arg(part.vertexCount);
    return texts.join(u' ');
}

int vertexCount(const BakedModel& model)
{
    return static_cast<int>(model.vertices.size() / 5);
}

bool allFinite(const BakedModel& model)
{
    return std::all_of(model.vertices.cbegin(), model.vertices.cend(),
                       [](float value) { return std::isfinite(value); });
}

} // namespace

class TestModelImport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bakesOneBox()
    {
        const ImportedModel imported =
            importModel(file(cube("a", R"("uv_offset":[3,5],"inflate":0.5)"), R"("a")",
                             R"("resolution":{"width":64,"height":32})"));
        QCOMPARE(imported.refusal, QString());
        QVERIFY(imported.model.valid);
        QVERIFY(imported.texture.isNull());
        QCOMPARE(imported.model.textureWidth, 128);
        QCOMPARE(imported.model.textureHeight, 64);
        const box_reference::Box box{{0, 0, 0}, {4, 8, 2}, 6, 10, 0.5};
        QCOMPARE(box_reference::firstDifference(imported.model.vertices,
                                                box_reference::bake(box, 128, 64, 2)),
                 -1);
        QCOMPARE(partsOf(imported.model), QStringLiteral(":0+36"));
    }

    void sizesTheTexture_data()
    {
        QTest::addColumn<QByteArray>("keys");
        QTest::addColumn<QSize>("size");
        const auto row = [](const char* name, const char* keys, QSize size) {
            QTest::newRow(name) << QByteArray(keys) << size;
        };
        row("nothing said", "", {128, 128});
        row("width only", R"("resolution":{"width":16})", {32, 32});
        row("both", R"("resolution":{"width":64,"height":32})", {128, 64});
        row("width of zero", R"("resolution":{"width":0,"height":8})", {128, 16});
        row("negative height", R"("resolution":{"width":20,"height":-1})", {40, 40});
        row("words", R"("resolution":{"width":"NaN","height":"Infinity"})", {128, 128});
        row("no object", R"("resolution":[1,2])", {128, 128});
        row("fractions are cut", R"("resolution":{"width":10.9,"height":10.3})", {21, 20});
        row("texture", R"("textures":[{"width":64,"height":32}])", {64, 32});
        row("texture without sizes", R"("textures":[{}],"resolution":{"width":8})", {16, 16});
        row("texture's odd sizes", R"("textures":[{"width":1.5,"height":"9"}])", {128, 128});
        row("texture is no object", R"("textures":[7])", {128, 128});
        row("only the first texture", R"("textures":[{"width":1,"height":1},{"width":500}])",
            {1, 1});
        row("largest texture", R"("textures":[{"width":128,"height":128}])", {128, 128});
    }

    void sizesTheTexture()
    {
        QFETCH(QByteArray, keys);
        QFETCH(QSize, size);
        const ImportedModel imported = importModel(file(cube("a"), R"("a")", keys));
        QCOMPARE(imported.refusal, QString());
        QCOMPARE(QSize(imported.model.textureWidth, imported.model.textureHeight), size);
        const double scale = size.width() / 64.0;
        const box_reference::Box box{{0, 0, 0}, {4, 8, 2}};
        QCOMPARE(box_reference::firstDifference(
                     imported.model.vertices,
                     box_reference::bake(box, size.width(), size.height(), scale)),
                 -1);
    }

    void mapsTheSameWithAndWithoutATexture()
    {
        const QByteArray box = cube("a", R"("uv_offset":[8,4])");
        const QByteArray resolution = R"("resolution":{"width":64,"height":64})";
        const BakedModel without = importModel(file(box, R"("a")", resolution)).model;
        const BakedModel with =
            importModel(
                file(box, R"("a")", resolution + R"(,"textures":[{"width":64,"height":64}])"))
                .model;
        QCOMPARE(without.textureWidth, 128);
        QCOMPARE(with.textureWidth, 64);
        QCOMPARE(with.vertices, without.vertices);
    }

    void refuses_data()
    {
        QTest::addColumn<QByteArray>("json");
        const QByteArray good = cube("a");
        const auto row = [](const char* name, const QByteArray& json) {
            QTest::newRow(name) << json;
        };
        row("nothing", {});
        row("no JSON", "{\"elements\":");
        row("an array", "[" + good + "]");
        row("no elements", "{}");
        row("empty elements", file("", "\"a\""));
        row("elements are no array", R"({"elements":{"a":1}})");
        row("texture too wide", file(good, "", R"("textures":[{"width":129,"height":64}])"));
        row("texture too high", file(good, "", R"("textures":[{"width":64,"height":129}])"));
        row("texture of nothing", file(good, "", R"("textures":[{"width":0,"height":64}])"));
        row("negative texture", file(good, "", R"("textures":[{"width":64,"height":-3}])"));
        row("resolution too large", file(good, "", R"("resolution":{"width":64.5})"));
        row("resolution of a speck", file(good, "", R"("resolution":{"width":0.4})"));
        row("resolution beyond all", file(good, "", R"("resolution":{"width":1e308})"));
        row("texture per face", file(good + "," + R"({"from":[0,0,0],"to":[1,1,1]})", "\"a\""));
        row("box UV switched off",
            file(R"({"box_uv":false,"from":[0,0,0],"to":[1,1,1]})", "\"a\""));
        row("box UV as a word", file(R"({"box_uv":"true","from":[0,0,0],"to":[1,1,1]})", "\"a\""));
        row("two numbers in from", file(R"({"box_uv":true,"from":[0,0],"to":[1,1,1]})", "\"a\""));
        row("four numbers in to",
            file(R"({"box_uv":true,"from":[0,0,0],"to":[1,1,1,1]})", "\"a\""));
        row("no to", file(R"({"box_uv":true,"from":[0,0,0]})", "\"a\""));
        row("element is no object", file(good + ",5", "\"a\""));
    }

    void refuses()
    {
        QFETCH(QByteArray, json);
        const ImportedModel imported = importModel(json);
        QVERIFY(!imported.refusal.isEmpty());
        QVERIFY(!imported.model.valid);
        QVERIFY(imported.model.vertices.isEmpty());
        QVERIFY(imported.model.parts.isEmpty());
    }

    void keepsTheTextureOfARefusedModel()
    {
        const QByteArray png = png_files::square(16, qRgb(1, 2, 3));
        const ImportedModel imported =
            importModel(file(R"({"from":[0,0,0],"to":[1,1,1]})", "", texture(embedded(png))));
        QVERIFY(!imported.refusal.isEmpty());
        QCOMPARE(imported.texture.size(), QSize(16, 16));
    }

    void takesTheFirstEmbeddedTexture()
    {
        const QByteArray png = png_files::square(16, qRgb(1, 2, 3));
        const ImportedModel imported =
            importModel(file(cube("a"), R"("a")", texture(embedded(png))));
        QCOMPARE(imported.refusal, QString());
        QCOMPARE(imported.texture.pixelColor(0, 0), QColor(1, 2, 3));
    }

    void importsWithoutATextureThatDoesNotDecode_data()
    {
        const QByteArray png = png_files::square(16, qRgb(1, 2, 3));
        QTest::addColumn<QByteArray>("source");
        QTest::newRow("no base64") << QByteArray("data:image/png;base64,%%%not base64%%%");
        QTest::newRow("nothing encoded") << QByteArray("data:image/png;base64,");
        QTest::newRow("no picture") << QByteArray("data:image/png;base64,aGVsbG8=");
        QTest::newRow("cut") << QByteArray("data:image/png;base64," + png.first(60).toBase64());
        QTest::newRow("capital letters") << QByteArray("DATA:image/png;base64," + png.toBase64());
        QTest::newRow("another type") << QByteArray("data:image/jpeg;base64," + png.toBase64());
        QTest::newRow("an address") << QByteArray("file:///etc/passwd");
        QTest::newRow("a bomb") << embedded(png_files::withClaimedSize(png, 20000, 20000));
    }

    void importsWithoutATextureThatDoesNotDecode()
    {
        QFETCH(QByteArray, source);
        const ImportedModel imported = importModel(file(cube("a"), R"("a")", texture(source)));
        QCOMPARE(imported.refusal, QString());
        QVERIFY(imported.texture.isNull());
        QCOMPARE(vertexCount(imported.model), boxVertices);
    }

    void drawsNothingWithoutAnOutliner_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("no outliner") << QByteArray("{\"elements\":[" + cube("a") + "]}");
        QTest::newRow("empty outliner") << file(cube("a"), "");
        QTest::newRow("other names") << file(cube("a"), R"("b","A","")");
        QTest::newRow("no names") << file(cube("a"), "7,null,true,[\"a\"],{}");
    }

    void drawsNothingWithoutAnOutliner()
    {
        QFETCH(QByteArray, json);
        const ImportedModel imported = importModel(json);
        QCOMPARE(imported.refusal, QString());
        QVERIFY(imported.model.valid);
        QCOMPARE(partsOf(imported.model), QStringLiteral(":0+0"));
    }

    void drawsABoxAsOftenAsItIsListed()
    {
        const BakedModel model = importModel(file(cube("a"), R"("a","a")")).model;
        QCOMPARE(vertexCount(model), 2 * boxVertices);
        QCOMPARE(model.vertices.first(180), model.vertices.sliced(180));
    }

    void keepsTheLastOfTwoBoxesWithOneKey()
    {
        const QByteArray unnamed = R"({"box_uv":true,"from":[0,0,0],"to":[1,1,1]})";
        const QByteArray later = R"({"box_uv":true,"from":[0,0,0],"to":[16,16,16]})";
        const BakedModel model = importModel(file(unnamed + "," + later, R"("")")).model;
        QCOMPARE(vertexCount(model), boxVertices);
        QCOMPARE(*std::max_element(model.vertices.cbegin(), model.vertices.cend()), 1.0F);
    }

    void readsCornersAndOffsetsLeniently()
    {
        const QByteArray box =
            R"({"box_uv":true,"from":["x",null,0],"to":[16,16,16],"uv_offset":[1,2,3],)"
            R"("inflate":"much","uuid":"a"})";
        const BakedModel model = importModel(file(box, R"("a")")).model;
        const box_reference::Box expected{{0, 0, 0}, {16, 16, 16}};
        QCOMPARE(box_reference::firstDifference(model.vertices,
                                                box_reference::bake(expected, 128, 128, 2)),
                 -1);
    }

    void groupsBoxesIntoParts()
    {
        const QByteArray boxes = cube("a") + "," + cube("b") + "," + cube("c");
        const QByteArray groups =
            R"("groups":[{"uuid":"g","name":"head","origin":[0,24,0]},)"
            R"({"uuid":"h","name":"Hat","origin":[0,8,4],"children":["c","c"]}])";
        const QByteArray outliner =
            R"({"uuid":"g","children":["a",{"uuid":"h","children":["b"]},"a"]},"c")";
        const BakedModel model = importModel(file(boxes, outliner, groups)).model;
        QCOMPARE(partsOf(model), QStringLiteral("hat:36+36 head:0+108 :0+144"));
        // Origins add up; boxes stay where they are.
        QCOMPARE(model.parts[0].pivotY, 2.0F);
        QCOMPARE(model.parts[0].pivotZ, 0.25F);
        QCOMPARE(model.parts[1].pivotY, 1.5F);
        QCOMPARE(model.vertices.first(180), model.vertices.sliced(180, 180));
    }

    void usesTheOutlinersOwnKeysWithoutAGroup()
    {
        const QByteArray outliner =
            R"({"uuid":"unknown","name":"Left Leg","origin":[16,0,-16],"children":["a"]},)"
            R"({"name":"tail","origin":[1,2],"children":["a"]})";
        const BakedModel model = importModel(file(cube("a"), outliner)).model;
        QCOMPARE(partsOf(model), QStringLiteral("leg_l:0+36 tail:36+36 :0+72"));
        QCOMPARE(model.parts[0].pivotX, 1.0F);
        QCOMPARE(model.parts[0].pivotZ, -1.0F);
        QCOMPARE(model.parts[1].pivotX, 0.0F);
    }

    void prefersTheLastGroupOfOneKey()
    {
        const BakedModel model =
            importModel(file(cube("a"), R"({"uuid":"g","name":"own","children":["a"]})",
                             R"("groups":[{"uuid":"g","name":"one"},{"uuid":"g","name":"two"}])"))
                .model;
        QCOMPARE(partsOf(model), QStringLiteral("two:0+36 :0+36"));
    }

    void shortensPartNames_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("part");
        const auto row = [](const QString& name, const QString& part) {
            QTest::newRow(qPrintable(name)) << name << part;
        };
        row(QStringLiteral("Left Arm"), QStringLiteral("arm_l"));
        row(QStringLiteral("  Left Arm "), QStringLiteral("arm_l"));
        row(QStringLiteral("RIGHT_ARM"), QStringLiteral("arm_r"));
        row(QStringLiteral("left leg"), QStringLiteral("leg_l"));
        row(QStringLiteral("right leg"), QStringLiteral("leg_r"));
        row(QStringLiteral("Body"), QStringLiteral("torso"));
        row(QStringLiteral("torso"), QStringLiteral("torso"));
        row(QStringLiteral("Head"), QStringLiteral("head"));
        row(QStringLiteral("arm_l"), QStringLiteral("arm_l"));
        row(QStringLiteral("my  own part"), QStringLiteral("my__own_part"));
        row(QString(), QString());
    }

    void shortensPartNames()
    {
        QFETCH(QString, name);
        QFETCH(QString, part);
        const QByteArray group = "{\"name\":\"" + name.toUtf8() + "\",\"children\":[\"a\"]}";
        QCOMPARE(importModel(file(cube("a"), group)).model.parts.first().name, part);
    }

    // In files of fifty, of which each may be drawn whole however large the boxes are.
    void agreesWithThePlainFormulas()
    {
        QRandomGenerator random(20260508);
        for (int i = 0; i < 20; ++i)
            compareWithThePlainFormulas(random, 50);
    }

    void staysFiniteWithHugeAndTinyNumbers()
    {
        const QByteArray box =
            R"({"box_uv":true,"from":[-1e308,1e-320,-1e39],"to":[1e308,1e39,-1e-45],)"
            R"("uv_offset":[1e300,-1e300],"inflate":1e308,"uuid":"a"})";
        const QByteArray group =
            R"({"origin":[1e308,1e308,-1e308],"children":[{"origin":[1e308,1,1],"children":["a"]}]})";
        const BakedModel model = importModel(file(box, group)).model;
        QCOMPARE(vertexCount(model), boxVertices);
        QVERIFY(allFinite(model));
        QVERIFY(std::isfinite(model.parts.first().pivotX));
    }

    void walksGroupsAsDeepAsTheParserGoes()
    {
        const auto nested = [](int depth) {
            return file(cube("a"),
                        QByteArray(R"({"uuid":"g","children":[)").repeated(depth) + "\"a\"" +
                            QByteArray("]}").repeated(depth),
                        R"("groups":[{"uuid":"g","name":"head","children":[{"uuid":"g"}]}])");
        };
        const BakedModel deep = importModel(nested(500)).model;
        QCOMPARE(deep.parts.size(), 501);
        QCOMPARE(vertexCount(deep), boxVertices);
        QVERIFY(!importModel(nested(5000)).refusal.isEmpty());
    }

    void boundsWhatAFileMayDraw_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("boxes");
        QTest::addColumn<int>("parts");
        QByteArray boxes, names;
        for (int i = 0; i < 100'000; ++i) {
            const QByteArray key = QByteArray::number(i);
            boxes += (i ? "," : "") + cube(key);
            names += (i ? "," : "") + quoted(key);
        }
        const QByteArray speck =
            R"({"box_uv":true,"from":[0,16,0],"to":[0.01,16.01,0.01],"uuid":"a"})";
        const auto listed = [&speck](int times) {
            return file(speck, QByteArray("\"a\",").repeated(times).chopped(1));
        };
        const auto grouped = [](int times) {
            return file(cube("a"), QByteArray("{\"a\":1},").repeated(times).chopped(1));
        };
        QTest::newRow("100,000 boxes") << file(boxes, names) << -1 << 1;
        QTest::newRow("one box 10,000 times") << listed(10'000) << 10'000 << 1;
        QTest::newRow("one box at the limit") << listed(maxDrawnBoxes) << maxDrawnBoxes << 1;
        QTest::newRow("one box once more") << listed(maxDrawnBoxes + 1) << -maxDrawnBoxes << 1;
        QTest::newRow("one box a million times") << listed(1'000'000) << -maxDrawnBoxes << 1;
        QTest::newRow("a million groups") << grouped(1'000'000) << 0 << 1'000'001;
    }

    // A negative number of boxes: others were left out, and -1 stands for fewer than the limit.
    void boundsWhatAFileMayDraw()
    {
        QFETCH(QByteArray, json);
        QFETCH(int, boxes);
        QFETCH(int, parts);
        const qint64 memory = costs::peakBytes();
        const double start = costs::cpuSeconds();
        const ImportedModel imported = importModel(json);
        QVERIFY2(costs::cpuSeconds() - start < 5, "the sanitizers cost about five times");
        QVERIFY(costs::peakBytes() - memory < 700'000'000);
        QCOMPARE(imported.refusal, QString());
        QCOMPARE(imported.hasLeftBoxesOut, boxes < 0);
        QCOMPARE(imported.model.parts.size(), parts);
        if (boxes == -1)
            QVERIFY(imported.model.boxCount() > 50 && imported.model.boxCount() < maxDrawnBoxes);
        else
            QCOMPARE(imported.model.boxCount(), std::abs(boxes));
    }

    // The parts stay, each with what is left of it.
    void keepsThePartsOfWhatItLeavesOut()
    {
        const QByteArray huge =
            R"({"box_uv":true,"from":[-99,-99,-99],"to":[99,99,99],"uuid":"a"})";
        const QByteArray names = QByteArray(R"("a",)").repeated(60).chopped(1);
        const BakedModel model =
            importModel(file(huge, R"({"name":"one","children":[)" + names +
                                       R"(]},{"name":"two","children":[{"name":"in","children":[)" +
                                       names + R"(]},"a"]},{"name":"end","children":["a"]})"))
                .model;
        const int kept = vertexCount(model);
        QVERIFY(kept > 60 * boxVertices && kept < 120 * boxVertices);
        QCOMPARE(partsOf(model), QStringLiteral("one:0+2160 in:2160+%1 two:2160+%1 end:%2+0 :0+%2")
                                     .arg(kept - 2160)
                                     .arg(kept));
    }

    // Whatever it is made of, as long as it is of the size of a figure.
    void drawsDetailedFiguresWhole_data()
    {
        QTest::addColumn<int>("boxes");
        QTest::addColumn<double>("side"); // model pixels
        QTest::newRow("300 boxes") << 300 << 2.5;
        QTest::newRow("1,000 boxes") << 1000 << 1.9;
        QTest::newRow("2,000 boxes") << 2000 << 1.6;
    }

    void drawsDetailedFiguresWhole()
    {
        QFETCH(int, boxes);
        QFETCH(double, side);
        QRandomGenerator random(7);
        QByteArray elements, names;
        for (int i = 0; i < boxes; ++i) {
            QByteArray low, high;
            for (const double range : {16.0, 32.0, 8.0}) {
                const double at = random.generateDouble() * range - (range < 32 ? range / 2 : 0);
                low += (low.isEmpty() ? "" : ",") + QByteArray::number(at);
                high += (high.isEmpty() ? "" : ",") + QByteArray::number(at + side);
            }
            const QByteArray key = quoted(QByteArray::number(i));
            elements += (i ? "," : "") + QByteArray(R"({"box_uv":true,"from":[)") + low +
                        R"(],"to":[)" + high + R"(],"uuid":)" + key + '}';
            names += (i ? "," : "") + key;
        }
        const ImportedModel imported = importModel(file(elements, names));
        QVERIFY(!imported.hasLeftBoxesOut);
        QCOMPARE(imported.model.boxCount(), boxes);
    }

    void countsTheElements_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<int>("elements");
        QTest::newRow("no JSON") << QByteArray("<html>") << 0;
        QTest::newRow("none") << QByteArray("{}") << 0;
        QTest::newRow("refused") << QByteArray(R"({"elements":[1,2,3]})") << 3;
        QTest::newRow("taken") << file(cube("a") + ',' + cube("a"), R"("a")") << 2;
    }

    void countsTheElements()
    {
        QFETCH(QByteArray, json);
        QFETCH(int, elements);
        QCOMPARE(importModel(json).elements, elements);
    }

    void takesAnOriginOfThreeNumbersOnly_data()
    {
        QTest::addColumn<QByteArray>("origin");
        QTest::addColumn<float>("pivotX");
        QTest::newRow("three numbers") << QByteArray("[16,0,0]") << 1.0F;
        QTest::newRow("a text") << QByteArray(R"([16,"x",0])") << 0.0F;
        QTest::newRow("a null") << QByteArray("[16,0,null]") << 0.0F;
        QTest::newRow("four numbers") << QByteArray("[16,0,0,0]") << 0.0F;
        QTest::newRow("no array") << QByteArray(R"({"0":16})") << 0.0F;
    }

    void takesAnOriginOfThreeNumbersOnly()
    {
        QFETCH(QByteArray, origin);
        QFETCH(float, pivotX);
        const QByteArray keys = R"("name":"n","origin":)" + origin + '}';
        const BakedModel own = importModel(file(cube("a"), '{' + keys)).model;
        QCOMPARE(own.parts.first().pivotX, pivotX);
        const BakedModel group = importModel(file(cube("a"), R"({"uuid":"g"})",
                                                  R"("groups":[{"uuid":"g",)" + keys + ']'))
                                     .model;
        QCOMPARE(group.parts.first().pivotX, pivotX);
    }

    // A long name is kept beside the groups; the group loses nothing by that.
    void keepsTheOriginOfAGroupWithALongName()
    {
        const QByteArray name(101, 'n');
        const BakedModel model =
            importModel(
                file(cube("a"), R"({"uuid":"g","children":["a"]},{"uuid":"g"},{"name":0})",
                     R"("groups":[{"uuid":"g","origin":[16,0,0],"name":)" + quoted(name) + "}]"))
                .model;
        QCOMPARE(partsOf(model),
                 QStringLiteral("%1:0+36 %1:36+0 :36+0 :0+36").arg(QString::fromLatin1(name)));
        QCOMPARE(model.parts.first().pivotX, 1.0F);
    }

    // A number is no name, in a group as little as in the outliner.
    void namesNoPartByANumber()
    {
        const BakedModel model =
            importModel(file(cube("a"), R"({"name":0},{"uuid":"g"},{"uuid":"h"})",
                             R"("groups":[{"uuid":"g","name":1},{"uuid":"h","name":" 0"}])"))
                .model;
        QCOMPARE(partsOf(model), QStringLiteral(":0+0 :0+0 0:0+0 :0+0"));
    }

private:
    static void compareWithThePlainFormulas(QRandomGenerator& random, int count)
    {
        QByteArray boxes, names;
        QList<double> expected;
        const int side = 32;
        for (int i = 0; i < count; ++i) {
            const auto number = [&random] { return random.bounded(-320, 320) / 8.0; };
            const box_reference::Box box{{number(), number(), number()},
                                         {number(), number(), number()},
                                         number(),
                                         number(),
                                         number() / 8};
            const auto list = [](const double* v) -> QByteArray {
                return QByteArray::number(v[0]) + ',' + QByteArray::number(v[1]) + ',' +
                       QByteArray::number(v[2]);
            };
            const QByteArray key = QByteArray::number(i);
            boxes += (i ? "," : "") + QByteArray(R"({"box_uv":true,"uuid":)") + quoted(key) +
                     R"(,"from":[)" + list(box.low) + R"(],"to":[)" + list(box.high) +
                     R"(],"uv_offset":[)" + QByteArray::number(box.u) + ',' +
                     QByteArray::number(box.v) + R"(],"inflate":)" +
                     QByteArray::number(box.inflate) + '}';
            names += (i ? "," : "") + quoted(key);
            box_reference::Box scaled = box;
            scaled.u *= 0.5; // 32 texels for the 64 of the file
            scaled.v *= 0.5;
            expected += box_reference::bake(scaled, side, side, 0.5);
        }
        const ImportedModel imported =
            importModel(file(boxes, names, R"("textures":[{"width":32,"height":32}])"));
        QCOMPARE(imported.refusal, QString());
        QVERIFY(!imported.hasLeftBoxesOut);
        QCOMPARE(box_reference::firstDifference(imported.model.vertices, expected), -1);
    }
};

QTEST_GUILESS_MAIN(TestModelImport)
#include "tst_model_import.moc"
