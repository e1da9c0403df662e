// The demo host program: loads a scan (or generates a sample room), answers the viewer's point queries from
// it, and runs a VR session on the simulated runtime with a slow scripted look-around, mirrored in a desktop
// window. It is written as a host developer would integrate the library: one IVRView, one VRManager.

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <exception>
#include <string>
#include <vector>

#include "examples/DemoView.h"
#include "examples/LasReader.h"
#include "examples/PlyReader.h"
#include "examples/ReadError.h"
#include "examples/SceneGenerator.h"
#include "examples/PngWriter.h"
#include "examples/VisibilityQuery.h"
#include "simvr/SimVR.h"
#include "vr/VRManager.h"

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

// The headset stands at eye height in the tracking space's origin (y up) and turns its head slowly left and
// right, as someone looking around a room would.
void lookAround(std::uint64_t, double seconds, void*) {
    const float yaw = static_cast<float>(0.6 * std::sin(seconds * 0.4));
    const float c = std::cos(yaw);
    const float s = std::sin(yaw);
    const float pose[12] = {c, 0.0f, s, 0.0f, 0.0f, 1.0f, 0.0f, 1.7f, -s, 0.0f, c, 0.0f};
    simvr_setDevicePose(0, pose);
    const float angular[3] = {0.0f, static_cast<float>(0.24 * std::cos(seconds * 0.4)), 0.0f};
    const float still[3] = {0.0f, 0.0f, 0.0f};
    simvr_setDeviceVelocity(0, still, angular);
}

void usage() {
    std::fprintf(stderr, "usage: orvel_demo [FILE.las|FILE.ply] [--frames N] [--screenshot FILE.png]\n");
}

} // namespace

int main(int argc, char** argv) {
    try {
        std::string path;
        std::string screenshot;
        long frames = 0;
        for (int i = 1; i < argc; ++i) {
            const std::string arg = argv[i];
            if (arg == "--frames" && i + 1 < argc) {
                char* end = nullptr;
                frames = std::strtol(argv[++i], &end, 10);
                if (end == nullptr || *end != 0 || frames <= 0) {
                    std::fprintf(stderr, "orvel_demo: --frames takes a positive number\n");
                    return 2;
                }
            } else if (arg == "--screenshot" && i + 1 < argc) {
                screenshot = argv[++i];
            } else if (arg == "--help" || arg == "-h") {
                usage();
                return 0;
            } else if (!arg.empty() && arg[0] == '-') {
                std::fprintf(stderr, "orvel_demo: unknown option '%s'\n", arg.c_str());
                usage();
                return 2;
            } else {
                path = arg;
            }
        }

        Demo::PointCloud cloud = path.empty() ? Demo::SceneGenerator::generateRoom() : load(path);
        Ko_1_1::Vec3d<double> min, max;
        cloud.worldBounds(min, max);
        std::printf("%zu points, bounds (%.2f, %.2f, %.2f) .. (%.2f, %.2f, %.2f)\n", cloud.size(), min.x, min.y,
                    min.z, max.x, max.y, max.z);
        auto query = std::make_shared<const Demo::VisibilityQuery>(std::move(cloud));
        const Ko_1_1::Vec3d<double> start = query->startPosition();
        std::printf("starting at (%.2f, %.2f, %.2f)\n", start.x, start.y, start.z);

        // The simulated headset paces frames like a real one and looks around on its own.
        simvr_setPaced(1);
        simvr_setPoseScript(lookAround, nullptr);

        Demo::DemoView view(query);
        VR::VRManager manager({static_cast<float>(start.x), static_cast<float>(start.y), static_cast<float>(start.z)},
                              &view);
        const VR::VRGlobals::ErrorCodes started = manager.init();
        if (started != VR::VRGlobals::NoError) {
            std::fprintf(stderr, "orvel_demo: the VR session could not start (error %d)\n", static_cast<int>(started));
            return static_cast<int>(started);
        }
        if (frames > 0) {
            view.setFrameCallback([&manager, frames](std::uint64_t frame) {
                if (frame >= static_cast<std::uint64_t>(frames)) {
                    manager.closeVR();
                }
            });
        }
        const VR::VRGlobals::ErrorCodes result = manager.runRenderLoop();
        std::printf("VR session ended after %llu frames, %llu point queries (result %d)\n",
                    static_cast<unsigned long long>(view.frameCount()),
                    static_cast<unsigned long long>(view.pointQueries()), static_cast<int>(result));

        if (!screenshot.empty()) {
            // The mirror window shows the left eye's picture; the runtime kept the last one submitted.
            std::uint32_t width = 0;
            std::uint32_t height = 0;
            std::vector<std::uint8_t> rgba(simvr_lastSubmittedPicture(0, &width, &height, nullptr, 0));
            if (rgba.empty()) {
                std::fprintf(stderr, "orvel_demo: no picture was submitted, nothing to write\n");
                return result == VR::VRGlobals::NoError ? 1 : static_cast<int>(result);
            }
            simvr_lastSubmittedPicture(0, nullptr, nullptr, rgba.data(), rgba.size());
            Demo::PngWriter::write(screenshot, rgba.data(), width, height);
            std::printf("mirror picture written to %s (%u x %u)\n", screenshot.c_str(), width, height);
        }
        return static_cast<int>(result);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "orvel_demo: %s\n", e.what());
        return 1;
    }
}
