#pragma once

#include <functional>
#include <string>

#include "examples/PointCloud.h"

namespace Demo {

// Reads an uncompressed LAS file (versions 1.2 to 1.4, point data record formats 0 to 3 and 6 to 8) into a
// PointCloud, with the header's scale and offset applied. Colour comes from the RGB fields where the format
// has them: files whose colour values all fit in 8 bits are taken as 8-bit colour stored in the 16-bit
// fields (common in practice), otherwise the high byte is used. Formats without colour get a height ramp.
// Every failure is a ReadError naming the file and the problem.
//
// Stateless; call from any thread. The progress callback, when given, is called on the calling thread with
// the fraction of the points read so far (0..1).
class LasReader {
public:
    using Progress = std::function<void(double fraction)>;

    static PointCloud read(const std::string& path, const Progress& progress = {});
};

} // namespace Demo
