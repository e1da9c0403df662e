#pragma once

#include <string>

#include "examples/PointCloud.h"
#include "examples/ScanLoad.h"

namespace Demo {

// Reads an uncompressed LAS file (versions 1.0 to 1.4, point data record formats 0 to 10; waveform packets
// and extra bytes are read past) into a PointCloud in metres: the header's scale and offset applied, then the
// length unit the file's coordinate system declares (GeoTIFF keys or WKT), then the user's scale. Colour
// comes from the RGB fields where the format has them: files whose colour values all fit in 8 bits are taken
// as 8-bit colour stored in the 16-bit fields (common in practice), otherwise the high byte is used. Formats
// without colour get a height ramp. LAS is z-up by definition, so only the user turns its axes.
//
// Every size the header gives is checked against the file before anything is allocated for it. A cut file
// is shown with a warning while at least half of its points are there. Every failure is a ReadError naming
// the file and the problem; notes and warnings for the user go to the ScanLoad.
//
// Stateless; call from any thread. Progress is reported on the calling thread as the fraction of the points
// read so far (0..1).
class LasReader {
public:
    static PointCloud read(const std::string& path, ScanLoad& load);
    static PointCloud read(const std::string& path);
};

} // namespace Demo
