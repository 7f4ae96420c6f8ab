#include "backend/appearance_api.h"

#include "backend/appearance.h"
#include "backend/file_reply.h"
#include "backend/model_check.h"
#include "backend/router.h"
#include "backend/skin_check.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

// A 128x128 picture has 64 KiB before compression; what editors add to it fits several times.
constexpr qint64 skinLimit = 512 * 1024;
constexpr qint64 modelLimit = 2 * 1024 * 1024;

using Kind = Appearance::Kind;

bool isUuid(const QByteArray& text)
{
    static const QRegularExpression form(
        u"^[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\z"_s);
    return form.match(QString::fromLatin1(text)).hasMatch();
}

Reply download(Kind kind, Appearance& appearance, const Store& store, const Call& call,
               const QByteArray& uuid)
{
    const auto sha256 =
        isUuid(uuid) ? appearance.find(kind, QString::fromLatin1(uuid)) : std::nullopt;
    if (!sha256)
        return reply::refused(
            {404, kind == Kind::Skin ? u"No skin is uploaded."_s : u"No model is uploaded."_s});
    const bool isSkin = kind == Kind::Skin;
    return file_reply::make(call, store, *sha256,
                            {.contentType = isSkin ? "image/png" : "application/json",
                             .headers = {{"Cache-Control", "no-cache"}}});
}

Reply upload(Kind kind, Appearance& appearance, const Call& call)
{
    const auto accepted =
        kind == Kind::Skin ? skin_check::accept(call.body) : model_check::accept(call.body);
    if (!accepted)
        return reply::refused(accepted.refusal());
    appearance.set(kind, call.account, *accepted);
    return reply::json({});
}

void addKind(Router& router, Kind kind, Appearance& appearance, const Store& store)
{
    const bool isSkin = kind == Kind::Skin;
    router.add({.method = "POST",
                .pattern = isSkin ? "/skins/upload" : "/models/upload",
                .handler =
                    [kind, &appearance](const Call& call, const QByteArray&) {
                        return upload(kind, appearance, call);
                    },
                .work = Work::Writing,
                .needsSession = true,
                .bodyType = isSkin ? "image/png" : "application/json",
                .bodyLimit = isSkin ? skinLimit : modelLimit});
    router.add({.method = "GET",
                .pattern = isSkin ? "/skins/*.png" : "/models/*.json",
                .handler = [kind, &appearance, &store](const Call& call, const QByteArray& uuid) {
                    return download(kind, appearance, store, call, uuid);
                }});
}

} // namespace

namespace appearance_api {

void addRoutes(Router& router, Appearance& appearance, const Store& store)
{
    addKind(router, Kind::Skin, appearance, store);
    addKind(router, Kind::Model, appearance, store);
}

} // namespace appearance_api
