#include "backend/looks/look.h"

#include "backend/looks/model_check.h"
#include "backend/looks/skin_check.h"

using namespace Qt::StringLiterals;

constinit const std::array<Look, 2> allLooks{{
    // A 128x128 picture has 64 KiB before compression; what editors add to it fits several times.
    {.name = "skin"_L1,
     .uploadPath = "/skins/upload"_L1,
     .pattern = "/skins/*.png"_L1,
     .contentType = "image/png"_L1,
     .sizeLimit = 512 * 1024,
     .accept = &skin_check::accept},
    {.name = "model"_L1,
     .uploadPath = "/models/upload"_L1,
     .pattern = "/models/*.json"_L1,
     .contentType = "application/json"_L1,
     .sizeLimit = 2 * 1024 * 1024,
     .accept = &model_check::accept},
}};
