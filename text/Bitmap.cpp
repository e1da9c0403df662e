#include "text/Bitmap.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <utility>

Bitmap::Bitmap(unsigned int columns, unsigned int rows, unsigned char channels,
               std::vector<unsigned char> initial)
    : width(columns), height(rows), components(channels) {
    const std::size_t size = static_cast<std::size_t>(width) * components * height;
    if (!initial.empty() && initial.size() == size) {
        pixels = std::move(initial);
    } else {
        pixels.assign(size, 0);
    }
}

void Bitmap::clear() {
    std::fill(pixels.begin(), pixels.end(), static_cast<std::uint8_t>(0));
}

void Bitmap::setPixel(unsigned int x, unsigned int y, unsigned char value) {
    // Callers count y down from the top while the array holds the bottom row first. The flip deliberately
    // omits the usual "- 1": y = 1 is the last array row and array row 0 is never written. y = 0 would
    // address the row behind the array, so it is dropped.
    if (x >= width || y >= height || components != 1 || y == 0) {
        return;
    }
    pixels[static_cast<std::size_t>(width) * (height - y) + x] = value;
}

bool Bitmap::saveToPPM(const char* path) const {
    std::FILE* file = std::fopen(path, "wb");
    if (file == nullptr) {
        return false;
    }
    std::fprintf(file, "P3\n%d %d\n255\n", static_cast<int>(width), static_cast<int>(height));
    // Pixels with three or more channels are written from their bytes 1, 2 and 3: the first byte of a
    // four-channel pixel is not a colour. For three channels the last value is the next pixel's first byte;
    // behind the last pixel there is none, and 0 is written instead of reading past the array.
    const auto byteAt = [this](std::size_t index) -> int {
        return index < pixels.size() ? pixels[index] : 0;
    };
    for (std::uint32_t row = 0; row < height; ++row) {
        for (std::uint32_t column = 0; column < width; ++column) {
            const std::size_t offset = (static_cast<std::size_t>(row) * width + column) * components;
            if (components == 1) {
                const int value = byteAt(offset);
                std::fprintf(file, "%d %d %d ", value, value, value);
            } else if (components == 0 || components == 2) {
                std::fclose(file);
                return false;
            } else {
                std::fprintf(file, "%d %d %d ", byteAt(offset + 1), byteAt(offset + 2), byteAt(offset + 3));
            }
            std::fputs("\n", file);
        }
        std::fputs("\n", file);
    }
    std::fclose(file);
    return true;
}
