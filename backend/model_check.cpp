#include "backend/model_check.h"

#include "preview/model_import.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

constexpr int reasonsShown = 12;
constexpr int nameShown = 40;

Refusal refused(const QStringList& reasons)
{
    Refusal refusal{422, u"The model was refused"_s, reasons.mid(0, reasonsShown)};
    if (reasons.size() > reasonsShown)
        refusal.reasons.append(u"and %1 more"_s.arg(reasons.size() - reasonsShown));
    return refusal;
}

bool isTriple(const QJsonValue& value)
{
    const QJsonArray array = value.toArray();
    return array.size() == 3 && array[0].isDouble() && array[1].isDouble() && array[2].isDouble();
}

QStringList faultsOfElements(const QJsonArray& elements)
{
    QStringList faults;
    for (qsizetype i = 0; i < elements.size(); ++i) {
        const QJsonObject element = elements[i].toObject();
        const QString name = element[u"name"].toString().left(nameShown);
        const QString shown =
            name.isEmpty() ? u"element %1"_s.arg(i + 1) : u"element %1 (%2)"_s.arg(i + 1).arg(name);
        if (!element[u"box_uv"].toBool())
            faults.append(u"%1 does not use box UV"_s.arg(shown));
        for (const QString& corner : {u"from"_s, u"to"_s}) {
            if (!isTriple(element[corner]))
                faults.append(u"%1 needs \"%2\" of three numbers"_s.arg(shown, corner));
        }
    }
    return faults;
}

} // namespace

namespace model_check {

Outcome<QByteArray> accept(const QByteArray& upload)
{
    QJsonParseError parsed;
    const QJsonDocument document = QJsonDocument::fromJson(upload, &parsed);
    if (parsed.error == QJsonParseError::DeepNesting)
        return refused({u"it is nested too deep"_s});
    if (parsed.error != QJsonParseError::NoError)
        return refused({u"it is not JSON"_s});
    if (!document.isObject())
        return refused({u"it is not a JSON object"_s});

    QStringList reasons = faultsOfElements(document[u"elements"].toArray());
    // The preview has the last word: what it would not show is not kept.
    const QByteArray kept = document.toJson(QJsonDocument::Compact);
    const ImportedModel imported = importModel(kept);
    const bool told = imported.refusal.startsWith("every element"_L1);
    if (!imported.refusal.isEmpty() && !told)
        reasons.prepend(imported.refusal);
    if (!reasons.isEmpty())
        return refused(reasons);
    return kept;
}

} // namespace model_check
