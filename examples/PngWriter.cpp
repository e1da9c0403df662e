#include "examples/PngWriter.h"

#include <cstring>
#include <stdexcept>

#include <png.h>

namespace Demo {

void PngWriter::write(const std::string& path, const unsigned char* rgba, unsigned width, unsigned height) {
    if (width == 0 || height == 0 || rgba == nullptr) {
        throw std::runtime_error(path + ": cannot write an empty picture");
    }
    png_image image;
    std::memset(&image, 0, sizeof(image));
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = PNG_FORMAT_RGBA;
    // A negative row stride tells libpng that the first row in memory is the bottom one.
    const png_int_32 stride = -static_cast<png_int_32>(PNG_IMAGE_ROW_STRIDE(image));
    if (!png_image_write_to_file(&image, path.c_str(), 0, rgba, stride, nullptr)) {
        const std::string reason = image.message;
        png_image_free(&image);
        throw std::runtime_error(path + ": cannot write the PNG file (" + reason + ")");
    }
}

} // namespace Demo
