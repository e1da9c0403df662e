#include "examples/ModelReader.h"

#include <fstream>
#include <sstream>

#include "examples/ReadError.h"

namespace Demo {

namespace {

// A model is a handful of parts; anything near this size is a damaged header, not a model.
constexpr unsigned long MAX_ELEMENTS = 1000000;

} // namespace

ModelReader::Model ModelReader::read(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        throw ReadError(path, "cannot be opened");
    }
    std::string line;
    if (!std::getline(in, line) || line.rfind("ply", 0) != 0) {
        throw ReadError(path, "is not a PLY file");
    }
    unsigned long vertexCount = 0;
    unsigned long faceCount = 0;
    std::vector<std::string> vertexProperties;
    std::string element;
    bool ascii = false;
    while (std::getline(in, line) && line.rfind("end_header", 0) != 0) {
        std::istringstream words(line);
        std::string keyword;
        words >> keyword;
        if (keyword == "format") {
            std::string format;
            words >> format;
            ascii = format == "ascii";
        } else if (keyword == "element") {
            unsigned long count = 0;
            words >> element >> count;
            if (!words || count > MAX_ELEMENTS) {
                throw ReadError(path, "has an element count that is not a model's: " + line);
            }
            (element == "vertex" ? vertexCount : element == "face" ? faceCount : count) = count;
        } else if (keyword == "property" && element == "vertex") {
            std::string type;
            std::string name;
            words >> type >> name;
            vertexProperties.push_back(name);
        }
    }
    if (!ascii) {
        throw ReadError(path, "is not an ASCII PLY model");
    }
    const bool withNormals = vertexProperties.size() == 6 && vertexProperties[3] == "nx";
    if (vertexProperties.size() < 3 || vertexProperties[0] != "x" || vertexProperties[1] != "y" ||
        vertexProperties[2] != "z" || (vertexProperties.size() != 3 && !withNormals)) {
        throw ReadError(path, "has vertices other than x, y, z with optional nx, ny, nz");
    }

    Model model;
    for (unsigned long v = 0; v < vertexCount; ++v) {
        float values[6] = {};
        for (std::size_t i = 0; i < vertexProperties.size(); ++i) {
            if (!(in >> values[i])) {
                throw ReadError(path, "ends inside vertex " + std::to_string(v));
            }
        }
        model.positions.insert(model.positions.end(), values, values + 3);
        if (withNormals) {
            model.normals.insert(model.normals.end(), values + 3, values + 6);
        }
    }
    for (unsigned long f = 0; f < faceCount; ++f) {
        unsigned long corners = 0;
        if (!(in >> corners) || corners < 3 || corners > 64) {
            throw ReadError(path, "has a damaged face " + std::to_string(f));
        }
        std::vector<unsigned long> face(corners);
        for (unsigned long& index : face) {
            if (!(in >> index) || index >= vertexCount) {
                throw ReadError(path,
                                "has a face " + std::to_string(f) + " with a vertex that does not exist");
            }
        }
        for (unsigned long k = 1; k + 1 < corners; ++k) {
            model.indices.insert(model.indices.end(),
                                 {static_cast<unsigned>(face[0]), static_cast<unsigned>(face[k]),
                                  static_cast<unsigned>(face[k + 1])});
        }
    }
    return model;
}

} // namespace Demo
