// Hostile hosts in whole runs on the simulated runtime: hosts that throw, answer nonsense or break the rules
// of their records. The viewer names each kind of trouble once, goes on drawing frames and ends its run
// normally; an exception on the render thread ends the run as any exception in a frame does.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <limits>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "simvr/SimVR.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingHost.h"
#include "vr/MinimalOpenVR.h"
#include "vr/VRRenderer.h"

using OrvelTest::LogCapture;
using OrvelTest::RecordingHost;
using VR::VRGlobals;

namespace {

const float NAN_F = std::numeric_limits<float>::quiet_NaN();
const float INF_F = std::numeric_limits<float>::infinity();
constexpr int FRAMES = 40;
// Point queries of 65 x 65 pixels: a batch holds at most 65 * 65 * 4 points.
constexpr float POINT_SCALE = 0.05f;
constexpr int BATCH_LIMIT = 65 * 65 * 4;
// The host's scan: a red patch of 20 x 20 points 2 m ahead of whichever camera asks.
constexpr int PATCH_POINTS = 400;

void appendPatch(std::vector<VR::Point3dRGBA>& points) {
    for (int i = 0; i < 20; ++i) {
        for (int j = 0; j < 20; ++j) {
            points.push_back({0.02f * static_cast<float>(i - 10), 0.02f * static_cast<float>(j - 10), -2.0f,
                              255, 0, 0, 255});
        }
    }
}

std::vector<uint8_t> leftEye() {
    std::vector<uint8_t> rgba(simvr_lastSubmittedPicture(0, nullptr, nullptr, nullptr, 0));
    simvr_lastSubmittedPicture(0, nullptr, nullptr, rgba.data(), rgba.size());
    return rgba;
}

bool showsRed(const std::vector<uint8_t>& rgba) {
    for (size_t i = 0; i + 3 < rgba.size(); i += 4) {
        if (rgba[i] > 200 && rgba[i + 1] < 60 && rgba[i + 2] < 60) {
            return true;
        }
    }
    return false;
}

bool finite(const Ko_1_1::Mat4d<float>& m) {
    for (int i = 0; i < 16; ++i) {
        if (!std::isfinite(m[i])) {
            return false;
        }
    }
    return true;
}

// One hostile host: what it does wrong, the line the viewer logs for it exactly once, and how the run ends.
struct Row {
    const char* name;
    std::function<void(RecordingHost&)> hostile;
    std::wstring logged;
    VRGlobals::ErrorCodes initResult = VRGlobals::NoError;
    VRGlobals::ErrorCodes runResult = VRGlobals::NoError;
    Ko_1_1::Vec3d<float> start{0.0f, 0.0f, 0.0f};
};

struct Outcome {
    int frames = 0;
    VR::RunStatistics statistics;
};

// The hostile part of a row: the host throws from one slot.
// A standard exception, or with `standard` false an int, which only a catch-all can stop.
std::function<void(RecordingHost&)> throwIn(std::string slot, bool standard = true) {
    return [slot, standard](RecordingHost& host) {
        host.beforeCall = [slot, standard](const std::string& called) {
            if (called == slot && standard) {
                throw std::runtime_error(slot + " failed");
            }
            if (called == slot) {
                throw 7;
            }
        };
    };
}

// The hostile part of a row: the host's measurements, annotations and length unit.
std::function<void(RecordingHost&)> objects(std::vector<VR::MeasurementData> measurements,
                                            std::vector<VR::AnnotationData> annotations,
                                            std::string unit = "m") {
    return [=](RecordingHost& host) {
        host.setObjects(measurements, annotations);
        host.lengthUnit = unit;
    };
}

// A stored measurement 2 m ahead of the user.
const VR::MeasurementData AHEAD{{{-0.4f, 2.0f, 1.7f}, {0.4f, 2.0f, 1.7f}}, "m-1"};

class HostileHost : public ::testing::Test {
protected:
    void SetUp() override {
        simvr_reset();
        simvr_setPaced(0);
        simvr_setRecommendedSize(160, 120);
        simvr_setPoseScript(&HostileHost::moveHead, this);
    }
    void TearDown() override { simvr_reset(); }

