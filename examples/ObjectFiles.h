#pragma once

#include <string>
#include <vector>

#include "common/AnnotationData.h"
#include "common/MeasurementData.h"

namespace Demo {

// The JSON forms of the host's object files:
//   measurements: {"version":1,"measurements":[{"uuid":"...","points":[[x,y,z],...]}]}
//   annotations:  {"annotations":[{"uuid":"...","text":"...","position":[x,y,z]}]}
// Parsing throws ReadError naming the file and the first problem found; nothing is half-accepted.
// Files hold world coordinates. The measurements' points are floats, which resolve only half a metre at
// survey coordinates of millions: given an origin, they are read and written relative to it, and the
// file still holds the world's.
// Stateless; any thread.
class ObjectFiles {
public:
    static std::vector<VR::MeasurementData> parseMeasurements(const std::string& text,
                                                              const std::string& path,
                                                              const Ko_1_1::Vec3d<double>& origin = {});
    static std::string formatMeasurements(const std::vector<VR::MeasurementData>& measurements,
                                          const Ko_1_1::Vec3d<double>& origin = {});
    static std::vector<VR::AnnotationData> parseAnnotations(const std::string& text, const std::string& path);
    // The whole file as bytes; throws ReadError when it cannot be read.
    static std::string readFile(const std::string& path);
};

} // namespace Demo
