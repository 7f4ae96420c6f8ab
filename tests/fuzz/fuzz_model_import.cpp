#include "preview/model_import.h"
#include "tests/fuzz/fuzz.h"

#include <algorithm>
#include <cmath>

// Whatever the bytes: a refused model is empty, an accepted one is whole triangles of finite
// numbers, within the limits, and its parts lie inside it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const ImportedModel imported = importModel(fuzz::bytes(data, size));
    const BakedModel& model = imported.model;
    const qsizetype vertices = model.vertices.size() / BakedModel::floatsPerVertex;
    fuzz::require(model.valid == imported.refusal.isEmpty());
    fuzz::require(model.valid || (model.vertices.isEmpty() && model.parts.isEmpty()));
    fuzz::require(vertices % BakedModel::verticesPerBox == 0);
    fuzz::require(vertices <= static_cast<qsizetype>(maxDrawnBoxes) * BakedModel::verticesPerBox);
    fuzz::require(std::ranges::all_of(model.vertices, [](float f) { return std::isfinite(f); }));
    for (const ModelPart& part : model.parts) {
        fuzz::require(part.firstVertex >= 0 && part.vertexCount >= 0);
        fuzz::require(part.firstVertex + part.vertexCount <= vertices);
    }
    return 0;
}