    // The head rises 1 cm at every pose wait, so each camera the viewer hands on names the frame it came
    // from; the heights of the frame loop's poses are kept apart from those of the set-up.
    static void moveHead(uint64_t frame, double, void* self) {
        auto* test = static_cast<HostileHost*>(self);
        const float height = 1.0f + 0.01f * static_cast<float>(frame);
        const float pose[12] = {1, 0, 0, 0, 0, 1, 0, height, 0, 0, 1, 0};
        simvr_setDevicePose(0, pose);
        std::lock_guard<std::mutex> lock(test->mutex);
        if (test->looping) {
            test->loopHeights.insert(height);
        }
    }

    // Runs the viewer on the row's host until it has drawn FRAMES frames and `until` holds (20 s at most),
    // closing it from another thread, and checks what every row must show: the run ends as the row says, the
    // trouble is logged once, the host hears of the close once, frames kept coming and no non-finite view
    // reached the host.
    Outcome check(const Row& row, RecordingHost& host, const std::function<bool()>& until) {
        LogCapture log;
        if (row.hostile) {
            row.hostile(host);
        }
        Outcome out;
        {
            VR::VRRenderer renderer(row.start, &host, std::make_shared<MinimalOpenVR>());
            const VRGlobals::ErrorCodes init = renderer.init(1.0f, POINT_SCALE, true, false);
            EXPECT_EQ(init, row.initResult);
            std::thread closer;
            const auto began = std::chrono::steady_clock::now();
            host.onViewTransform = [&] {
                const bool done = ++out.frames >= FRAMES && until();
                if (!closer.joinable() &&
                    (done || std::chrono::steady_clock::now() - began > std::chrono::seconds(20))) {
                    closer = std::thread([&] { renderer.closeVR(); });
                }
            };
            setLooping(true);
            try {
                if (init == VRGlobals::NoError) {
                    EXPECT_EQ(renderer.runRenderLoop(), row.runResult);
                }
            } catch (...) {
                ADD_FAILURE() << "an exception reached the host";
            }
            setLooping(false);
            if (closer.joinable()) {
                closer.join();
            }
            host.onViewTransform = nullptr;
            out.statistics = renderer.getStatistics();
        }
        EXPECT_EQ(log.count(row.logged), 1);
        EXPECT_EQ(host.count("onVrClosed"), 1);
        if (row.initResult == VRGlobals::NoError && row.runResult == VRGlobals::NoError) {
            EXPECT_GE(out.frames, FRAMES);
            EXPECT_LT(log.lines().size(), static_cast<size_t>(FRAMES / 2))
                << "something is logged every frame";
        }
        for (const auto& transform : host.viewTransforms()) {
            EXPECT_TRUE(finite(transform));
        }
        return out;
    }

    void setLooping(bool on) {
        std::lock_guard<std::mutex> lock(mutex);
        looping = on;
    }
    bool setByTheLoop(double height) {
        std::lock_guard<std::mutex> lock(mutex);
        for (const float h : loopHeights) {
            if (std::fabs(h - height) < 1e-3) {
                return true;
            }
        }
        return false;
    }

