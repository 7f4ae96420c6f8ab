#include "backend/api/catalogue_api.h"

#include "backend/api/file_reply.h"
#include "backend/api/router.h"
#include "backend/base/digest.h"
#include "backend/catalogue/catalogue.h"

using namespace Qt::StringLiterals;

namespace {

// "ab/ab12...": the store's own layout, so that any static server can stand in.
Outcome<Reply> storedFile(const Call& call, const Store& store, const QByteArray& parameter)
{
    const QByteArray sha256 = parameter.mid(3);
    if (!Digest::isDigest(sha256) || parameter.left(3) != sha256.left(2) + '/')
        return file_reply::none();
    return file_reply::make(
        call, store, sha256,
        {.contentType = "application/octet-stream",
         .headers = {{"Cache-Control", "public, max-age=31536000, immutable"}}});
}

Outcome<Reply> runtime(const Call& call, Catalogue& catalogue, const Store& store,
                       const QString& filesOrigin)
{
    const auto sha256 = catalogue.runtime();
    if (!sha256)
        return Refusal{404, u"No Java runtime is published here."_s};
    if (!filesOrigin.isEmpty()) {
        const QString target = filesOrigin + Store::addressOf(*sha256);
        return Reply{.status = 302,
                     .headers = {{"Location", target.toUtf8()}, {"Cache-Control", "no-cache"}}};
    }
    return file_reply::make(
        call, store, *sha256,
        {.contentType = "application/zip", .headers = {{"Cache-Control", "no-cache"}}});
}

} // namespace

namespace catalogue_api {

void addRoutes(Router& router, Catalogue& catalogue, const Store& store, const QString& filesOrigin)
{
    router.add({.method = "GET",
                .pattern = "/manifest.json",
                .handler = [&catalogue](const Call& call, const QByteArray&) {
                    const auto manifest = catalogue.manifest();
                    return reply::tagged(call, "application/json", manifest.json, manifest.etag,
                                         "no-cache");
                }});
    router.add({.method = "GET",
                .pattern = "/files/*",
                .handler =
                    [&store](const Call& call, const QByteArray& parameter) {
                        return storedFile(call, store, parameter);
                    },
                .work = Work::Files});
    router.add({.method = "GET",
                .pattern = "/v3/binary/latest/11/ga/linux/x64/jre/hotspot/normal/eclipse",
                .handler = [&catalogue, &store, filesOrigin](const Call& call, const QByteArray&) {
                    return runtime(call, catalogue, store, filesOrigin);
                }});
}

} // namespace catalogue_api
