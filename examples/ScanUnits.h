#pragma once

#include <cstddef>
#include <string>

namespace Demo {

// The length units a scan's coordinate reference system declares, from a GeoTIFF key directory or an OGC
// WKT string (the two ways LAS files describe theirs), so that a survey in feet can be shown in metres.
// Only projected and vertical systems count: geographic ones are in angles, which no factor makes metric.
//
// A value; use from any thread.
class ScanUnits {
public:
    struct Unit {
        double metres = 0.0; // metres per file unit; 0 when the description gives none
        std::string name;    // plural, for sentences: "international feet"
    };

    Unit horizontal;
    Unit vertical;
    // A unit the description names that cannot be converted, for telling the user; empty when none.
    std::string unknown;

    // A GeoKeyDirectory: little-endian 16-bit words, header then four words a key.
    static ScanUnits fromGeoKeys(const unsigned char* data, std::size_t size);
    static ScanUnits fromWkt(const std::string& wkt);

    bool declared() const { return horizontal.metres > 0.0 || vertical.metres > 0.0; }
    // Fills what the description left open: heights of a survey in feet are in feet too unless it says
    // otherwise, and no unit at all means metres.
    void complete();
    bool metric() const { return horizontal.metres == 1.0 && vertical.metres == 1.0; }
    // "coordinates in US survey feet", "x and y in international feet, z in metres".
    std::string describe() const;
};

} // namespace Demo