    std::mutex mutex;
    bool looping = false;
    std::set<float> loopHeights;
};

// Point queries (slot 0) and the point size (slot 20). Every query is asked with a camera the frame loop
// handed on: none before the first frame, none at the set-up's pose.
TEST_F(HostileHost, PointQueries) {
    struct PointRow {
        Row row;
        std::function<void(std::vector<VR::Point3dRGBA>&)> answer;
        int pointSize;
        int largestBatch; // 0: nothing is drawn
    };
    const auto patch = [](std::vector<VR::Point3dRGBA>& points) { appendPatch(points); };
    const PointRow rows[] = {
        {{"throws", {}, L"Exception caught: scan locked\n"},
         [](std::vector<VR::Point3dRGBA>&) { throw std::runtime_error("scan locked"); },
         1,
         0},
        {{"throws a non-standard exception", {}, L"Exception caught: unknown exception\n"},
         [](std::vector<VR::Point3dRGBA>&) { throw 7; },
         1,
         0},
        {{"answers non-finite points", {}, L"Points with non-finite coordinates from the host dropped\n"},
         [](std::vector<VR::Point3dRGBA>& points) {
             appendPatch(points);
             points.push_back({NAN_F, 0, -2, 255, 0, 0, 255});
             points.push_back({0, INF_F, -2, 255, 0, 0, 255});
             points.push_back({0, 0, -INF_F, 255, 0, 0, 255});
         },
         1,
         PATCH_POINTS},
        {{"answers more points than a batch holds", {}, L"Point batch of 24000 points cut to 16900\n"},
         [](std::vector<VR::Point3dRGBA>& points) {
             for (int i = 0; i < 60; ++i) {
                 appendPatch(points);
             }
         },
         1,
         BATCH_LIMIT},
        {{"gives point size 0", {}, L"Point size 0 from the host taken as 1\n"}, patch, 0, PATCH_POINTS},
        {{"gives a negative point size", {}, L"Point size -3 from the host taken as 1\n"},
         patch,
         -3,
         PATCH_POINTS},
    };
    for (const PointRow& r : rows) {
        SCOPED_TRACE(r.row.name);
        RecordingHost host;
        std::mutex mutex;
        std::vector<double> heights;
        host.pointSize = r.pointSize;
        host.pointQuery = [&](float, unsigned short, unsigned short, float, float,
                              Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>,
                              std::vector<VR::Point3dRGBA>& points) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                heights.push_back(position.z);
            }
            r.answer(points);
        };
        const bool drawn = r.largestBatch > 0;
        const Outcome out = check(
            r.row, host, [&] { return host.count("queryPoints") >= 4 && (!drawn || showsRed(leftEye())); });
        EXPECT_EQ(showsRed(leftEye()), drawn);
        EXPECT_LE(out.statistics.pointsPerBatch.max, r.largestBatch);
        std::lock_guard<std::mutex> lock(mutex);
        ASSERT_GE(heights.size(), 4u);
        for (const double height : heights) {
            EXPECT_TRUE(setByTheLoop(height)) << "a query at height " << height << " no frame had set";
        }
    }
}

// Measurements and annotations (slots 1 and 2, fetched once a second) and meshes (slot 4, at set-up). Each
// row lasts two fetches, so trouble that came twice is still logged once.
TEST_F(HostileHost, ObjectRecords) {
    const VR::AnnotationData label{{0.5, 2.5, 1.5}, "A", "a-1"};
    const Row rows[] = {
        {"measurements throw", throwIn("getMeasurements"), L"Exception caught: getMeasurements failed\n"},
        {"annotations throw", throwIn("getAnnotations"), L"Exception caught: getAnnotations failed\n"},
        {"measurements share an identifier", objects({AHEAD, AHEAD}, {}),
         L"Measurements with the same identifier shown; a click cannot tell them apart\n"},
        {"a measurement has no identifier", objects({{AHEAD.points, ""}}, {}),
         L"Measurement without an identifier shown; it cannot be clicked\n"},
        {"annotations share an identifier", objects({}, {label, label}),
         L"Annotations with the same identifier shown; a click cannot tell them apart\n"},
        {"an annotation has no identifier", objects({}, {{label.position, label.text, ""}}),
         L"Annotation without an identifier shown; it cannot be clicked\n"},
        {"meshes throw", throwIn("getMeshes"), L"Exception caught: getMeshes failed\n",
         VRGlobals::InitializationError},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingHost host;
        check(row, host, [&] { return host.count("getMeasurements") >= 2; });
    }
}

