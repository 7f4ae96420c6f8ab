#include "preview/model_shape.h"

#include "preview/box_baking.h"
#include "preview/draw_budget.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>

#include <utility>

namespace {

constexpr float unitsPerPixel = 0.0625F;
constexpr int defaultResolution = 64;
constexpr int maxTextureSide = 128;
constexpr qsizetype floatsPerBox =
    static_cast<qsizetype>(BakedModel::verticesPerBox) * BakedModel::floatsPerVertex;

// Far outside the camera's reach, and every sum and product of a few of them stays finite.
float coordinate(const QJsonValue& value)
{
    constexpr double limit = 1e9;
    return static_cast<float>(qBound(-limit, value.toDouble(), limit));
}

struct Point
{
    float x = 0, y = 0, z = 0;
};

bool hasThreeEntries(const QJsonValue& value)
{
    return value.isArray() && value.toArray().size() == 3;
}

Point pointFrom(const QJsonValue& value)
{
    const QJsonArray array = value.toArray();
    return {coordinate(array[0]), coordinate(array[1]), coordinate(array[2])};
}

// Three numbers; anything else counts as absent.
Point originOf(const QJsonObject& group)
{
    const QJsonValue origin = group[u"origin"];
    if (!hasThreeEntries(origin))
        return {};
    const QJsonArray array = origin.toArray();
    const bool areNumbers = array[0].isDouble() && array[1].isDouble() && array[2].isDouble();
    return areNumbers ? pointFrom(origin) : Point{};
}

int vertexCount(const QList<float>& vertices)
{
    return static_cast<int>(vertices.size() / BakedModel::floatsPerVertex);
}

QString partName(const QString& groupName)
{
    const QString name = groupName.trimmed().toLower().replace(u' ', u'_');
    static const QHash<QString, QString> shortNames{
        {QStringLiteral("body"), QStringLiteral("torso")},
        {QStringLiteral("left_arm"), QStringLiteral("arm_l")},
        {QStringLiteral("right_arm"), QStringLiteral("arm_r")},
        {QStringLiteral("left_leg"), QStringLiteral("leg_l")},
        {QStringLiteral("right_leg"), QStringLiteral("leg_r")}};
    constexpr qsizetype longestShortened = 9;
    return name.size() > longestShortened ? name : shortNames.value(name, name);
}

// Many outliner entries may share a group, and its name may be as long as the file: each part
// getting a copy would fill the memory. So in place of such a group the walk gets one with a number
// for a name, and the names are put in afterwards. No name that was made for a part holds a blank.
constexpr qsizetype longestCopiedName = 100;

QString numberedName(int number)
{
    return u' ' + QString::number(number);
}

struct TextureSize
{
    int width = defaultResolution;
    int height = defaultResolution;
};

// Two texels to a pixel of the nominal size, unless a texture says how large it is.
TextureSize textureSize(const QJsonObject& root)
{
    const auto positive = [](const QJsonValue& value, double otherwise) {
        const double number = value.toDouble(otherwise);
        return number > 0 ? number : otherwise;
    };
    const auto doubled = [](double size) {
        return static_cast<int>(2 * qMin(size, double(maxTextureSide)));
    };
    const QJsonObject resolution = root[u"resolution"].toObject();
    const double width = positive(resolution[u"width"], defaultResolution);
    const double height = positive(resolution[u"height"], width);
    TextureSize size{doubled(width), doubled(height)};
    const QJsonArray textures = root[u"textures"].toArray();
    if (!textures.isEmpty()) {
        const QJsonObject first = textures[0].toObject();
        size.width = first[u"width"].toInt(size.width);
        size.height = first[u"height"].toInt(size.height);
    }
    return size;
}

// Sets refusal and stops at the first box that the preview cannot show.
QMap<QString, BbCube> cubesFrom(const QJsonArray& elements, QString& refusal)
{
    QMap<QString, BbCube> cubes;
    for (const auto& value : elements) {
        const QJsonObject element = value.toObject();
        const QJsonValue low = element[u"from"];
        const QJsonValue high = element[u"to"];
        // One box with a texture per face refuses the whole model: half a figure helps nobody.
        if (!element[u"box_uv"].toBool())
            refusal = QStringLiteral("every element must use box UV");
        else if (!hasThreeEntries(low) || !hasThreeEntries(high))
            refusal = QStringLiteral("every element needs \"from\" and \"to\" of three numbers");
        if (!refusal.isEmpty())
            return {};
        const Point from = pointFrom(low);
        const Point to = pointFrom(high);
        BbCube cube{from.x, from.y, from.z, to.x, to.y, to.z};
        const QJsonArray offset = element[u"uv_offset"].toArray();
        if (offset.size() == 2) {
            cube.u = coordinate(offset[0]);
            cube.v = coordinate(offset[1]);
        }
        cube.inflate = coordinate(element[u"inflate"]);
        cubes.insert(element[u"uuid"].toString(), cube);
    }
    return cubes;
}

struct Groups
{
    QMap<QString, QJsonObject> records; // by uuid
    QStringList names;                  // by the numbers in the records

