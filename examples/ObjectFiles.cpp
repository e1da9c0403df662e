#include "examples/ObjectFiles.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "examples/ReadError.h"

namespace Demo {
namespace {

using Json = nlohmann::json;

Json parseJson(const std::string& text, const std::string& path) {
    try {
        return Json::parse(text);
    } catch (const Json::parse_error& e) {
        // nlohmann's message carries its own "[json.exception.parse_error.101]" prefix, which says nothing to
        // a user; the byte offset does.
        throw ReadError(path, "not valid JSON (at byte " + std::to_string(e.byte) + ")");
    }
}

const Json& member(const Json& object, const char* name, const std::string& where, const std::string& path) {
    const auto it = object.find(name);
    if (it == object.end()) {
        throw ReadError(path, where + "has no \"" + name + "\"");
    }
    return *it;
}

std::string textMember(const Json& object, const char* name, const std::string& where,
                       const std::string& path) {
    const Json& value = member(object, name, where, path);
    if (!value.is_string()) {
        throw ReadError(path, where + "\"" + name + "\" must be a string");
    }
    return value.get<std::string>();
}

bool readPoint(const Json& value, double out[3]) {
    if (!value.is_array() || value.size() != 3) {
        return false;
    }
    for (std::size_t i = 0; i < 3; ++i) {
        if (!value[i].is_number() || !std::isfinite(value[i].get<double>())) {
            return false;
        }
        out[i] = value[i].get<double>();
    }
    return true;
}

// The shortest decimal that reads back as the same float, so the file shows 2.35 rather than the double
// expansion of the float nearest to it, and a load gives back exactly the stored value.
double shortestDecimal(float value) {
    char text[32];
    for (int digits = 6; digits <= 9; ++digits) {
        std::snprintf(text, sizeof(text), "%.*g", digits, static_cast<double>(value));
        if (std::strtof(text, nullptr) == value) {
            break;
        }
    }
    return std::strtod(text, nullptr);
}

} // namespace

std::vector<VR::MeasurementData> ObjectFiles::parseMeasurements(const std::string& text,
                                                                const std::string& path,
                                                                const Ko_1_1::Vec3d<double>& origin) {
    const Json root = parseJson(text, path);
    if (!root.is_object()) {
        throw ReadError(path, "the top level must be an object");
    }
    const Json& version = member(root, "version", "the file ", path);
    if (!version.is_number_integer() || version.get<long long>() != 1) {
        throw ReadError(path,
                        "unsupported \"version\" " + version.dump() + " (this program reads version 1)");
    }
    const Json& list = member(root, "measurements", "the file ", path);
    if (!list.is_array()) {
        throw ReadError(path, "\"measurements\" must be an array");
    }
    std::vector<VR::MeasurementData> measurements;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string where = "measurement " + std::to_string(i + 1) + " ";
        const Json& entry = list[i];
        if (!entry.is_object()) {
            throw ReadError(path, where + "must be an object");
        }
        VR::MeasurementData measurement;
        measurement.uuid = textMember(entry, "uuid", where, path);
        const Json& points = member(entry, "points", where, path);
        if (!points.is_array()) {
            throw ReadError(path, where + "\"points\" must be an array");
        }
        for (const Json& point : points) {
            double p[3];
            if (!readPoint(point, p)) {
                throw ReadError(path, where + "has a point that is not [x, y, z] in numbers");
            }
            measurement.points.push_back({static_cast<float>(p[0] - origin.x),
                                          static_cast<float>(p[1] - origin.y),
                                          static_cast<float>(p[2] - origin.z)});
        }
        measurements.push_back(std::move(measurement));
    }
    return measurements;
}

std::string ObjectFiles::formatMeasurements(const std::vector<VR::MeasurementData>& measurements,
                                            const Ko_1_1::Vec3d<double>& origin) {
    Json list = Json::array();
    for (const VR::MeasurementData& measurement : measurements) {
        Json points = Json::array();
        for (const Ko_1_1::Vec3d<float>& p : measurement.points) {
            points.push_back({origin.x + shortestDecimal(p.x), origin.y + shortestDecimal(p.y),
                              origin.z + shortestDecimal(p.z)});
        }
        list.push_back({{"uuid", measurement.uuid}, {"points", std::move(points)}});
    }
    const Json root = {{"version", 1}, {"measurements", std::move(list)}};
    return root.dump(2) + "\n";
}

std::vector<VR::AnnotationData> ObjectFiles::parseAnnotations(const std::string& text,
                                                              const std::string& path) {
    const Json root = parseJson(text, path);
    if (!root.is_object()) {
        throw ReadError(path, "the top level must be an object");
    }
    const Json& list = member(root, "annotations", "the file ", path);
    if (!list.is_array()) {
        throw ReadError(path, "\"annotations\" must be an array");
    }
    std::vector<VR::AnnotationData> annotations;
    for (std::size_t i = 0; i < list.size(); ++i) {
        const std::string where = "annotation " + std::to_string(i + 1) + " ";
        const Json& entry = list[i];
        if (!entry.is_object()) {
            throw ReadError(path, where + "must be an object");
        }
        VR::AnnotationData annotation;
        annotation.uuid = textMember(entry, "uuid", where, path);
        annotation.text = textMember(entry, "text", where, path);
        double p[3];
        if (!readPoint(member(entry, "position", where, path), p)) {
            throw ReadError(path, where + "\"position\" must be [x, y, z] in numbers");
        }
        annotation.position = {p[0], p[1], p[2]};
        annotations.push_back(std::move(annotation));
    }
    return annotations;
}

std::string ObjectFiles::readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ReadError(path, "cannot be opened");
    }
    std::ostringstream bytes;
    bytes << in.rdbuf();
    if (in.bad()) {
        throw ReadError(path, "could not be read");
    }
    return bytes.str();
}

} // namespace Demo
