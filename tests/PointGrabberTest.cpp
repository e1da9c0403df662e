#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "vr/points/PointGrabber.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;
using VR::Point3dRGB;
using VR::Point3dRGBA;
using VR::PointGrabber;

// Generous: the machine running the tests may be loaded; nothing here measures speed.
constexpr auto PATIENCE = std::chrono::seconds(30);

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

// The host side of a test: records every query and answers with whatever `answer` returns.
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
            changed.notify_all();
            if (answer) {
                answer(call, index, out);
            }
        };
    }

    std::vector<QueryCall> snapshot() {
        std::lock_guard<std::mutex> guard(mutex);
        return calls;
    }

    bool waitFor(const std::function<bool(const std::vector<QueryCall>&)>& done) {
        std::unique_lock<std::mutex> guard(mutex);
        return changed.wait_for(guard, PATIENCE, [&] { return done(calls); });
    }

    // Waits for a call from index `from` on that matches; returns the index after it (0: none came).
    std::size_t waitForCall(std::size_t from, const std::function<bool(const QueryCall&)>& match) {
        std::size_t found = 0;
        waitFor([&](const std::vector<QueryCall>& c) {
            for (std::size_t i = from; i < c.size(); ++i) {
                if (match(c[i])) {
                    found = i + 1;
                    return true;
                }
            }
            return false;
        });
        return found;
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
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

// Takes batches over on its own thread the way the render thread would, once a millisecond.
class Renderer {
public:
    explicit Renderer(PointGrabber& grabber)
        : thread([this, &grabber] {
              while (!quit) {
                  grabber.tryProcessObjects(
                      [this](std::vector<Point3dRGB>& points, const PointGrabber::BufferData& d) {
                          std::lock_guard<std::mutex> guard(mutex);
                          batches.push_back(d);
                          sizes.push_back(points.size());
                      });
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
              }
          }) {}
    ~Renderer() {
        quit = true;
        thread.join();
    }

    std::vector<PointGrabber::BufferData> taken() {
        std::lock_guard<std::mutex> guard(mutex);
        return batches;
    }

    std::mutex mutex;
    std::vector<PointGrabber::BufferData> batches;
    std::vector<std::size_t> sizes;

private:
    std::atomic<bool> quit{false};
    std::thread thread;
};

bool waitUntil(const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

TEST(PointGrabber, PassesCameraFrameToQueryAndConvertsPoints) {
    Host host;
    host.answer = [](const QueryCall&, int, std::vector<Point3dRGBA>& out) {
        EXPECT_TRUE(out.empty());
        out.push_back({1.5f, -2.0f, -3.0f, 200, 100, 50, 7});
    };
    PointGrabber grabber(host.query());
    Mat4d<float> camera;
    for (int i = 0; i < 16; ++i) {
        camera[i] = static_cast<float>(i) + 0.25f;
    }
    std::vector<Point3dRGB> out{{9, 9, 9, 1, 1, 1, 0}};
    grabber.searchPoints(camera, 0.9f, 640, 480, out, false);

    const QueryCall c = host.snapshot().at(0);
    EXPECT_FLOAT_EQ(c.fov, 0.9f);
    EXPECT_EQ(c.width, 640);
    EXPECT_EQ(c.height, 480);
    EXPECT_FLOAT_EQ(c.nearZ, 0.02f);
    EXPECT_FLOAT_EQ(c.farZ, 1000.0f);
    EXPECT_EQ(c.position, (Vec3d<double>{12.25, 13.25, 14.25}));
    EXPECT_EQ(c.up, (Vec3d<double>{4.25, 5.25, 6.25}));
    EXPECT_EQ(c.back, (Vec3d<double>{8.25, 9.25, 10.25}));

    ASSERT_EQ(out.size(), 2u); // appended behind what was there
    EXPECT_EQ(out[1].x, 1.5f);
    EXPECT_EQ(out[1].y, -2.0f);
    EXPECT_EQ(out[1].z, -3.0f);
    EXPECT_EQ(out[1].r, 200);
    EXPECT_EQ(out[1].g, 100);
    EXPECT_EQ(out[1].b, 50);

    PointGrabber empty(PointGrabber::PointQuery{});
    EXPECT_THROW(empty.searchPoints(camera, 1.2f, 10, 10, out, false), std::bad_function_call);
    EXPECT_FALSE(empty.tryProcessObjects({})); // nothing ready: the consumer is not needed
}

TEST(PointGrabber, DropsCentreConeInPeripheryPass) {
    Host host;
    host.answer = [](const QueryCall&, int, std::vector<Point3dRGBA>& out) {
        out = {point(0, 0, -1),     point(0.5f, -0.5f, -1), point(0.67f, 0.67f, -1), point(0.7f, 0, -1),
               point(0, -0.7f, -1), point(-3, 0, -4),       point(-2.5f, 0, -4),     point(0, 0, 1),
               point(0, 0, 0),      point(0.1f, 0.1f, 2)};
    };
    PointGrabber grabber(host.query());
    Mat4d<float> camera;

    std::vector<Point3dRGB> all;
    grabber.searchPoints(camera, 2.4f, 10, 10, all, false);
    EXPECT_EQ(all.size(), 10u);

    std::vector<Point3dRGB> periphery;
    grabber.searchPoints(camera, 2.4f, 10, 10, periphery, true);
    std::vector<std::pair<float, float>> kept;
    for (const Point3dRGB& p : periphery) {
        kept.emplace_back(p.x, p.z);
    }
    // Outside the cone (|x| or |y| beyond 0.68 |z|) or not in front of the camera.
    const std::vector<std::pair<float, float>> expected{{0.7f, -1}, {0, -1}, {-3, -4},
                                                        {0, 1},     {0, 0},  {0.1f, 2}};
    EXPECT_EQ(kept, expected);
}

TEST(PointGrabber, AdaptsQualityToQueryDurationAndMovement) {
    Host host;
    std::atomic<bool> slow{false};
    std::atomic<bool> move{false};
    PointGrabber* grabberPtr = nullptr;
    float x = 0;
    host.answer = [&](const QueryCall& c, int, std::vector<Point3dRGBA>& out) {
        out.push_back(point(0, 0, -1));
        if (!isCentrePass(c)) {
            return;
        }
        if (move) {
            // Worker thread: the head jumps a metre between two iterations.
            x += 1.0f;
            Mat4d<float> m = translated(x, 0, 0);
            grabberPtr->setCameraToWorldMatrix(m, 0);
        }
        if (slow) {
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
        }
    };
    PointGrabber grabber(host.query());
    grabberPtr = &grabber;
    grabber.setResolution(100, 80);
    Renderer renderer(grabber);
    grabber.startThread();

    // The first iteration counts as slow but the head is at rest: full resolution, never level 1.
    ASSERT_TRUE(host.waitFor([](const std::vector<QueryCall>& c) { return c.size() >= 2; }));
    std::vector<QueryCall> calls = host.snapshot();
    EXPECT_FLOAT_EQ(calls[0].fov, 1.2f);
    EXPECT_EQ(calls[0].width, 100);
    EXPECT_EQ(calls[0].height, 80);
    EXPECT_FLOAT_EQ(calls[1].fov, 2.4f);
    EXPECT_EQ(calls[1].width, 50);
    EXPECT_EQ(calls[1].height, 40);

    // Fast answers raise the level: double resolution, wide field of view, no periphery pass.
    auto wide = [](const QueryCall& c) { return c.fov == 2.0f && c.width == 200 && c.height == 160; };
    std::size_t seen = host.waitForCall(0, wide);
    ASSERT_NE(seen, 0u);

    // Slow answers while moving bring it down to half resolution, with batches marked reduced.
    move = true;
    slow = true;
    auto half = [](const QueryCall& c) { return c.fov == 1.2f && c.width == 50 && c.height == 40; };
    seen = host.waitForCall(seen, half);
    ASSERT_NE(seen, 0u);
    ASSERT_TRUE(waitUntil([&] {
        for (const PointGrabber::BufferData& d : renderer.taken()) {
            if (d.reduced) {
                return true;
            }
        }
        return false;
    }));

    // At rest and fast again, it climbs back up.
    move = false;
    slow = false;
    ASSERT_NE(host.waitForCall(seen, wide), 0u);
    grabber.stopThread();

    // Every query the worker made was one of the three levels' passes.
    calls = host.snapshot();
    for (const QueryCall& c : calls) {
        const bool periphery =
            c.fov == 2.4f && ((c.width == 50 && c.height == 40) || (c.width == 25 && c.height == 20));
        const bool centre = c.fov == 1.2f && ((c.width == 100 && c.height == 80) || half(c));
        EXPECT_TRUE(periphery || centre || wide(c)) << c.fov << " " << c.width << "x" << c.height;
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
    EXPECT_EQ(grabber.getMaxPointsFromPC2(), 400u);
    grabber.startThread();

    // An empty consumer throws and leaves the batch waiting.
    ASSERT_TRUE(waitUntil([&] {
        try {
            grabber.tryProcessObjects({});
        } catch (const std::bad_function_call&) {
            return true;
        }
        return false;
    }));
    PointGrabber::BufferData data;
    std::vector<Point3dRGB> points;
    ASSERT_TRUE(waitUntil([&] {
        return grabber.tryProcessObjects([&](std::vector<Point3dRGB>& p, const PointGrabber::BufferData& d) {
            points.swap(p);
            data = d;
        });
    }));
    grabber.stopThread();
    // The divisor shrinks the query, not the cap.
    EXPECT_EQ(host.snapshot().at(0).width, 5);

    EXPECT_EQ(data.centreCount, 400);
    EXPECT_EQ(data.peripheryCount, 0);
    EXPECT_EQ(data.uploadedCount, 0);
    ASSERT_EQ(points.size(), 400u);
    // The cut keeps the centre pass whole and the first periphery points behind it.
    EXPECT_EQ(points[299].x, 299.0f);
    EXPECT_EQ(points[299].y, 0.0f);
    EXPECT_EQ(points[300].x, 0.0f);
    EXPECT_EQ(points[300].y, 1.0f);
}

TEST(PointGrabber, EmptyResultKeepsEyeAndPublishesNothing) {
    Host host;
    std::atomic<bool> answering{false};
    host.answer = [&](const QueryCall& c, int, std::vector<Point3dRGBA>& out) {
        if (answering && isCentrePass(c)) {
            out.push_back(point(0, 0, -static_cast<float>(c.position.x)));
        }
    };
    PointGrabber grabber(host.query());
    grabber.setResolution(40, 40);
    Mat4d<float> left = translated(1, 0, 0);
    Mat4d<float> right = translated(2, 0, 0);
    grabber.setCameraToWorldMatrix(left, 0);
    grabber.setCameraToWorldMatrix(right, 1);
    Mat4d<float> ignored = translated(9, 0, 0);
    grabber.setCameraToWorldMatrix(ignored, 2);
    grabber.startThread();

    ASSERT_TRUE(host.waitFor([](const std::vector<QueryCall>& c) { return c.size() >= 10; }));
    EXPECT_FALSE(grabber.tryProcessObjects([](std::vector<Point3dRGB>&, const PointGrabber::BufferData&) {
        ADD_FAILURE() << "an empty result was published";
    }));
    answering = true;

    std::vector<PointGrabber::BufferData> batches;
    ASSERT_TRUE(waitUntil([&] {
        grabber.tryProcessObjects(
            [&](std::vector<Point3dRGB>&, const PointGrabber::BufferData& d) { batches.push_back(d); });
        return batches.size() >= 3;
    }));
    grabber.stopThread();

    const std::vector<QueryCall> calls = host.snapshot();
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_NE(calls[i].position.x, 9.0);
        if (i < 10) {
            EXPECT_EQ(calls[i].position.x, 1.0) << "call " << i;
        }
    }
    // Empty iterations kept asking eye 0, so the first batch is eye 0's; then the eyes alternate.
    EXPECT_TRUE(batches[0].firstEye);
    EXPECT_EQ(batches[0].cameraToWorld, left);
    EXPECT_FALSE(batches[1].firstEye);
    EXPECT_EQ(batches[1].cameraToWorld, right);
    EXPECT_TRUE(batches[2].firstEye);
}

TEST(PointGrabber, OneEyeUsesEyeZeroForBothBatches) {
    Host host;
    host.answer = [](const QueryCall&, int, std::vector<Point3dRGBA>& out) {
        out.push_back(point(0, 0, -1));
    };
    PointGrabber grabber(host.query());
    grabber.setResolution(40, 40);
    grabber.setNumEyes(1);
    Mat4d<float> left = translated(1, 0, 0);
    Mat4d<float> right = translated(2, 0, 0);
    grabber.setCameraToWorldMatrix(left, 0);
    grabber.setCameraToWorldMatrix(right, 1);
    grabber.startThread();

    std::vector<PointGrabber::BufferData> batches;
    ASSERT_TRUE(waitUntil([&] {
        grabber.tryProcessObjects(
            [&](std::vector<Point3dRGB>&, const PointGrabber::BufferData& d) { batches.push_back(d); });
        return batches.size() >= 4;
    }));
    grabber.stopThread();

    for (std::size_t i = 0; i < batches.size(); ++i) {
        EXPECT_EQ(batches[i].firstEye, i % 2 == 0);
        EXPECT_EQ(batches[i].cameraToWorld, left);
    }
    for (const QueryCall& c : host.snapshot()) {
        EXPECT_EQ(c.position.x, 1.0);
    }
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
    ASSERT_TRUE(host.waitFor([](const std::vector<QueryCall>& c) { return c.size() >= 4; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    grabber.stopThread();
    EXPECT_EQ(host.snapshot().size(), 4u);

    PointGrabber::BufferData data;
    EXPECT_TRUE(
        grabber.tryProcessObjects([&](std::vector<Point3dRGB>& points, const PointGrabber::BufferData& d) {
            data = d;
            EXPECT_EQ(points.size(), 7u);
        }));
    EXPECT_EQ(data.centreCount, 3);
    EXPECT_EQ(data.peripheryCount, 4);
    EXPECT_FALSE(data.firstEye);
    EXPECT_FALSE(grabber.tryProcessObjects([](std::vector<Point3dRGB>&, const PointGrabber::BufferData&) {}));

    grabber.stopThread(); // a second stop is harmless
    PointGrabber neverStarted(host.query());
    neverStarted.stopThread();
}

TEST(PointGrabber, PauseIdlesAndKeepsLastBatch) {
    Host host;
    PointGrabber* grabberPtr = nullptr;
    host.answer = [&](const QueryCall&, int index, std::vector<Point3dRGBA>& out) {
        out.push_back(point(0, 0, -1));
        if (index == 2) {
            grabberPtr->setPausePC2(true); // mid-iteration: its periphery pass still runs
        }
    };
    PointGrabber grabber(host.query());
    grabberPtr = &grabber;
    grabber.setResolution(40, 40);
    grabber.setPausePC2(true);
    EXPECT_TRUE(grabber.getPausePC2());
    grabber.startThread();
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_TRUE(host.snapshot().empty());

    grabber.setPausePC2(false);
    int batches = 0;
    ASSERT_TRUE(waitUntil([&] {
        if (grabber.tryProcessObjects([](std::vector<Point3dRGB>&, const PointGrabber::BufferData&) {})) {
            ++batches;
        }
        return batches == 2;
    }));
    EXPECT_TRUE(grabber.getPausePC2());
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(host.snapshot().size(), 4u);
    EXPECT_FALSE(grabber.tryProcessObjects([](std::vector<Point3dRGB>&, const PointGrabber::BufferData&) {}));
    grabber.stopThread();
}

} // namespace
