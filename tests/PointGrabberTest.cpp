#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/support/Messages.h"
#include "vr/points/PointGrabber.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;
using VR::Point3dRGB;
using VR::Point3dRGBA;
using VR::PointGrabber;

// Generous: the machine running the tests may be loaded; nothing here measures speed.
bool waitUntil(const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

struct QueryCall {
    float fov;
    unsigned short width;
    unsigned short height;
    float nearZ;
    float farZ;
    Vec3d<double> position;
    Vec3d<double> up;
    Vec3d<double> back;
};

// The host side of a test: records every query and answers with whatever `answer` puts out.
class Host {
public:
    std::function<void(const QueryCall&, int callIndex, std::vector<Point3dRGBA>&)> answer;

    PointGrabber::PointQuery query() {
        return [this](float fov, unsigned short w, unsigned short h, float n, float f, Vec3d<double> pos,
                      Vec3d<double> up, Vec3d<double> back, std::vector<Point3dRGBA>& out) {
            const QueryCall call{fov, w, h, n, f, pos, up, back};
            int index;
            {
                std::lock_guard<std::mutex> guard(mutex);
                index = static_cast<int>(calls.size());
                calls.push_back(call);
            }
            if (answer) {
                answer(call, index, out);
            }
        };
    }
    std::vector<QueryCall> snapshot() {
        std::lock_guard<std::mutex> guard(mutex);
        return calls;
    }
    bool waitForCalls(std::size_t n) {
        return waitUntil([&] { return snapshot().size() >= n; });
    }

private:
    std::mutex mutex;
    std::vector<QueryCall> calls;
};

Point3dRGBA point(float x, float y, float z) {
    return {x, y, z, 10, 20, 30, 40};
}

Mat4d<float> translated(float x, float y, float z) {
    return Mat4d<float>::translationMatrix({x, y, z});
}

bool isCentrePass(const QueryCall& c) {
    return c.fov != PointGrabber::PERIPHERY_FOV;
}

// Stops the worker however the test ends: a joinable worker at destruction would end the process.
struct StopOnExit {
    PointGrabber& grabber;
    ~StopOnExit() { grabber.stopThread(); }
};

// Takes every batch over as the render thread would; returns the batch records taken so far.
std::vector<PointGrabber::BufferData> take(PointGrabber& grabber,
                                           std::vector<PointGrabber::BufferData>& taken) {
    grabber.tryProcessObjects(
        [&](std::vector<Point3dRGB>&, const PointGrabber::BufferData& d) { taken.push_back(d); });
    return taken;
}

TEST(PointGrabber, QueriesTheCameraFrameAndDropsTheCentreConeFromThePeriphery) {
    Host host;
    host.answer = [](const QueryCall&, int, std::vector<Point3dRGBA>& out) {
        EXPECT_TRUE(out.empty());
        out = {{1.5f, -2.0f, -3.0f, 200, 100, 50, 7},
               point(0.5f, -0.5f, -1),
               point(0.67f, 0.67f, -1),
               point(0.7f, 0, -1),
               point(-3, 0, -4),
               point(-2.5f, 0, -4),
               point(0, 0, 1),
               point(0, 0, 0)};
    };
    PointGrabber grabber(host.query());
    Mat4d<float> camera;
    for (int i = 0; i < 16; ++i) {
        camera[i] = static_cast<float>(i) + 0.25f;
    }
    std::vector<Point3dRGB> all{{9, 9, 9, 1, 1, 1, 0}};
    grabber.searchPoints(camera, 0.9f, 640, 480, all, false);

    const QueryCall c = host.snapshot().at(0);
    EXPECT_EQ(std::make_tuple(c.fov, c.width, c.height, c.nearZ, c.farZ),
              std::make_tuple(0.9f, 640, 480, 0.02f, 1000.0f));
    EXPECT_EQ(c.position, (Vec3d<double>{12.25, 13.25, 14.25}));
    EXPECT_EQ(c.up, (Vec3d<double>{4.25, 5.25, 6.25}));
    EXPECT_EQ(c.back, (Vec3d<double>{8.25, 9.25, 10.25}));
    ASSERT_EQ(all.size(), 9u) << "appended behind what was there";
    const Point3dRGB& first = all[1];
    EXPECT_EQ(std::make_tuple(first.x, first.y, first.z, first.r, first.g, first.b),
              std::make_tuple(1.5f, -2.0f, -3.0f, 200, 100, 50));

    // Outside the cone (|x| or |y| beyond 0.68 |z|) or not in front of the camera.
    std::vector<Point3dRGB> periphery;
    grabber.searchPoints(camera, 2.4f, 10, 10, periphery, true);
    std::vector<std::pair<float, float>> kept;
    for (const Point3dRGB& p : periphery) {
        kept.emplace_back(p.x, p.z);
    }
    EXPECT_EQ(kept, (std::vector<std::pair<float, float>>{{0.7f, -1}, {-3, -4}, {0, 1}, {0, 0}}));

    PointGrabber empty(PointGrabber::PointQuery{});
    EXPECT_THROW(empty.searchPoints(camera, 1.2f, 10, 10, all, false), std::bad_function_call);
    EXPECT_FALSE(empty.tryProcessObjects({})) << "nothing ready: the consumer is not needed";
}

TEST(PointGrabber, QualityLevelFollowsQueryTimeAndMovement) {
    struct Case {
        int level;
        bool firstEye;
        bool moving;
        double seconds;
        int expected;
    };
    const Case cases[] = {
        // At rest the limit is 0.2 s; the level only rises on the first eye, below a third of the limit.
        {1, true, false, 0.05, 2},
        {2, true, false, 0.05, 3},
        {3, true, false, 0.05, 3},
        {2, false, false, 0.05, 2},
        {2, true, false, 0.10, 2},
        {3, true, false, 0.25, 2},
        {2, true, false, 0.25, 2},  // level 1 at rest becomes 2 again at once
        {3, false, false, 0.25, 3}, // the second eye at rest never lowers it
        // Moving: the limit is 0.1 s and either eye lowers it.
        {3, false, true, 0.15, 2},
        {2, false, true, 0.15, 1},
        {1, true, true, 0.15, 1},
        {1, true, true, 0.02, 2},
        {2, false, true, 0.02, 2},
        {2, true, true, 0.05, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "level " << c.level << " firstEye " << c.firstEye << " moving "
                                        << c.moving << " " << c.seconds << " s");
        EXPECT_EQ(PointGrabber::nextQualityLevel(c.level, c.firstEye, c.moving, c.seconds), c.expected);
    }

    // Moving is a shift of the point one unit behind the eye, so a turn on the spot counts.
    const Mat4d<float> still = translated(1, 2, 3);
    EXPECT_FALSE(PointGrabber::isMoving(still, translated(1.15f, 2, 3), 0.2)) << "below the threshold";
    EXPECT_TRUE(PointGrabber::isMoving(still, translated(1.25f, 2, 3), 0.2));
    EXPECT_TRUE(PointGrabber::isMoving(still, still * Mat4d<float>::rotation({0, 1, 0}, 0.3f), 0.2));
}

TEST(PointGrabber, QuerySizeFollowsLevelAndPointSize) {
    struct Case {
        int level;
        int divisor;
        int width;
        int height;
        float fov;
    };
    const Case cases[] = {{1, 1, 500, 400, 1.2f}, {2, 1, 1000, 800, 1.2f}, {3, 1, 2000, 1600, 2.0f},
                          {1, 2, 250, 200, 1.2f}, {2, 3, 333, 266, 1.2f},  {3, 2, 1000, 800, 2.0f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "level " << c.level << " divisor " << c.divisor);
        const PointGrabber::QuerySize size = PointGrabber::querySize(c.level, 1000, 800, c.divisor, 1.2f);
        EXPECT_EQ(std::make_tuple(size.width, size.height, size.fov),
                  std::make_tuple(c.width, c.height, c.fov));
    }
}

// The worker on a real thread, with time given by the test: fast answers at rest raise the quality to the
// wide query; slow answers while the head moves bring it down to reduced batches.
TEST(PointGrabber, WorkerAdaptsToTheClockAndTheHead) {
    Host host;
    std::atomic<std::int64_t> now{0};
    std::atomic<std::int64_t> step{0};
    std::atomic<bool> move{false};
    PointGrabber grabber(host.query());
    float x = 0;
    host.answer = [&](const QueryCall& c, int, std::vector<Point3dRGBA>& out) {
        out.push_back(point(0, 0, -1));
        if (!isCentrePass(c)) {
            return;
        }
        now += step;
        if (move) {
            x += 1.0f;
            Mat4d<float> m = translated(x, 0, 0);
            grabber.setCameraToWorldMatrix(m, 0);
        }
    };
    grabber.setClock([&] { return now.load(); });
    grabber.setResolution(100, 80);
    grabber.setPointSize(0); // a host answering 0 must not divide by zero
    grabber.startThread();
    StopOnExit stopper{grabber};
    // The worker only goes on once its batch is taken, so the test takes them as the renderer would.
    std::vector<PointGrabber::BufferData> taken;
    auto waitTaking = [&](const std::function<bool(const QueryCall&)>& match) {
        return waitUntil([&] {
            take(grabber, taken);
            const std::vector<QueryCall> calls = host.snapshot();
            return std::any_of(calls.begin(), calls.end(), match);
        });
    };

    // The first iteration counts as slow, but a head at rest never queries at level 1.
    ASSERT_TRUE(host.waitForCalls(2));
    const std::vector<QueryCall> first = host.snapshot();
    EXPECT_EQ(std::make_tuple(first[0].fov, first[0].width, first[0].height), std::make_tuple(1.2f, 100, 80));
    EXPECT_EQ(std::make_tuple(first[1].fov, first[1].width, first[1].height), std::make_tuple(2.4f, 50, 40));

    auto wide = [](const QueryCall& c) { return c.fov == 2.0f && c.width == 200 && c.height == 160; };
    ASSERT_TRUE(waitTaking(wide));

    step = 300000000; // 0.3 s a query
    move = true;
    auto half = [](const QueryCall& c) { return c.fov == 1.2f && c.width == 50 && c.height == 40; };
    ASSERT_TRUE(waitTaking(half));
    ASSERT_TRUE(waitUntil([&] {
        const auto batches = take(grabber, taken);
        return std::any_of(batches.begin(), batches.end(), [](const auto& d) { return d.reduced; });
    }));
}

TEST(PointGrabber, EyesAlternateOnlyWhenABatchIsPublished) {
    for (int eyes : {2, 1}) {
        SCOPED_TRACE(testing::Message() << eyes << " eyes");
        Host host;
        std::atomic<bool> answering{false};
        host.answer = [&](const QueryCall& c, int, std::vector<Point3dRGBA>& out) {
            if (answering && isCentrePass(c)) {
                out.push_back(point(0, 0, -1));
            }
        };
        PointGrabber grabber(host.query());
        grabber.setResolution(40, 40);
        grabber.setNumEyes(eyes);
        // Left, right, and a third that no eye has.
        Mat4d<float> cameras[3] = {translated(1, 0, 0), translated(2, 0, 0), translated(9, 0, 0)};
        for (unsigned long long eye = 0; eye < 3; ++eye) {
            grabber.setCameraToWorldMatrix(cameras[eye], eye);
        }
        grabber.startThread();

        ASSERT_TRUE(host.waitForCalls(10));
        EXPECT_FALSE(grabber.tryProcessObjects([](std::vector<Point3dRGB>&, const PointGrabber::BufferData&) {
            ADD_FAILURE() << "an empty result was published";
        }));
        answering = true;
        std::vector<PointGrabber::BufferData> batches;
        ASSERT_TRUE(waitUntil([&] { return take(grabber, batches).size() >= 4; }));
        grabber.stopThread();

        const std::vector<QueryCall> calls = host.snapshot();
        for (std::size_t i = 0; i < 10; ++i) {
            EXPECT_EQ(calls[i].position.x, 1.0) << "empty iterations keep asking eye 0; call " << i;
        }
        for (std::size_t i = 0; i < batches.size(); ++i) {
            EXPECT_EQ(batches[i].firstEye, i % 2 == 0);
            EXPECT_EQ(batches[i].cameraToWorld, cameras[eyes == 2 ? i % 2 : 0]) << "batch " << i;
        }
    }
}

TEST(PointGrabber, CapsBatchAtFourTimesResolution) {
    Host host;
    host.answer = [](const QueryCall& c, int, std::vector<Point3dRGBA>& out) {
        const int n = isCentrePass(c) ? 300 : 500;
        for (int i = 0; i < n; ++i) {
            out.push_back(point(static_cast<float>(i), isCentrePass(c) ? 0.0f : 1.0f, 1));
        }
    };
    PointGrabber grabber(host.query());
    grabber.setResolution(10, 10);
    grabber.setPointSize(2);
    grabber.startThread();

    // An empty consumer throws and leaves the batch waiting.
    ASSERT_EQ(OrvelTest::thrownMessage([&] {
                  while (!grabber.tryProcessObjects({})) {
                      std::this_thread::yield();
                  }
              }),
              std::bad_function_call().what());
    PointGrabber::BufferData data;
    std::vector<Point3dRGB> points;
    ASSERT_TRUE(grabber.tryProcessObjects([&](std::vector<Point3dRGB>& p, const PointGrabber::BufferData& d) {
        points.swap(p);
        data = d;
    }));
    grabber.stopThread();
    EXPECT_EQ(host.snapshot().at(0).width, 5) << "the divisor shrinks the query, not the cap";
    EXPECT_EQ(std::make_tuple(data.centreCount, data.peripheryCount, data.uploadedCount),
              std::make_tuple(400, 0, 0));
    ASSERT_EQ(points.size(), 400u);
    // The cut keeps the centre pass whole and the first periphery points behind it.
    EXPECT_EQ(std::make_pair(points[299].x, points[299].y), std::make_pair(299.0f, 0.0f));
    EXPECT_EQ(std::make_pair(points[300].x, points[300].y), std::make_pair(0.0f, 1.0f));
}

TEST(PointGrabber, StopWhileWaitingForRendererPublishesBatchInHandOnce) {
    Host host;
    // Call i answers i + 1 points, so each batch can be told apart by its counts.
    host.answer = [](const QueryCall&, int index, std::vector<Point3dRGBA>& out) {
        out.assign(static_cast<std::size_t>(index) + 1, point(0, 0, 1));
    };
    PointGrabber grabber(host.query());
    grabber.setResolution(40, 40);
    grabber.startThread();

    // Nobody takes the first batch (calls 0 and 1), so the worker waits with the second (calls 2 and 3).
    ASSERT_TRUE(host.waitForCalls(4));
    grabber.stopThread();
    EXPECT_EQ(host.snapshot().size(), 4u);

    PointGrabber::BufferData data;
    std::size_t count = 0;
    EXPECT_TRUE(
        grabber.tryProcessObjects([&](std::vector<Point3dRGB>& points, const PointGrabber::BufferData& d) {
            data = d;
            count = points.size();
        }));
    EXPECT_EQ(std::make_tuple(count, data.centreCount, data.peripheryCount, data.firstEye),
              std::make_tuple(std::size_t{7}, 3, 4, false));
    EXPECT_FALSE(grabber.tryProcessObjects([](std::vector<Point3dRGB>&, const PointGrabber::BufferData&) {}));

    grabber.stopThread(); // a second stop is harmless
    PointGrabber neverStarted(host.query());
    neverStarted.stopThread();
    PointGrabber paused(host.query());
    paused.setPausePC2(true);
    paused.startThread();
    paused.stopThread();
    EXPECT_EQ(host.snapshot().size(), 4u) << "a paused grabber asks nothing";
}

// A host that always throws is asked again and again, but the log gets its first failure and then one line
// a second with the count, not a line per attempt.
TEST(PointGrabber, ThrowingHostIsRetriedAndLoggedOnceASecond) {
    OrvelTest::LogCapture log;
    std::atomic<std::int64_t> now{0};
    std::atomic<int> attempts{0};
    PointGrabber grabber([&](float, unsigned short, unsigned short, float, float, Vec3d<double>,
                             Vec3d<double>, Vec3d<double>, std::vector<Point3dRGBA>&) {
        now += 100000000; // 0.1 s an attempt
        ++attempts;
        throw std::runtime_error("scan locked");
    });
    grabber.setClock([&] { return now.load(); });
    grabber.setResolution(40, 40);
    grabber.startThread();
    ASSERT_TRUE(waitUntil([&] { return attempts >= 35; }));
    grabber.stopThread();

    const int made = attempts;
    const auto lines = log.startingWith(L"Exception caught: scan locked");
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], L"Exception caught: scan locked\n");
    EXPECT_EQ(lines[1], L"Exception caught: scan locked (10 more times)\n");
    EXPECT_LE(static_cast<int>(lines.size()), 1 + made / 10);
}

} // namespace
