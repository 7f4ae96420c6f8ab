#include "tests/hostile/models.h"

#include "tests/support/png_files.h"

namespace hostile_models {

namespace {

constexpr qsizetype frame = 200; // what stands around the piece that is repeated

const QByteArray box = R"({"box_uv":true,"from":[0,0,0],"to":[1,1,1],"uuid":"a"})";

QByteArray file(const QByteArray& elements, const QByteArray& outliner, const QByteArray& more = {})
{
    return R"({"elements":[)" + elements + R"(],"outliner":[)" + outliner + "]" + more + "}";
}

QByteArray often(const QByteArray& piece, qsizetype bytes)
{
    const QByteArray listed = piece + ',';
    return listed.repeated(qMax<qsizetype>(1, bytes / listed.size())).chopped(1);
}

// Pieces that differ in a number, which replaces a "#".
QByteArray counted(const QByteArray& piece, qsizetype bytes)
{
    QByteArray all;
    all.reserve(bytes);
    for (int i = 0; all.size() + piece.size() + 10 < bytes; ++i)
        all += (i ? "," : "") + QByteArray(piece).replace('#', QByteArray::number(i));
    return all;
}

QByteArray sharedGroup(const QByteArray& group, qsizetype bytes)
{
    return file(box, often(R"({"uuid":"g"})", bytes - group.size()),
                R"(,"groups":[{"uuid":"g",)" + group + "}]");
}

QByteArray sharedName(qsizetype bytes)
{
    return sharedGroup(R"("name":")" + QByteArray(bytes / 2, 'N') + '"', bytes - frame);
}

QByteArray sharedOrigin(qsizetype bytes)
{
    return sharedGroup(R"("origin":[)" + often("7", bytes / 2) + ']', bytes - frame);
}

QByteArray sharedRecord(qsizetype bytes)
{
    return sharedGroup(counted(R"("k#":0)", bytes / 2), bytes - frame);
}

QByteArray alikeKeys(qsizetype bytes)
{
    const QByteArray key = '"' + QByteArray(500, 'k') + "#\"";
    return file(
        counted(R"({"box_uv":true,"from":[0,0,0],"to":[1,1,1],"uuid":)" + key + '}', bytes / 2),
        counted(key, bytes / 2 - frame));
}

QByteArray deepChains(qsizetype bytes)
{
    constexpr int depth = 500;
    const QByteArray chain = QByteArray(R"({"name":"n","children":[)").repeated(depth) + R"("a")" +
                             QByteArray("]}").repeated(depth);
    return file(box, often(chain, bytes - frame));
}

QByteArray listedOften(qsizetype bytes)
{
    return file(box, often(R"("a")", bytes - frame));
}

QByteArray unknownNames(qsizetype bytes)
{
    return file(box, often(R"("")", bytes - frame));
}

QByteArray childrenOfNothing(qsizetype bytes)
{
    return file(box, R"({"name":"n","children":[)" + often("0", bytes - frame) + "]}");
}

QByteArray manyEntries(qsizetype bytes)
{
    return file(box, often(R"({"":0})", bytes - frame));
}

QByteArray manyLongNames(qsizetype bytes)
{
    return file(box, often(R"({"name":")" + QByteArray(1000, ' ') + QByteArray(1000, 'N') + R"("})",
                           bytes - frame));
}

QByteArray zeros(qsizetype bytes)
{
    return file(often("0", bytes - frame), {});
}

QByteArray oneBoxThenZeros(qsizetype bytes)
{
    return file(box + ',' + often("0", bytes - frame), {});
}

QByteArray emptyGroups(qsizetype bytes)
{
    return file(box, {}, R"(,"groups":[)" + often("{}", bytes - frame) + ']');
}

QByteArray manyGroups(qsizetype bytes)
{
    return file(box, {}, R"(,"groups":[)" + counted(R"({"uuid":"#"})", bytes - frame) + ']');
}

QByteArray manyKeys(qsizetype bytes)
{
    return file(counted(R"({"k#":0})", 1000), {}, ',' + counted(R"("k#":0)", bytes - 1200));
}

QByteArray elementOfManyKeys(qsizetype bytes)
{
    return file(box.chopped(1) + ',' + counted(R"("k#":0)", bytes - frame) + '}', R"("a")");
}

QByteArray oneKeyOften(qsizetype bytes)
{
    return file(box, {}, ',' + often(R"("groups":0)", bytes - frame));
}

QByteArray manyTextures(qsizetype bytes)
{
    return file(box, R"("a")", R"(,"textures":[)" + often(R"({"width":9})", bytes - frame) + ']');
}

QByteArray textured(const QByteArray& base64)
{
    return file(box, R"("a")",
                R"(,"textures":[{"width":64,"height":64,"source":"data:image/png;base64,)" +
                    base64 + R"("}])");
}

QByteArray hugeTexture(qsizetype bytes)
{
    return textured(QByteArray(bytes - 2 * frame, 'A'));
}

QByteArray bombTexture(qsizetype bytes)
{
    const QByteArray png = png_files::textBomb();
    return textured(png.toBase64().first(qMin(bytes - 2 * frame, png.toBase64().size())));
}

QByteArray manyBoxes(qsizetype bytes)
{
    return file(counted(R"({"box_uv":true,"from":[#,0,0],"to":[0,1,#],"uuid":"#"})", bytes - frame),
                {});
}

QByteArray longNumbers(qsizetype bytes)
{
    return file(often(R"({"box_uv":true,"from":[1e300,-1e300,1e-300],"to":[1e300,1e300,1e300]})",
                      bytes - frame),
                R"("")");
}

QByteArray foreignLetters(qsizetype bytes)
{
    return file(box, often(R"({"name":"\u0130\u00df\ud83d\ude00"})", bytes - frame));
}

QByteArray number(double value)
{
    return QByteArray::number(value, 'g', 9);
}

// 20,000 cubes around a place in model units, from one size to another.
QByteArray cubes(double x, double y, double z, double from, double to)
{
    constexpr int count = 20'000;
    QByteArray elements, names;
    for (int i = 0; i < count; ++i) {
        const double half = from + (to - from) * i / count;
        const auto corner = [&](double offset) -> QByteArray {
            return '[' + number(16 * (x + offset)) + ',' + number(16 * (y + offset)) + ',' +
                   number(16 * (z + offset)) + ']';
        };
        const QByteArray key = '"' + QByteArray::number(i) + '"';
        elements += (i ? "," : "") + QByteArray(R"({"box_uv":true,"from":)") + corner(-half) +
                    R"(,"to":)" + corner(half) + R"(,"uuid":)" + key + '}';
        names += (i ? "," : "") + key;
    }
    return file(elements, names);
}

} // namespace

QList<Kind> ofWork()
{
    return {{"a long name shared by all groups", sharedName},
            {"a long origin shared by all groups", sharedOrigin},
            {"a record of many keys shared by all groups", sharedRecord},
            {"long keys that differ at the end", alikeKeys},
            {"deep chains", deepChains},
            {"one box listed often", listedOften},
            {"unknown boxes listed often", unknownNames},
            {"children that are nothing", childrenOfNothing},
            {"many entries", manyEntries},
            {"many long names", manyLongNames},
            {"elements of zeros", zeros},
            {"a box and zeros", oneBoxThenZeros},
            {"empty groups", emptyGroups},
            {"many groups", manyGroups},
            {"many keys", manyKeys},
            {"an element of many keys", elementOfManyKeys},
            {"one key often", oneKeyOften},
            {"many textures", manyTextures},
            {"a huge texture", hugeTexture},
            {"a texture that is a bomb", bombTexture},
            {"many boxes that nothing draws", manyBoxes},
            {"long numbers", longNumbers},
            {"foreign letters", foreignLetters}};
}

// Each larger than the one before: no box hides what comes after it.
QList<Kind> ofPicture()
{
    return {
        {"specks", [](qsizetype) { return cubes(0, 1, 0, 0.001, 0.001); }},
        {"small boxes in the middle", [](qsizetype) { return cubes(0, 1, 0, 0.02, 0.03); }},
        {"large boxes", [](qsizetype) { return cubes(0, 1, 0, 0.5, 0.7); }},
        {"tiny boxes before the camera", [](qsizetype) { return cubes(0, 1, 1.08, 0.005, 0.006); }},
        {"boxes before the camera", [](qsizetype) { return cubes(0, 1, 0.8, 0.29, 0.3); }},
        {"boxes before the farthest camera", [](qsizetype) { return cubes(0, 1, 7.5, 0.3, 0.35); }},
        {"rooms around the camera", [](qsizetype) { return cubes(0, 1, 0, 90, 50); }},
        {"boxes inside out", [](qsizetype) { return cubes(0, 1, 0, -0.5, -0.7); }},
        {"worlds", [](qsizetype) { return cubes(0, 1, 0, 1e7, 1e8); }}};
}

} // namespace hostile_models
