#pragma once

#include <string>

#include "examples/PointCloud.h"
#include "examples/ScanLoad.h"

namespace Demo {

// Reads the vertices of a PLY file into a PointCloud: ASCII, binary little-endian or big-endian, positions x,
// y, z as float or double, colour from optional red, green, blue (or diffuse_red, ...) as uchar, ushort (high
// byte) or float (0..1). Other properties and elements, list properties included, are read past. Files
// without colour get a height ramp.
//
// PLY has no up axis of its own: a header comment or obj_info that says "y up" (or "up_axis Y", "Y_UP", ...)
// turns the scan to z-up, and so does, failing such a line, a shape that is plainly a y-up floor (see
// ScanLoad::looksYUp); the user's choice overrides both.
//
// Every count the header gives is checked against what the rest of the file can hold before anything is
// allocated for it. A cut file is shown with a warning while at least half of its vertices are there. Every
// failure is a ReadError naming the file and the problem; notes and warnings for the user go to the ScanLoad.
//
// Stateless; call from any thread. Progress is reported on the calling thread as the fraction of the file
// read so far (0..1).
class PlyReader {
public:
    static PointCloud read(const std::string& path, ScanLoad& load);
    static PointCloud read(const std::string& path);
};

} // namespace Demo
