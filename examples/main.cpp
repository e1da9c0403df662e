// The demo host program: loads a scan (or generates a sample room), answers the viewer's point queries from
// it, and runs a VR session mirrored in a desktop window: on the installed OpenVR runtime, or on the
// simulated one with a slow look-around or a session script. It is written as a host developer would
// integrate the library: one IVRView, one VRManager, no runtime linked.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "examples/DemoView.h"
#include "examples/LasReader.h"
#include "examples/MeasurementStore.h"
#include "examples/ObjectFiles.h"
#include "examples/PlyReader.h"
#include "examples/PngWriter.h"
#include "examples/ReadError.h"
#include "examples/RuntimeLibrary.h"
#include "examples/SampleObjects.h"
#include "examples/SceneGenerator.h"
#include "examples/SessionScript.h"
#include "examples/SimulatedRuntime.h"
#include "examples/StartView.h"
#include "examples/VisibilityQuery.h"
#include "vr/VRManager.h"

namespace {

// Beyond this distance (world units) from the world's origin a float resolves less than a millimetre.
constexpr double FAR_FROM_ORIGIN = 8192.0;

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

// A progress line on the terminal, rewritten every ten per cent.
std::function<void(double)> progressLine(const char* what, int& lastPercent) {
    return [what, &lastPercent](double fraction) {
        const int percent = static_cast<int>(fraction * 100.0);
        if (percent / 10 != lastPercent / 10) {
            std::fprintf(stderr, "\r%s %3d%%", what, percent);
            lastPercent = percent;
        }
    };
}

// The readers' notes and warnings follow the progress line, so that they are not overwritten by it.
Demo::PointCloud load(const std::string& path, Demo::ScanLoad::Up up, double scale) {
    int lastPercent = -1;
    Demo::ScanLoad scan;
    scan.up = up;
    scan.scale = scale;
    scan.progress = progressLine("loading", lastPercent);
    Demo::PointCloud cloud;
    try {
        if (endsWith(path, ".las")) {
            cloud = Demo::LasReader::read(path, scan);
        } else if (endsWith(path, ".ply")) {
            cloud = Demo::PlyReader::read(path, scan);
        } else {
            throw Demo::ReadError(path, "unknown file type (the demo reads .las and .ply files)");
        }
    } catch (const Demo::ReadError&) {
        if (lastPercent >= 0) {
            std::fprintf(stderr, "\n");
        }
        throw;
    }
    std::fprintf(stderr, "\n");
    for (const std::string& warning : scan.warnings) {
        std::fprintf(stderr, "orvel_demo: warning: %s: %s\n", path.c_str(), warning.c_str());
    }
    for (const std::string& note : scan.notes) {
        std::printf("%s: %s\n", path.c_str(), note.c_str());
    }
    return cloud;
}

enum class RuntimeChoice { OpenVR, Simulated, Auto };

using IsRuntimeInstalledFunction = bool (*)();

// The installed runtime, looked for where the viewer looks: beside the program, then the loader's search.
bool openInstalled(Demo::RuntimeLibrary& library, std::string& why) {
    const std::string besideProgram =
        Demo::RuntimeLibrary::executableFolder() + Demo::RuntimeLibrary::FILE_NAME;
    if (!library.open(besideProgram) && !library.open(Demo::RuntimeLibrary::FILE_NAME)) {
        why = library.error();
        return false;
    }
    if (Demo::SimulatedRuntime(library).present()) {
        why = "the only " + std::string(Demo::RuntimeLibrary::FILE_NAME) +
              " found is the simulated runtime, " + library.file();
        library.close();
        return false;
    }
    const auto installed = library.function<IsRuntimeInstalledFunction>("VR_IsRuntimeInstalled");
    if (installed == nullptr || !installed()) {
        why = library.file() + " reports no runtime installed";
        library.close();
        return false;
    }
    return true;
}

// The simulated runtime stays in its own build folder so that it never shadows an installed one; the program
// finds it relative to itself, which also holds for a copied build tree, or else where it was built.
bool openSimulated(Demo::RuntimeLibrary& library, std::string& why) {
    const std::string folder = Demo::RuntimeLibrary::executableFolder();
    const char separator = folder.back();
    const std::string candidates[] = {folder + ".." + separator + "simvr" + separator +
                                          Demo::RuntimeLibrary::FILE_NAME,
                                      ORVEL_DEMO_SIMULATED_RUNTIME};
    why.clear();
    for (const std::string& path : candidates) {
        if (library.open(path)) {
            if (Demo::SimulatedRuntime(library).present()) {
                return true;
            }
            library.close();
            why += (why.empty() ? "" : "; ") + path + " is not the simulated runtime";
        } else {
            why += (why.empty() ? "" : "; ") + library.error();
        }
    }
    return false;
}

// Ends the program when the chosen runtime cannot be had; the message says which runtime it runs on.
bool openRuntime(RuntimeChoice choice, Demo::RuntimeLibrary& library) {
    std::string why;
    if (choice != RuntimeChoice::Simulated) {
        if (openInstalled(library, why)) {
            std::printf("using the installed OpenVR runtime (%s)\n", library.file().c_str());
            return true;
        }
        if (choice == RuntimeChoice::OpenVR) {
            std::fprintf(stderr, "orvel_demo: no OpenVR runtime is installed (%s)\n", why.c_str());
            return false;
        }
        std::printf("no OpenVR runtime is installed (%s)\n", why.c_str());
    }
    if (!openSimulated(library, why)) {
        std::fprintf(stderr, "orvel_demo: the simulated OpenVR runtime was not found (%s)\n", why.c_str());
        return false;
    }
    std::printf("using the simulated OpenVR runtime (%s)\n", library.file().c_str());
    return true;
}

#if defined(_WIN32)
const char* const TREADMILL_FILE_NAME = "CybSDK.dll";
#else
const char* const TREADMILL_FILE_NAME = "libCybSDK.so";
#endif

// The simulated walking-platform library lives beside the simulated runtime. Opened before the viewer starts,
// it is the one the viewer's load by name finds, exactly as for the runtime; without a script its device is
// absent and the viewer runs as on a machine without a platform.
void openSimulatedTreadmill(const Demo::RuntimeLibrary& runtime, Demo::RuntimeLibrary& treadmill) {
    const std::string runtimeFile = runtime.file();
    const std::size_t separator = runtimeFile.find_last_of("/\\");
    treadmill.open((separator == std::string::npos ? std::string() : runtimeFile.substr(0, separator + 1)) +
                   TREADMILL_FILE_NAME);
}

// Beside the scan, named after it without its extension; for the generated room, in the working folder.
std::string defaultMeasurementsPath(const std::string& scan) {
    if (scan.empty()) {
        return "sample-room.measurements.json";
    }
    const std::size_t slash = scan.find_last_of("/\\");
    const std::size_t dot = scan.find_last_of('.');
    const bool hasExtension = dot != std::string::npos && (slash == std::string::npos || dot > slash + 1);
    return (hasExtension ? scan.substr(0, dot) : scan) + ".measurements.json";
}

std::string number(double value, int digits) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f", digits, value);
    return text;
}

