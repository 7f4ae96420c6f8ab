#pragma once

#include <QString>

class Catalogue;
class Router;
class Store;

namespace catalogue_api {

// /manifest.json, the published files, and the runtime archive. With a `filesOrigin` the runtime
// is answered by a redirect to it.
void addRoutes(Router& router, Catalogue& catalogue, const Store& store,
               const QString& filesOrigin);

} // namespace catalogue_api
