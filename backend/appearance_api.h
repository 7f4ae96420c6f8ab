#pragma once

class Appearance;
class Router;
class Store;

namespace appearance_api {

// /skins/<uuid>.png, /models/<uuid>.json, and their uploads.
void addRoutes(Router& router, Appearance& appearance, const Store& store);

} // namespace appearance_api