// A figure without samples is written as null: 0 would read as measured.
std::string spreadJson(const VR::RunStatistics::Spread& s, int digits, bool p99, bool meanAndMax) {
    auto value = [&s, digits](double v) { return s.samples == 0 ? std::string("null") : number(v, digits); };
    std::string json = "{\"p50\": " + value(s.p50) + ", \"p95\": " + value(s.p95);
    if (p99) {
        json += ", \"p99\": " + value(s.p99);
    }
    if (meanAndMax) {
        json += ", \"mean\": " + value(s.mean) + ", \"max\": " + value(s.max);
    }
    return json + "}";
}

// The session's figures (the README lists every key), written beside the file and renamed over it so that
// a reader never sees half of it.
void writeStatistics(const std::string& path, const VR::RunStatistics& s) {
    std::string json = "{\n";
    json += "  \"frames\": " + std::to_string(s.frames) + ",\n";
    json += "  \"seconds\": " + number(s.seconds, 3) + ",\n";
    json += "  \"frame_ms\": " + spreadJson(s.frameMs, 3, true, false) + ",\n";
    json += "  \"render_cpu_ms\": " + spreadJson(s.renderCpuMs, 3, false, false) + ",\n";
    json += "  \"queries\": " + std::to_string(s.queryMs.samples) + ",\n";
    json += "  \"query_ms\": " + spreadJson(s.queryMs, 3, false, false) + ",\n";
    json += "  \"batches\": " + std::to_string(s.pointsPerBatch.samples) + ",\n";
    json += "  \"points_per_batch\": " + spreadJson(s.pointsPerBatch, 1, false, true) + ",\n";
    json += "  \"seconds_at_quality\": [" + number(s.secondsAtQuality[0], 3) + ", " +
            number(s.secondsAtQuality[1], 3) + ", " + number(s.secondsAtQuality[2], 3) + "],\n";
    json += "  \"batches_drawn\": " + std::to_string(s.poseToPointsMs.samples) + ",\n";
    json += "  \"pose_to_points_ms\": " + spreadJson(s.poseToPointsMs, 3, false, false) + ",\n";
    json += "  \"gl_objects\": " + std::to_string(s.glObjects) + "\n}\n";

    const std::string temporary = path + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << json;
        out.close();
        if (!out) {
            throw std::runtime_error(temporary + ": cannot be written");
        }
    }
    std::error_code error;
    std::filesystem::rename(temporary, path, error);
    if (error) {
        std::remove(temporary.c_str());
        throw std::runtime_error(path + ": cannot be written (" + error.message() + ")");
    }
}

