#include "preview/model_import.h"

#include "preview/png_image.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

QByteArray embeddedPng(const QJsonObject& root)
{
    const QString source = root[u"textures"].toArray().at(0).toObject()[u"source"].toString();
    const QLatin1StringView prefix("data:image/png;base64,");
    if (!source.startsWith(prefix))
        return {};
    return QByteArray::fromBase64(QStringView(source).sliced(prefix.size()).toLatin1());
}

} // namespace

ImportedModel importModel(const QByteArray& json)
{
    const QJsonDocument document = QJsonDocument::fromJson(json);
    ImportedModel imported{importShape(document), {}};
    if (imported.elements > 0)
        imported.texture = decodePng(embeddedPng(document.object()));
    return imported;
}
