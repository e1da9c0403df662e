#include "examples/PngWriter.h"

#include <cstring>
#include <stdexcept>
#include <vector>

#include <png.h>

namespace Demo {

void PngWriter::write(const std::string& path, const unsigned char* rgba, unsigned width, unsigned height) {
    if (width == 0 || height == 0 || rgba == nullptr) {
        throw std::runtime_error(path + ": cannot write an empty picture");
    }
    const std::size_t pixels = static_cast<std::size_t>(width) * height;
    std::vector<unsigned char> rgb(pixels * 3);
    for (std::size_t i = 0; i < pixels; ++i) {
        std::memcpy(&rgb[i * 3], &rgba[i * 4], 3);
    }
    png_image image;
    std::memset(&image, 0, sizeof(image));
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = PNG_FORMAT_RGB;
    // A negative row stride tells libpng that the first row in memory is the bottom one.
    const png_int_32 stride = -static_cast<png_int_32>(PNG_IMAGE_ROW_STRIDE(image));
    if (!png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), stride, nullptr)) {
        const std::string reason = image.message;
        png_image_free(&image);
        throw std::runtime_error(path + ": cannot write the PNG file (" + reason + ")");
    }
}

} // namespace Demo
