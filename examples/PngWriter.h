#pragma once

#include <string>

namespace Demo {

// Writes an RGBA picture as an 8-bit RGBA PNG file. The pixels come bottom row first, as GL frame buffer
// read-back delivers them; the file gets the usual top-down order. Throws std::runtime_error naming the file
// and libpng's reason when writing fails.
//
// Stateless; call from any thread.
class PngWriter {
public:
    static void write(const std::string& path, const unsigned char* rgba, unsigned width, unsigned height);
};

} // namespace Demo
