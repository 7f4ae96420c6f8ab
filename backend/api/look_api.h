#pragma once

class Appearance;
class Router;
class Store;

namespace look_api {

// /skins/<uuid>.png, /models/<uuid>.json, and their uploads.
void addRoutes(Router& router, Appearance& appearance, const Store& store);

} // namespace look_api