// Written by the signal handler, on whichever thread takes the signal, and read by the session's watch.
std::atomic<int> interrupted{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may only touch lock-free atomics");

void onInterrupt(int) {
    interrupted.store(1);
}

// Beside the session, on its own thread: ends it when the program is interrupted (Ctrl+C, a terminating
// signal), which the viewer asks for through closeVR from any thread, and rewrites the statistics file
// every so often when told to, so that a long session can be watched while it runs.
class SessionWatch {
public:
    SessionWatch(VR::VRManager& manager, std::string statsPath, double statsEverySeconds)
        : thread([this, &manager, statsPath, statsEverySeconds] {
              using Clock = std::chrono::steady_clock;
              const auto every = std::chrono::duration<double>(statsEverySeconds);
              auto nextStats = Clock::now() + std::chrono::duration_cast<Clock::duration>(every);
              std::unique_lock<std::mutex> lock(mutex);
              while (!done) {
                  wake.wait_for(lock, std::chrono::milliseconds(100));
                  if (interrupted.load() != 0 && !closing) {
                      closing = true;
                      std::fprintf(stderr, "orvel_demo: interrupted, ending the session\n");
                      manager.closeVR();
                  }
                  if (statsEverySeconds > 0.0 && Clock::now() >= nextStats) {
                      nextStats += std::chrono::duration_cast<Clock::duration>(every);
                      try {
                          writeStatistics(statsPath, manager.getStatistics());
                      } catch (const std::exception& e) {
                          std::fprintf(stderr, "orvel_demo: %s\n", e.what());
                      }
                  }
              }
          }) {}

    ~SessionWatch() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            done = true;
        }
        wake.notify_all();
        thread.join();
    }

private:
    std::mutex mutex;
    std::condition_variable wake;
    bool done = false;
    bool closing = false;
    std::thread thread;
};

void usage() {
    std::fprintf(stderr,
                 "usage: orvel_demo [FILE.las|FILE.ply] [--runtime openvr|simulated|auto] [--frames N]\n"
                 "                  [--screenshot FILE.png] [--measurements FILE.json]\n"
                 "                  [--annotations FILE.json] [--no-meshes] [--script FILE]\n"
                 "                  [--stats FILE.json] [--stats-every SECONDS]\n"
                 "                  [--up y|z] [--scale F]\n"
                 "                  [--start X,Y,Z] [--points N]\n");
}

// The options followed by a value of their own.
bool takesValue(const std::string& option) {
    for (const char* name :
         {"--frames", "--runtime", "--screenshot", "--measurements", "--annotations", "--script", "--start",
          "--points", "--up", "--scale", "--stats", "--stats-every"}) {
        if (option == name) {
            return true;
        }
    }
    return false;
}