    explicit Groups(const QJsonArray& array)
    {
        for (const auto& value : array) {
            const QJsonObject group = value.toObject();
            records.insert(group[u"uuid"].toString(), group);
        }
        for (QJsonObject& record : records) {
            const QJsonValue name = std::as_const(record)[u"name"];
            if (!name.isDouble() && name.toString().size() <= longestCopiedName)
                continue;
            names.append(partName(name.toString()));
            record = {{QStringLiteral("name"), names.size() - 1},
                      {QStringLiteral("origin"), std::as_const(record)[u"origin"]}};
        }
    }

    void nameParts(QList<ModelPart>& parts) const
    {
        for (ModelPart& part : parts) {
            if (part.name.startsWith(u' '))
                part.name = names[QStringView(part.name).sliced(1).toInt()];
        }
    }
};

// Leaves out what would take too long to draw; true if there was any such box.
bool leaveOutWhatCostsTooMuch(QList<float>& vertices, QList<ModelPart>& parts)
{
    const qsizetype boxes = vertices.size() / floatsPerBox;
    const qsizetype kept = qMin(affordableBoxes(vertices), qsizetype{maxDrawnBoxes});
    if (kept == boxes)
        return false;
    vertices.resize(kept * floatsPerBox);
    const int end = vertexCount(vertices);
    for (ModelPart& part : parts) {
        const int last = qMin(part.firstVertex + part.vertexCount, end);
        part.firstVertex = qMin(part.firstVertex, end);
        part.vertexCount = last - part.firstVertex;
    }
    return true;
}

// The file's boxes, or the reason why it is refused.
QString bakeFile(const QJsonObject& root, ImportedShape& imported)
{
    const QJsonArray elements = root[u"elements"].toArray();
    imported.elements = elements.size();
    if (elements.isEmpty())
        return QStringLiteral("the model has no elements");
    const TextureSize size = textureSize(root);
    if (qMin(size.width, size.height) < 1 || qMax(size.width, size.height) > maxTextureSide)
        return QStringLiteral("the texture must be between 1 and 128 pixels wide and high");
    QString refusal;
    const QMap<QString, BbCube> cubes = cubesFrom(elements, refusal);
    if (!refusal.isEmpty())
        return refusal;

    const Groups groups(root[u"groups"].toArray());
    const float uvScale = static_cast<float>(size.width) * 0.015625F;
    BakedModel& model = imported.model;
    QList<float> vertices;
    for (const auto& node : root[u"outliner"].toArray())
        bbWalk(node, cubes, groups.records, vertices, size.width, size.height, uvScale, &model, 0,
               0, 0);
    groups.nameParts(model.parts);
    imported.hasLeftBoxesOut = leaveOutWhatCostsTooMuch(vertices, model.parts);
    model.parts.append({QString(), 0, 0, 0, 0, vertexCount(vertices)});
    model.vertices = vertices;
    model.textureWidth = size.width;
    model.textureHeight = size.height;
    model.valid = true;
    return {};
}

} // namespace

void bbWalk(const QJsonValue& node, const QMap<QString, BbCube>& cubes,
            const QMap<QString, QJsonObject>& groups, QList<float>& vertices, int texW, int texH,
            float uvScale, BakedModel* model, float ox, float oy, float oz)
{
    if (node.isString()) {
        // One more than may be drawn, for it to be known that there was more.
        if (vertices.size() / floatsPerBox > maxDrawnBoxes)
            return;
        const auto found = cubes.constFind(node.toString());
        if (found == cubes.cend())
            return;
        const BbCube& c = *found;
        bakeScaledBox(vertices, texW, texH, c.fromX, c.fromY, c.fromZ, c.toX, c.toY, c.toZ,
                      c.u * uvScale, c.v * uvScale, c.inflate, uvScale);
        return;
    }
    const QJsonObject entry = node.toObject();
    if (entry.isEmpty())
        return;
    const QJsonObject record = groups.value(entry[u"uuid"].toString());
    const QJsonObject group = record.isEmpty() ? entry : record;
    const QJsonValue name = group[u"name"];
    const Point origin = originOf(group);
    ox += origin.x;
    oy += origin.y;
    oz += origin.z;
    ModelPart part{!record.isEmpty() && name.isDouble() ? numberedName(name.toInt())
                                                        : partName(name.toString()),
                   ox * unitsPerPixel, oy * unitsPerPixel, oz * unitsPerPixel,
                   vertexCount(vertices)};
    // The group record's own children are not read: only the outliner nests, so a group that names
    // itself cannot make this endless, and the JSON parser's limit bounds the depth.
    for (const auto& child : entry[u"children"].toArray())
        bbWalk(child, cubes, groups, vertices, texW, texH, uvScale, model, ox, oy, oz);
    part.vertexCount = vertexCount(vertices) - part.firstVertex;
    model->parts.append(part);
}

ImportedShape importShape(const QJsonDocument& document)
{
    ImportedShape imported;
    imported.refusal = document.isNull() ? QStringLiteral("the file is not JSON")
                                         : bakeFile(document.object(), imported);
    if (!imported.refusal.isEmpty())
        imported.model = {};
    return imported;
}
