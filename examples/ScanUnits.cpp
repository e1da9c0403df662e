#include "examples/ScanUnits.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <vector>

namespace Demo {
namespace {

constexpr double FOOT = 0.3048;
constexpr double US_SURVEY_FOOT = 1200.0 / 3937.0;

ScanUnits::Unit unitOf(double metres, const std::string& name) {
    // Matched by size, not name: the same foot goes by many names ("foot", "Foot_US", "US survey foot").
    if (std::fabs(metres - FOOT) < 1e-9) {
        return {FOOT, "international feet"};
    }
    if (std::fabs(metres - US_SURVEY_FOOT) < 1e-9) {
        return {US_SURVEY_FOOT, "US survey feet"};
    }
    if (std::fabs(metres - 1.0) < 1e-9) {
        return {1.0, "metres"};
    }
    char size[32];
    std::snprintf(size, sizeof size, "%.10g", metres);
    return {metres, "units of '" + name + "' (" + size + " m)"};
}

struct WktNode {
    std::string keyword;
    std::vector<std::string> values;
    std::vector<WktNode> children;
};

// WKT 1 and 2 share this grammar: KEYWORD[value, "quoted", CHILD[...], ...], with () allowed for [].
class WktParser {
public:
    explicit WktParser(const std::string& text) : text_(text) {}

    bool parse(WktNode& node, int depth = 0) {
        // Real systems nest a few levels; a deep one is damage, and recursion must not follow it far.
        if (depth > 32) {
            return false;
        }
        skipSpace();
        node.keyword = word();
        skipSpace();
        if (node.keyword.empty() || pos_ >= text_.size() || (text_[pos_] != '[' && text_[pos_] != '(')) {
            return false;
        }
        const char close = text_[pos_++] == '[' ? ']' : ')';
        while (true) {
            skipSpace();
            if (pos_ < text_.size() && text_[pos_] == '"') {
                node.values.push_back(quoted());
            } else {
                const std::size_t start = pos_;
                std::string value = word();
                skipSpace();
                if (pos_ < text_.size() && (text_[pos_] == '[' || text_[pos_] == '(')) {
                    pos_ = start;
                    node.children.emplace_back();
                    if (!parse(node.children.back(), depth + 1)) {
                        return false;
                    }
                } else {
                    node.values.push_back(value);
                }
            }
            skipSpace();
            if (pos_ >= text_.size()) {
                return false;
            }
            const char c = text_[pos_++];
            if (c == close) {
                return true;
            }
            if (c != ',') {
                return false;
            }
        }
    }

private:
    void skipSpace() {
        while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) {
            ++pos_;
        }
    }
    std::string word() {
        const std::size_t start = pos_;
        while (pos_ < text_.size() && std::strchr(",[]()\"", text_[pos_]) == nullptr &&
               !std::isspace(static_cast<unsigned char>(text_[pos_]))) {
            ++pos_;
        }
        return text_.substr(start, pos_ - start);
    }
    std::string quoted() {
        std::string value;
        ++pos_;
        while (pos_ < text_.size()) {
            const char c = text_[pos_++];
            // A doubled quote stands for one inside the string.
            if (c == '"' && !(pos_ < text_.size() && text_[pos_] == '"')) {
                break;
            }
            if (c == '"') {
                ++pos_;
            }
            value.push_back(c);
        }
        return value;
    }

    const std::string& text_;
    std::size_t pos_ = 0;
};

bool isKeyword(const WktNode& node, std::initializer_list<const char*> names) {
    std::string upper = node.keyword;
    for (char& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    for (const char* name : names) {
        if (upper == name) {
            return true;
        }
    }
    return false;
}

bool readUnit(const WktNode& node, ScanUnits::Unit& unit) {
    if (!isKeyword(node, {"UNIT", "LENGTHUNIT"}) || node.values.size() < 2) {
        return false;
    }
    char* end = nullptr;
    const double metres = std::strtod(node.values[1].c_str(), &end);
    if (end == node.values[1].c_str() || !std::isfinite(metres) || metres <= 0.0) {
        return false;
    }
    unit = unitOf(metres, node.values[0]);
    return true;
}

// A system's own unit is its direct child; WKT 2 may give it on each axis instead. Units deeper down (a
// conversion's parameters) are not the coordinates' unit.
ScanUnits::Unit unitOfSystem(const WktNode& system) {
    ScanUnits::Unit unit;
    for (const WktNode& child : system.children) {
        if (readUnit(child, unit)) {
            return unit;
        }
    }
    for (const WktNode& child : system.children) {
        if (isKeyword(child, {"AXIS"})) {
            for (const WktNode& detail : child.children) {
                if (readUnit(detail, unit)) {
                    return unit;
                }
            }
        }
    }
    return unit;
}

void collectUnits(const WktNode& node, ScanUnits& units) {
    if (isKeyword(node, {"PROJCS", "PROJCRS", "PROJECTEDCRS"})) {
        if (units.horizontal.metres == 0.0) {
            units.horizontal = unitOfSystem(node);
        }
        return;
    }
    if (isKeyword(node, {"VERT_CS", "VERTCRS", "VERTICALCRS"})) {
        if (units.vertical.metres == 0.0) {
            units.vertical = unitOfSystem(node);
        }
        return;
    }
    for (const WktNode& child : node.children) {
        collectUnits(child, units);
    }
}

} // namespace

ScanUnits ScanUnits::fromGeoKeys(const unsigned char* data, std::size_t size) {
    ScanUnits units;
    auto word = [data](std::size_t i) {
        std::uint16_t value;
        std::memcpy(&value, data + 2 * i, 2);
        return value;
    };
    const std::size_t words = size / 2;
    if (words < 4) {
        return units;
    }
    const std::size_t keys = std::min<std::size_t>(word(3), (words - 4) / 4);
    constexpr std::uint16_t PROJ_LINEAR_UNITS = 3076;
    constexpr std::uint16_t VERTICAL_UNITS = 4099;
    for (std::size_t k = 0; k < keys; ++k) {
        const std::uint16_t id = word(4 + 4 * k);
        const std::uint16_t location = word(5 + 4 * k);
        const std::uint16_t code = word(7 + 4 * k);
        // Location 0: the value is the code itself rather than an index into another record.
        if (location != 0 || (id != PROJ_LINEAR_UNITS && id != VERTICAL_UNITS)) {
            continue;
        }
        Unit unit;
        switch (code) {
        case 9001:
            unit = {1.0, "metres"};
            break;
        case 9002:
            unit = {FOOT, "international feet"};
            break;
        case 9003:
            unit = {US_SURVEY_FOOT, "US survey feet"};
            break;
        default:
            units.unknown = "length unit code " + std::to_string(code);
            continue;
        }
        (id == PROJ_LINEAR_UNITS ? units.horizontal : units.vertical) = unit;
    }
    return units;
}

ScanUnits ScanUnits::fromWkt(const std::string& wkt) {
    ScanUnits units;
    WktNode root;
    if (WktParser(wkt).parse(root)) {
        collectUnits(root, units);
    }
    return units;
}

void ScanUnits::complete() {
    if (horizontal.metres == 0.0) {
        horizontal = {1.0, "metres"};
    }
    if (vertical.metres == 0.0) {
        vertical = horizontal;
    }
}

std::string ScanUnits::describe() const {
    if (horizontal.name == vertical.name) {
        return "coordinates in " + horizontal.name;
    }
    return "x and y in " + horizontal.name + ", z in " + vertical.name;
}

} // namespace Demo