// The tablet's page (slot 5) and the texts the host hands over: the length's (slots 21 and 22) and the
// annotations'.
TEST_F(HostileHost, TabletAndTexts) {
    const auto pageEachFrame = [](int width, int height) {
        return [=](RecordingHost& host) {
            host.beforeCall = [&host, width, height](const std::string& called) {
                if (called == "getHtmlImage") {
                    host.setPage(std::vector<unsigned char>(64), width, height);
                }
            };
        };
    };
    const Row rows[] = {
        {"offers an empty page", pageEachFrame(0, 0),
         L"Tablet page of 0 x 0 pixels cannot be shown; keeping the last page\n"},
        {"offers a page of negative width", pageEachFrame(-4, 4),
         L"Tablet page of -4 x 4 pixels cannot be shown; keeping the last page\n"},
        {"offers a page wider than GL allows", pageEachFrame(100000, 2),
         L"Tablet page of 100000 x 2 pixels is larger than"},
        {"names a unit that is not UTF-8", objects({AHEAD}, {}, "m\xC3\x28"),
         L"Length text that is not UTF-8 shown with replacement characters\n"},
        {"writes an annotation that is not UTF-8",
         objects({}, {{{0.5, 2.5, 1.5}, "bad \xE6\xB5 text", "a-1"}}),
         L"Annotation text that is not UTF-8 shown with replacement characters\n"},
        // An exception on the render thread ends the run as any exception in a frame does.
        {"fails to format a length",
         [](RecordingHost& host) {
             objects({AHEAD}, {})(host);
             throwIn("formatLength")(host);
         },
         L"Exception caught: formatLength failed\n", VRGlobals::NoError, VRGlobals::InitializationError},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingHost host;
        check(row, host, [&] { return host.count("getMeasurements") >= 2; });
    }
}

// The user's place: the start position, fly-to requests (slot 15), the view transform (slot 16), and the
// set-up's and the close's notices (slots 14 and 8).
TEST_F(HostileHost, ViewAndCamera) {
    const auto flyToEachFrame = [](Ko_1_1::Vec3d<float> target, float distance,
                                   Ko_1_1::Vec3d<float> direction) {
        return [=](RecordingHost& host) {
            host.beforeCall = [=, &host](const std::string& called) {
                if (called == "takeFlyToRequest") {
                    host.requestFlyTo(target, distance, direction);
                }
            };
        };
    };
    const std::wstring flyToIgnored =
        L"Fly-to request with a non-finite target, distance, direction or destination ignored\n";
    const VRGlobals::ErrorCodes ok = VRGlobals::NoError;
    const Row rows[] = {
        {"flies to a NaN target", flyToEachFrame({NAN_F, 0, 0}, 1, {0, 1, 0}), flyToIgnored},
        {"flies to an infinite distance", flyToEachFrame({0, 2, 1}, INF_F, {0, 1, 0}), flyToIgnored},
        {"flies beyond the float range", flyToEachFrame({3e38f, 0, 0}, -3e38f, {1, 0, 0}), flyToIgnored},
        {"starts at NaN",
         {},
         L"Start position is not finite; starting at the origin\n",
         ok,
         ok,
         {NAN_F, 0, 0}},
        {"throws from the view transform", throwIn("setViewTransform"),
         L"Exception caught: setViewTransform failed\n", ok, VRGlobals::InitializationError},
        {"throws from the headset kind", throwIn("setHeadsetKind"),
         L"Exception caught: setHeadsetKind failed\n", VRGlobals::InitializationError},
        {"throws from the close notice", throwIn("onVrClosed"), L"Exception caught: onVrClosed failed\n"},
        {"throws a non-standard exception from the view transform", throwIn("setViewTransform", false),
         L"Exception caught: unknown exception\n", ok, VRGlobals::InitializationError},
        {"throws a non-standard exception from the close notice", throwIn("onVrClosed", false),
         L"Exception caught: unknown exception\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        RecordingHost host;
        check(row, host, [] { return true; });
    }
}

} // namespace
