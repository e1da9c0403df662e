#pragma once

#include <functional>
#include <string>

#include "examples/PointCloud.h"

namespace Demo {

// Reads the vertices of a PLY file into a PointCloud: ASCII or binary little-endian, positions x, y, z as
// float or double, colour from optional red, green, blue (uchar; wider types are scaled down). Other
// properties and elements, list properties included, are read past. Files without colour get a height
// ramp. Every failure is a ReadError naming the file and the problem.
//
// Stateless; call from any thread. The progress callback, when given, is called on the calling thread with
// the fraction of the vertices read so far (0..1).
class PlyReader {
public:
    using Progress = std::function<void(double fraction)>;

    static PointCloud read(const std::string& path, const Progress& progress = {});
};

} // namespace Demo
