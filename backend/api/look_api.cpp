#include "backend/api/look_api.h"

#include "backend/api/file_reply.h"
#include "backend/api/router.h"
#include "backend/looks/appearance.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

bool isUuid(const QByteArray& text)
{
    static const QRegularExpression form(
        u"^[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\z"_s);
    return form.match(QString::fromLatin1(text)).hasMatch();
}

Outcome<Reply> download(const Look& look, Appearance& appearance, const Store& store,
                        const Call& call, const QByteArray& uuid)
{
    const auto find = [&] {
        return isUuid(uuid) ? appearance.find(look, QString::fromLatin1(uuid)) : std::nullopt;
    };
    for (auto sha256 = find(); sha256;) {
        auto reply = file_reply::make(call, store, *sha256,
                                      {.contentType = QByteArray(look.contentType.data()),
                                       .headers = {{"Cache-Control", "no-cache"}}});
        // It may have been replaced, and gone, in between.
        auto current = reply ? sha256 : find();
        if (current == sha256)
            return reply;
        sha256 = std::move(current);
    }
    return Refusal{404, u"No %1 is uploaded."_s.arg(look.name)};
}

Outcome<Reply> upload(const Look& look, Appearance& appearance, const Call& call)
{
    if (const auto admitted = appearance.admit(call.account.uuid, call.body.size()); !admitted)
        return admitted.refusal();
    const auto accepted = look.accept(call.body);
    if (!accepted)
        return accepted.refusal();
    if (const auto set = appearance.set(look, call.account.uuid, *accepted); !set)
        return set.refusal();
    return reply::json({});
}

} // namespace

namespace look_api {

void addRoutes(Router& router, Appearance& appearance, const Store& store)
{
    for (const Look& look : allLooks) {
        router.add({.method = "POST",
                    .pattern = look.uploadPath.data(),
                    .handler =
                        [&look, &appearance](const Call& call, const QByteArray&) {
                            return upload(look, appearance, call);
                        },
                    .work = Work::Writing,
                    .needsSession = true,
                    .bodyType = look.contentType.data(),
                    .bodyLimit = look.sizeLimit});
        router.add(
            {.method = "GET",
             .pattern = look.pattern.data(),
             .handler = [&look, &appearance, &store](const Call& call, const QByteArray& uuid) {
                 return download(look, appearance, store, call, uuid);
             }});
    }
}

} // namespace look_api
