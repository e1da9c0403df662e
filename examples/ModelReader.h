#pragma once

#include <string>
#include <vector>

namespace Demo {

// Reads the small triangle models the viewer asks its host for (the controller's beam): ASCII PLY with a
// vertex element of x, y, z and optionally nx, ny, nz, and a face element of index lists (polygons are
// split into fans). Throws ReadError("<path>: <problem>") for anything else or anything damaged.
class ModelReader {
public:
    struct Model {
        std::vector<float> positions; // three a vertex
        std::vector<float> normals;   // three a vertex, or empty
        std::vector<unsigned int> indices;
    };

    static Model read(const std::string& path);
};

} // namespace Demo
