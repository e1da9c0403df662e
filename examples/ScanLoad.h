#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "examples/PointCloud.h"

namespace Demo {

// One scan file on its way into the demo's world, which is metric with z up: how the user wants it placed,
// where progress goes, and what the reader found that the user should hear about. It also holds the steps
// every reader shares at the end of a read, so that LAS and PLY files are judged by the same rules.
//
// Made by the caller for one read, handed to the reader and used on the reader's thread.
class ScanLoad {
public:
    enum class Up { Detect, Y, Z };
    using Progress = std::function<void(double fraction)>;

    // Up::Detect trusts what the file says, and for formats without a fixed convention, its shape.
    Up up = Up::Detect;
    // Multiplies every coordinate, after any unit conversion the file asks for.
    double scale = 1.0;
    Progress progress;

    // What was done to the file's coordinates (units converted, axes turned), one sentence each.
    std::vector<std::string> notes;
    // What is wrong with a file that could still be shown (points missing or left out).
    std::vector<std::string> warnings;

    // "1 point", "3 points"; "1 vertex", "3 vertices" where the plural is given.
    static std::string count(std::uint64_t n, const std::string& one, const std::string& many = "");

    // A cut file is shown with a warning while at least half of what its header declares is there; with
    // less, it is more likely damaged than cut, and refused.
    void acceptTruncated(const std::string& path, std::uint64_t declared, std::uint64_t present,
                         const std::string& one, const std::string& many = "");

    // Ends a read: refuses a cloud whose points are mostly unplaceable, turns a y-up scan to z-up (fileUp:
    // what the file says, with why; Up::Detect lets the shape decide), recentres it and colours it by height
    // when the file had no colour.
    void finish(const std::string& path, PointCloud& cloud, bool coloured, Up fileUp, const std::string& why);

    // The shape of a y-up scan of ground or a floor: much flatter in y than in x and z, with a large share of
    // the points on its lowest y, and no such pile-up at its lowest z.
    static bool looksYUp(const PointCloud& cloud);
};

} // namespace Demo
