#include "preview/model_import.h"

#include "preview/box_baking.h"
#include "preview/png_image.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>

#include <optional>

namespace {

constexpr float unitsPerPixel = 0.0625F;
constexpr int defaultResolution = 64;
constexpr int maxTextureSide = 128;
constexpr qsizetype maxFloats = static_cast<qsizetype>(maxDrawnBoxes) * BakedModel::verticesPerBox *
                                BakedModel::floatsPerVertex;
constexpr qsizetype maxParts = maxDrawnBoxes;

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

std::optional<Point> pointFrom(const QJsonValue& value)
{
    const QJsonArray array = value.toArray();
    if (array.size() != 3)
        return {};
    return Point{coordinate(array[0]), coordinate(array[1]), coordinate(array[2])};
}

int vertexCount(const QList<float>& vertices)
{
    return static_cast<int>(vertices.size() / BakedModel::floatsPerVertex);
}

bool isOverLimit(const QList<float>& vertices, const BakedModel& model)
{
    return vertices.size() > maxFloats || model.parts.size() > maxParts;
}

QString partName(const QJsonObject& group)
{
    static const QMap<QString, QString> shortNames{
        {QStringLiteral("body"), QStringLiteral("torso")},
        {QStringLiteral("left_arm"), QStringLiteral("arm_l")},
        {QStringLiteral("right_arm"), QStringLiteral("arm_r")},
        {QStringLiteral("left_leg"), QStringLiteral("leg_l")},
        {QStringLiteral("right_leg"), QStringLiteral("leg_r")}};
    const QString name = group[u"name"].toString().trimmed().toLower().replace(u' ', u'_');
    return shortNames.value(name, name);
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

QImage embeddedTexture(const QJsonObject& root)
{
    const QString source = root[u"textures"].toArray().at(0).toObject()[u"source"].toString();
    const QLatin1StringView prefix("data:image/png;base64,");
    if (!source.startsWith(prefix))
        return {};
    return decodePng(QByteArray::fromBase64(QStringView(source).sliced(prefix.size()).toLatin1()));
}

// Sets refusal and stops at the first box that the preview cannot show.
QMap<QString, BbCube> cubesFrom(const QJsonArray& elements, QString& refusal)
{
    QMap<QString, BbCube> cubes;
    for (const auto& value : elements) {
        const QJsonObject element = value.toObject();
        const std::optional<Point> from = pointFrom(element[u"from"]);
        const std::optional<Point> to = pointFrom(element[u"to"]);
        // One box with a texture per face refuses the whole model: half a figure helps nobody.
        if (!element[u"box_uv"].toBool())
            refusal = QStringLiteral("every element must use box UV");
        else if (!from || !to)
            refusal = QStringLiteral("every element needs \"from\" and \"to\" of three numbers");
        if (!refusal.isEmpty())
            return {};
        BbCube cube{from->x, from->y, from->z, to->x, to->y, to->z};
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

QMap<QString, QJsonObject> groupsFrom(const QJsonArray& array)
{
    QMap<QString, QJsonObject> groups;
    for (const auto& value : array) {
        const QJsonObject group = value.toObject();
        groups.insert(group[u"uuid"].toString(), group);
    }
    return groups;
}

// The file's boxes in model, or the reason why it is refused.
QString bakeFile(const QJsonObject& root, BakedModel& model, QImage& texture)
{
    const QJsonArray elements = root[u"elements"].toArray();
    if (elements.isEmpty())
        return QStringLiteral("the model has no elements");
    const TextureSize size = textureSize(root);
    texture = embeddedTexture(root);
    if (qMin(size.width, size.height) < 1 || qMax(size.width, size.height) > maxTextureSide)
        return QStringLiteral("the texture must be between 1 and 128 pixels wide and high");
    QString refusal;
    const QMap<QString, BbCube> cubes = cubesFrom(elements, refusal);
    if (!refusal.isEmpty())
        return refusal;

    const QMap<QString, QJsonObject> groups = groupsFrom(root[u"groups"].toArray());
    const float uvScale = static_cast<float>(size.width) * 0.015625F;
    QList<float> vertices;
    for (const auto& node : root[u"outliner"].toArray())
        bbWalk(node, cubes, groups, vertices, size.width, size.height, uvScale, &model, 0, 0, 0);
    if (isOverLimit(vertices, model))
        return QStringLiteral("the model draws more than %1 boxes or groups").arg(maxDrawnBoxes);
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
    if (isOverLimit(vertices, *model))
        return;
    if (node.isString()) {
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
    QJsonObject group = groups.value(entry[u"uuid"].toString());
    if (group.isEmpty())
        group = entry;
    const Point origin = pointFrom(group[u"origin"]).value_or(Point{});
    ox += origin.x;
    oy += origin.y;
    oz += origin.z;
    ModelPart part{partName(group), ox * unitsPerPixel, oy * unitsPerPixel, oz * unitsPerPixel,
                   vertexCount(vertices)};
    // The group record's own children are not read: only the outliner nests, so a group that names
    // itself cannot make this endless, and the JSON parser's limit bounds the depth.
    for (const auto& child : entry[u"children"].toArray())
        bbWalk(child, cubes, groups, vertices, texW, texH, uvScale, model, ox, oy, oz);
    part.vertexCount = vertexCount(vertices) - part.firstVertex;
    model->parts.append(part);
}

ImportedModel importModel(const QByteArray& json)
{
    ImportedModel imported;
    const QJsonDocument document = QJsonDocument::fromJson(json);
    imported.refusal = document.isNull()
                           ? QStringLiteral("the file is not JSON")
                           : bakeFile(document.object(), imported.model, imported.texture);
    if (!imported.refusal.isEmpty())
        imported.model = {};
    return imported;
}
