#pragma once

#include <string>

namespace Demo {

// Writes an RGBA picture as an opaque 8-bit RGB PNG file. The alpha channel is dropped: in a rendered target
// it holds what clearing and blending left there (0 on the background), not coverage, and kept it would make
// the picture see-through. The pixels come bottom row first, as GL frame buffer read-back delivers them; the
// file gets the usual top-down order. Throws std::runtime_error naming the file
// and libpng's reason when writing fails.
//
// Stateless; call from any thread.
class PngWriter {
public:
    static void write(const std::string& path, const unsigned char* rgba, unsigned width, unsigned height);
};

} // namespace Demo