// Three finite numbers separated by commas, nothing else.
bool parsePosition(const char* text, Ko_1_1::Vec3d<double>& position) {
    double* const axes[] = {&position.x, &position.y, &position.z};
    for (int i = 0; i < 3; ++i) {
        char* end = nullptr;
        *axes[i] = std::strtod(text, &end);
        if (end == text || !std::isfinite(*axes[i]) || *end != (i < 2 ? ',' : '\0')) {
            return false;
        }
        text = end + 1;
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    try {
        std::string path;
        std::string screenshot;
        std::string measurementsPath;
        std::string annotationsPath;
        std::string scriptPath;
        std::string statsPath;
        double statsEverySeconds = 0.0;
        bool showMeshes = true;
        Demo::ScanLoad::Up up = Demo::ScanLoad::Up::Detect;
        double scale = 1.0;
        long frames = 0;
        long roomPoints = 0;
        bool startGiven = false;
        Ko_1_1::Vec3d<double> start;
        RuntimeChoice runtimeChoice = RuntimeChoice::Auto;
        for (int i = 1; i < argc; ++i) {
            const std::string arg = argv[i];
            // No value starts with "--": an option whose value was left out must not take the next option as
            // its value, which would turn that option's own value into the scan to load.
            if (takesValue(arg) && (i + 1 >= argc || std::string(argv[i + 1]).rfind("--", 0) == 0)) {
                std::fprintf(stderr, "orvel_demo: %s needs a value\n", arg.c_str());
                usage();
                return 2;
            }
            if (arg == "--frames" && i + 1 < argc) {
                char* end = nullptr;
                frames = std::strtol(argv[++i], &end, 10);
                if (end == nullptr || *end != 0 || frames <= 0) {
                    std::fprintf(stderr, "orvel_demo: --frames takes a positive number\n");
                    return 2;
                }
            } else if (arg == "--runtime" && i + 1 < argc) {
                const std::string name = argv[++i];
                if (name == "openvr") {
                    runtimeChoice = RuntimeChoice::OpenVR;
                } else if (name == "simulated") {
                    runtimeChoice = RuntimeChoice::Simulated;
                } else if (name == "auto") {
                    runtimeChoice = RuntimeChoice::Auto;
                } else {
                    std::fprintf(stderr, "orvel_demo: --runtime takes openvr, simulated or auto\n");
                    return 2;
                }
            } else if (arg == "--screenshot" && i + 1 < argc) {
                screenshot = argv[++i];
            } else if (arg == "--measurements" && i + 1 < argc) {
                measurementsPath = argv[++i];
            } else if (arg == "--annotations" && i + 1 < argc) {
                annotationsPath = argv[++i];
            } else if (arg == "--script" && i + 1 < argc) {
                scriptPath = argv[++i];
            } else if (arg == "--start" && i + 1 < argc) {
                if (!parsePosition(argv[++i], start)) {
                    std::fprintf(stderr, "orvel_demo: --start takes X,Y,Z: the world position of the floor "
                                         "under the user's feet\n");
                    return 2;
                }
                startGiven = true;
            } else if (arg == "--points" && i + 1 < argc) {
                char* end = nullptr;
                roomPoints = std::strtol(argv[++i], &end, 10);
                // Beyond the upper bound the room no longer fits in a typical machine's memory.
                if (end == argv[i] || *end != 0 || roomPoints < 1000 || roomPoints > 100000000) {
                    std::fprintf(stderr,
                                 "orvel_demo: --points takes a number of points from 1000 to 100000000\n");
                    return 2;
                }
            } else if (arg == "--up" && i + 1 < argc) {
                const std::string axis = argv[++i];
                if (axis != "y" && axis != "z") {
                    std::fprintf(stderr, "orvel_demo: --up takes y or z\n");
                    return 2;
                }
                up = axis == "y" ? Demo::ScanLoad::Up::Y : Demo::ScanLoad::Up::Z;
            } else if (arg == "--scale" && i + 1 < argc) {
                char* end = nullptr;
                scale = std::strtod(argv[++i], &end);
                if (end == argv[i] || *end != 0 || !std::isfinite(scale) || scale <= 0.0) {
                    std::fprintf(stderr, "orvel_demo: --scale takes a finite number greater than 0\n");
                    return 2;
                }
            } else if (arg == "--stats" && i + 1 < argc) {
                statsPath = argv[++i];
            } else if (arg == "--stats-every" && i + 1 < argc) {
                char* end = nullptr;
                statsEverySeconds = std::strtod(argv[++i], &end);
                if (end == argv[i] || *end != 0 || !std::isfinite(statsEverySeconds) ||
                    statsEverySeconds < 1.0) {
                    std::fprintf(stderr, "orvel_demo: --stats-every takes a number of seconds, at least 1\n");
                    return 2;
                }
            } else if (arg == "--no-meshes") {
                showMeshes = false;
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
        if (roomPoints > 0 && !path.empty()) {
            std::fprintf(stderr,
                         "orvel_demo: --points sizes the generated room, which a scan file replaces\n");
            return 2;
        }

        if (statsEverySeconds > 0.0 && statsPath.empty()) {
            std::fprintf(stderr, "orvel_demo: --stats-every needs --stats FILE.json\n");
            return 2;
        }

        std::unique_ptr<Demo::SessionScript> script;
        if (!scriptPath.empty()) {
            try {
                script = std::make_unique<Demo::SessionScript>(Demo::SessionScript::read(scriptPath));
            } catch (const Demo::ReadError& e) {
                std::fprintf(stderr, "orvel_demo: %s\n", e.what());
                return 2;
            }
        }

        // The object files first: a damaged one ends the program before anything else happens, and is left
        // exactly as it is for the user to repair.
        Demo::HostObjects objects;
        objects.measurements = std::make_shared<Demo::MeasurementStore>(
            measurementsPath.empty() ? defaultMeasurementsPath(path) : measurementsPath);
        std::printf("%s: %zu measurements\n", objects.measurements->path().c_str(),
                    objects.measurements->measurements().size());
        if (path.empty()) {
            objects.annotations = Demo::SampleObjects::roomAnnotations();
            if (showMeshes) {
                objects.meshes = Demo::SampleObjects::roomMeshes();
            }
        }
        if (!annotationsPath.empty()) {
            for (VR::AnnotationData& annotation : Demo::ObjectFiles::parseAnnotations(
                     Demo::ObjectFiles::readFile(annotationsPath), annotationsPath)) {
                objects.annotations.push_back(std::move(annotation));
            }
        }

        // Opened before the viewer starts, so that the viewer's own load by name finds this very library; it
        // stays open until the session has ended.
        Demo::RuntimeLibrary runtimeLibrary;
        if (!openRuntime(runtimeChoice, runtimeLibrary)) {
            return 1;
        }
        Demo::SimulatedRuntime simulated(runtimeLibrary);
        Demo::RuntimeLibrary treadmillLibrary;
        if (simulated.present()) {
            openSimulatedTreadmill(runtimeLibrary, treadmillLibrary);
        }
        if (script) {
            // A script stands in for the person wearing the headset, which only the simulated runtime allows.
            if (!simulated.present()) {
                std::fprintf(stderr,
                             "orvel_demo: %s plays only on the simulated runtime (--runtime simulated)\n",
                             scriptPath.c_str());
                return 2;
            }
            std::string missing;
            if (!script->bind([&](const char* name) { return runtimeLibrary.symbol(name); },
                              [&](const char* name) { return treadmillLibrary.symbol(name); }, missing)) {
                const bool platform = missing.rfind("simcyb_", 0) == 0;
                const std::string where = !platform                   ? runtimeLibrary.file()
                                          : treadmillLibrary.isOpen() ? treadmillLibrary.file()
                                                                      : treadmillLibrary.error();
                std::fprintf(stderr, "orvel_demo: %s cannot be played: %s is missing (%s)\n",
                             scriptPath.c_str(), missing.c_str(), where.c_str());
                return 2;
            }
        }

        Demo::PointCloud cloud;
        if (path.empty()) {
            int generatedPercent = -1;
            cloud = Demo::SceneGenerator::generateRoom(
                roomPoints > 0 ? static_cast<std::size_t>(roomPoints)
                               : Demo::SceneGenerator::DEFAULT_POINT_COUNT,
                1, progressLine("generating the sample room", generatedPercent));
            std::fprintf(stderr, "\n");
        } else {
            cloud = load(path, up, scale);
        }
        Ko_1_1::Vec3d<double> min, max;
        cloud.worldBounds(min, max);
        std::printf("%zu points, bounds (%.2f, %.2f, %.2f) .. (%.2f, %.2f, %.2f)\n", cloud.size(), min.x,
                    min.y, min.z, max.x, max.y, max.z);
        if (startGiven) {
            std::printf("starting where told (--start)\n");
        } else {
            const Demo::StartView startView(cloud);
            start = startView.position();
            std::printf("%s\n", startView.description().c_str());
        }
        std::printf("starting at (%.2f, %.2f, %.2f)\n", start.x, start.y, start.z);
        // Far from the world's origin the viewer works relative to the scan's own (see HostObjects).
        const Ko_1_1::Vec3d<double> scanOrigin = cloud.origin();
        if (std::max({std::fabs(scanOrigin.x), std::fabs(scanOrigin.y), std::fabs(scanOrigin.z)}) >
            FAR_FROM_ORIGIN) {
            objects.origin = scanOrigin;
            objects.measurements->setOrigin(objects.origin);
            for (VR::AnnotationData& annotation : objects.annotations) {
                annotation.position = annotation.position - objects.origin;
            }
            std::printf("the viewer's coordinates are relative to (%.2f, %.2f, %.2f)\n", objects.origin.x,
                        objects.origin.y, objects.origin.z);
        }
        start = start - objects.origin;
        // The query's index is built once, as the last step of loading.
        int indexedPercent = -1;
        auto query = std::make_shared<const Demo::VisibilityQuery>(std::move(cloud),
                                                                   progressLine("indexing", indexedPercent));
        if (indexedPercent >= 0) {
            std::fprintf(stderr, "\n");
        }

        Demo::DemoView view(query, std::move(objects));
        VR::VRManager manager(
            {static_cast<float>(start.x), static_cast<float>(start.y), static_cast<float>(start.z)}, &view);
        if (script) {
            script->prepare();
            script->start([&manager] { manager.closeVR(); }, [&view] { return view.pointQueries(); });
        } else {
            simulated.startLookAround();
        }
        const VR::VRGlobals::ErrorCodes started = manager.init();
        if (started != VR::VRGlobals::NoError) {
            std::fprintf(stderr, "orvel_demo: the VR session could not start (error %d)\n",
                         static_cast<int>(started));
            return static_cast<int>(started);
        }
        if (frames > 0) {
            view.setFrameCallback([&manager, frames](std::uint64_t frame) {
                if (frame >= static_cast<std::uint64_t>(frames)) {
                    manager.closeVR();
                }
            });
        }
        std::signal(SIGINT, onInterrupt);
        std::signal(SIGTERM, onInterrupt);
        VR::VRGlobals::ErrorCodes result = VR::VRGlobals::NoError;
        {
            SessionWatch watch(manager, statsPath, statsEverySeconds);
            result = manager.runRenderLoop();
        }
        // From here an interrupt ends the program as usual.
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGTERM, SIG_DFL);
        if (script) {
            script->stop();
        }
        std::printf("VR session ended after %llu frames, %llu point queries (result %d)\n",
                    static_cast<unsigned long long>(view.frameCount()),
                    static_cast<unsigned long long>(view.pointQueries()), static_cast<int>(result));
        if (!statsPath.empty()) {
            writeStatistics(statsPath, manager.getStatistics());
            std::printf("statistics written to %s\n", statsPath.c_str());
        }

        if (simulated.present() && view.frameCount() > 0 && simulated.sessionsStarted() == 0) {
            std::fprintf(stderr, "orvel_demo: the viewer ran on another OpenVR library than %s\n",
                         runtimeLibrary.file().c_str());
        }

        if (!screenshot.empty()) {
            // The simulated runtime keeps the left eye's last picture, which the mirror window shows; an
            // installed one does not, so there the picture is the last one the user took (key O).
            std::vector<unsigned char> rgba;
            unsigned width = 0;
            unsigned height = 0;
            if (simulated.present()) {
                if (!simulated.lastLeftEyePicture(rgba, width, height)) {
                    std::fprintf(stderr, "orvel_demo: no picture was submitted, nothing to write\n");
                    return result == VR::VRGlobals::NoError ? 1 : static_cast<int>(result);
                }
            } else if (!view.lastScreenshot(rgba, width, height)) {
                std::printf(
                    "no screenshot was taken (key O in the mirror window takes one), nothing written\n");
                return static_cast<int>(result);
            }
            Demo::PngWriter::write(screenshot, rgba.data(), width, height);
            std::printf("mirror picture written to %s (%u x %u)\n", screenshot.c_str(), width, height);
        }
        return static_cast<int>(result);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "orvel_demo: %s\n", e.what());
        return 1;
    }
}
