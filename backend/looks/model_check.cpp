#include "backend/looks/model_check.h"

#include "preview/model_shape.h"

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;

namespace {

constexpr qsizetype reasonsShown = 12;
constexpr int nameShown = 40;

// The first reasons in words, the others in number alone: a file of two megabytes can give a
// million.
class Reasons
{
public:
    template <typename Words>
    void add(const Words& words)
    {
        if (++m_count <= reasonsShown)
            m_shown.append(words());
    }

    bool isEmpty() const { return m_count == 0; }

    Refusal refusal() const
    {
        Refusal refusal{422, u"The model was refused"_s, m_shown};
        if (m_count > reasonsShown)
            refusal.reasons.append(u"and %1 more"_s.arg(m_count - reasonsShown));
        return refusal;
    }

private:
    QStringList m_shown;
    qsizetype m_count = 0;
};

Refusal refused(const QString& reason)
{
    Reasons reasons;
    reasons.add([&] { return reason; });
    return reasons.refusal();
}

bool isTriple(const QJsonValue& value)
{
    const QJsonArray array = value.toArray();
    return array.size() == 3 && array[0].isDouble() && array[1].isDouble() && array[2].isDouble();
}

QString shownName(const QJsonObject& element, qsizetype index)
{
    const QString name = element[u"name"].toString().left(nameShown);
    return name.isEmpty() ? u"element %1"_s.arg(index + 1)
                          : u"element %1 (%2)"_s.arg(index + 1).arg(name);
}

void addReasonsOfElements(const QJsonArray& elements, Reasons& reasons)
{
    qsizetype index = 0;
    for (const auto& value : elements) {
        const QJsonObject element = value.toObject();
        if (!element[u"box_uv"].toBool())
            reasons.add([&] { return u"%1 does not use box UV"_s.arg(shownName(element, index)); });
        for (const QStringView corner : {u"from", u"to"}) {
            if (!isTriple(element[corner]))
                reasons.add([&] {
                    return u"%1 needs \"%2\" of three numbers"_s.arg(shownName(element, index),
                                                                     corner);
                });
        }
        ++index;
    }
}

} // namespace

namespace model_check {

Outcome<QByteArray> accept(const QByteArray& upload)
{
    QJsonParseError parsed;
    const QJsonDocument document = QJsonDocument::fromJson(upload, &parsed);
    if (parsed.error == QJsonParseError::DeepNesting)
        return refused(u"it is nested too deep"_s);
    if (parsed.error != QJsonParseError::NoError)
        return refused(u"it is not JSON"_s);
    if (!document.isObject())
        return refused(u"it is not a JSON object"_s);

    // What the preview would not show is not kept.
    const ImportedShape imported = importShape(document);
    Reasons reasons;
    if (!imported.refusal.isEmpty() && !imported.refusal.startsWith("every element"_L1))
        reasons.add([&] { return imported.refusal; });
    if (imported.hasLeftBoxesOut)
        reasons.add([] { return u"the model draws more boxes than the launcher can show"_s; });
    addReasonsOfElements(document[u"elements"].toArray(), reasons);
    if (!reasons.isEmpty())
        return reasons.refusal();
    // Some numbers are longer when they are written again.
    const QByteArray compact = document.toJson(QJsonDocument::Compact);
    return compact.size() <= upload.size() ? compact : upload;
}

} // namespace model_check
