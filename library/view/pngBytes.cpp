// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"
#include "library/view/viewPicture.hpp"

#include <png.h>

namespace Tidewatch {

std::string pngBytes(const ViewImage& image) {
    // The simplified interface of libpng, which does not use setjmp.
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = image.width;
    png.height = image.height;
    png.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png);
    std::string bytes(size, '\0');
    constexpr int asItIs = 0;
    if (png_image_write_to_memory(&png, bytes.data(), &size, asItIs, image.pixels.data(), 0, nullptr) == 0)
        throw Anchor::LimitError(std::string("the picture cannot be written: ") + png.message);
    bytes.resize(size);
    return bytes;
}

} // namespace Tidewatch
