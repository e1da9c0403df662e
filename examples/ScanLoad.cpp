#include "examples/ScanLoad.h"

#include <cstdio>

#include "examples/ReadError.h"

namespace Demo {
namespace {

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.10g", value);
    return text;
}

} // namespace

std::string ScanLoad::count(std::uint64_t n, const std::string& one, const std::string& many) {
    return std::to_string(n) + " " + (n == 1 ? one : many.empty() ? one + "s" : many);
}

void ScanLoad::acceptTruncated(const std::string& path, std::uint64_t declared, std::uint64_t present,
                               const std::string& one, const std::string& many) {
    if (present >= declared) {
        return;
    }
    if (present < declared - present) {
        throw ReadError(path, "the file is truncated: it holds " + std::to_string(present) + " of the " +
                                  count(declared, one, many) + " its header declares");
    }
    warnings.push_back("the file is truncated: " + std::to_string(declared - present) + " of its " +
                       count(declared, one, many) + " are missing");
}

void ScanLoad::finish(const std::string& path, PointCloud& cloud, bool coloured, Up fileUp,
                      const std::string& why) {
    const std::uint64_t dropped = cloud.unplaceable();
    const std::uint64_t total = cloud.size() + dropped;
    if (total == 0) {
        throw ReadError(path, "the file holds no points");
    }
    // A few broken points are a blemish; most of them means the file or its scale is wrong, and showing the
    // rest would hide that.
    if (dropped > total - dropped) {
        throw ReadError(path, std::to_string(dropped) + " of " + count(total, "point") +
                                  (dropped == 1 ? " has" : " have") +
                                  " coordinates that are not finite or too large to place");
    }
    if (dropped > 0) {
        warnings.push_back(count(dropped, "point") +
                           " left out: coordinates not finite or too large to place");
    }
    if (scale != 1.0) {
        notes.push_back("coordinates multiplied by " + number(scale) + " (--scale)");
    }

    std::string turn;
    if (up == Up::Y) {
        turn = "as --up y says";
    } else if (up == Up::Detect && fileUp == Up::Y) {
        turn = why + " (--up z keeps the file's axes)";
    } else if (up == Up::Detect && fileUp == Up::Detect && looksYUp(cloud)) {
        turn = "it is flattest in y and its points pile up on its lowest y, as on a floor (--up z keeps the "
               "file's axes)";
    }
    if (!turn.empty()) {
        cloud.turnYUpToZUp();
        notes.push_back("turned from y up to z up: " + turn);
    }
    cloud.recentre();
    if (!coloured) {
        cloud.colourByHeight();
    }
    if (progress) {
        progress(1.0);
    }
}

bool ScanLoad::looksYUp(const PointCloud& cloud) {
    // Too few points say nothing about a floor.
    if (cloud.size() < 100) {
        return false;
    }
    Ko_1_1::Vec3d<float> lo, hi;
    cloud.localBounds(lo, hi);
    const Ko_1_1::Vec3d<float> extent = hi - lo;
    if (!(extent.y < 0.5f * extent.x && extent.y < 0.5f * extent.z)) {
        return false;
    }
    std::size_t lowY = 0;
    std::size_t lowZ = 0;
    for (const PointCloud::Point& p : cloud.points()) {
        lowY += p.y <= lo.y + 0.1f * extent.y;
        lowZ += p.z <= lo.z + 0.1f * extent.z;
    }
    // A z-up scan that is thin in y (a facade, a corridor) usually shows its own ground at its lowest z.
    return 3 * lowY >= cloud.size() && 3 * lowZ < cloud.size();
}

} // namespace Demo
