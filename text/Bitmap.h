#pragma once

#include <cstdint>
#include <vector>

#include "platform/Export.h"

// An 8-bit image buffer, row after row, `components` bytes a pixel, bottom row first as a GL upload
// expects. Plain value class; any thread, but one owner at a time.
class ORVEL_VR_EXPORT Bitmap {
public:
    // Takes the vector over when it holds exactly width * components * height bytes; otherwise the
    // bitmap is that size and zero-filled.
    Bitmap(unsigned int width, unsigned int height, unsigned char components,
           std::vector<unsigned char> data);
    Bitmap(const Bitmap&) = default;
    Bitmap(Bitmap&&) = default;
    Bitmap& operator=(const Bitmap&) = default;
    Bitmap& operator=(Bitmap&&) = default;
    ~Bitmap() = default;

    void clear();
    // y counts down from the top; single-component bitmaps only; out-of-range coordinates are ignored.
    void setPixel(unsigned int x, unsigned int y, unsigned char value);

    unsigned int getWidth() const { return width; }
    unsigned int getHeight() const { return height; }
    unsigned char getNumberOfComponents() const { return components; }
    const unsigned char* data() const { return pixels.data(); }
    // The pixel bytes proper (width * components * height), without any spare storage.
    const std::vector<std::uint8_t>& bytes() const { return pixels; }

    // Writes a plain-text PPM (P3); false when the file cannot be opened or the component count is 0 or 2.
    bool saveToPPM(const char* path) const;

private:
    std::vector<std::uint8_t> pixels;
    std::uint32_t width;
    std::uint32_t height;
    std::uint8_t components;
};
