#include "preview/png_image.h"
#include "tests/fuzz/fuzz.h"

// Whatever the bytes: no image, or one within the limit.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QImage image = decodePng(fuzz::bytes(data, size));
    fuzz::require(image.isNull() || qMax(image.width(), image.height()) <= maxPngSide);
    return 0;
}
