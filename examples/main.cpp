// The demo host program. For now it loads (or generates) a scan, builds the visibility query and answers one
// point request from the start position; the VR session follows once the viewer's manager is in place.

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "examples/LasReader.h"
#include "examples/PlyReader.h"
#include "examples/ReadError.h"
#include "examples/SceneGenerator.h"
#include "examples/VisibilityQuery.h"

namespace {

bool endsWith(const std::string& text, const std::string& suffix) {
    if (text.size() < suffix.size()) {
        return false;
    }
    for (std::size_t i = 0; i < suffix.size(); ++i) {
        const char c = text[text.size() - suffix.size() + i];
        if (static_cast<char>(c | 0x20) != suffix[i]) {
            return false;
        }
    }
    return true;
}

Demo::PointCloud load(const std::string& path) {
    int lastPercent = -1;
    auto progress = [&lastPercent](double fraction) {
        const int percent = static_cast<int>(fraction * 100.0);
        if (percent / 10 != lastPercent / 10) {
            std::fprintf(stderr, "\rloading %3d%%", percent);
            lastPercent = percent;
        }
    };
    Demo::PointCloud cloud;
    if (endsWith(path, ".las")) {
        cloud = Demo::LasReader::read(path, progress);
    } else if (endsWith(path, ".ply")) {
        cloud = Demo::PlyReader::read(path, progress);
    } else {
        throw Demo::ReadError(path, "unknown file type (the demo reads .las and .ply files)");
    }
    std::fprintf(stderr, "\n");
    return cloud;
}

} // namespace

int main(int argc, char** argv) {
    try {
        std::string path;
        for (int i = 1; i < argc; ++i) {
            const std::string arg = argv[i];
            if (!arg.empty() && arg[0] == '-') {
                std::fprintf(stderr,
                             "orvel_demo: unknown option '%s'\nusage: orvel_demo [FILE.las|FILE.ply]\n",
                             arg.c_str());
                return 2;
            }
            path = arg;
        }
        Demo::PointCloud cloud = path.empty() ? Demo::SceneGenerator::generateRoom() : load(path);
        Ko_1_1::Vec3d<double> min, max;
        cloud.worldBounds(min, max);
        std::printf("%zu points, bounds (%.2f, %.2f, %.2f) .. (%.2f, %.2f, %.2f)\n", cloud.size(), min.x,
                    min.y, min.z, max.x, max.y, max.z);
        const Demo::VisibilityQuery query(std::move(cloud));
        const Ko_1_1::Vec3d<double> start = query.startPosition();
        std::vector<VR::Point3dRGBA> points;
        // Eye height above the start position, looking north (+y) with z up.
        query.query(1.2f, 1000, 1000, 0.02f, 1000.0f, start + Ko_1_1::Vec3d<double>{0, 0, 1.7}, {0, 0, 1},
                    {0, -1, 0}, points);
        std::printf("start (%.2f, %.2f, %.2f): %zu points visible\n", start.x, start.y, start.z,
                    points.size());
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "orvel_demo: %s\n", e.what());
        return 1;
    }
}
