#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "engine/Buffer.h"
#include "engine/Renderer.h"
#include "tests/support/GLContext.h"
#include "tests/support/Messages.h"
#include "vr/points/PointGrabber.h"
#include "vr/points/PointRenderer.h"

namespace {

using Ko_1_1::Mat4d;
using Ko_1_1::Vec3d;
using VR::Point3dRGB;
using VR::Point3dRGBA;
using VR::PointGrabber;

constexpr int SIZE = 64;

using Answer = std::function<void(float fov, const Vec3d<double>& position, const Vec3d<double>& up,
                                  std::vector<Point3dRGBA>& out)>;

// A grabber with a running worker that is always stopped, also when an assertion ends the test early.
struct RunningGrabber {
    explicit RunningGrabber(Answer answer)
        : grabber([answer](float fov, unsigned short, unsigned short, float, float, Vec3d<double> position,
                           Vec3d<double> up, Vec3d<double>,
                           std::vector<Point3dRGBA>& out) { answer(fov, position, up, out); }) {}
    ~RunningGrabber() { grabber.stopThread(); }
    PointGrabber grabber;
};

bool isPeriphery(float fov) {
    return fov == PointGrabber::PERIPHERY_FOV;
}

// A host answering eye 0 (the untransformed camera) with `centre` and, in its periphery pass, `periphery`,
// and the other eye's centre pass with `other`; a point at z = 0 stands for no answer.
Answer onePointAPass(Point3dRGBA centre, Point3dRGBA periphery, Point3dRGBA other) {
    return [=](float fov, const Vec3d<double>& position, const Vec3d<double>& up,
               std::vector<Point3dRGBA>& out) {
        const bool eye0 = position.x == 0.0 && up.y > 0.0;
        const Point3dRGBA none{};
        const Point3dRGBA& p = isPeriphery(fov) ? (eye0 ? periphery : none) : (eye0 ? centre : other);
        if (p.z != 0) {
            out.push_back(p);
        }
    };
}

// Whether drawPoints has a batch of each eye to draw, at the given reduction.
bool bothEyesDrawable(const PointRenderer& points, bool reduced = false) {
    const PointRenderer::DrawSlots chosen = PointRenderer::chooseDrawSlots(
        {points.getSlot(0), points.getSlot(1), points.getSlot(2)}, points.getCurrentSlot());
    return chosen.firstEye >= 0 && chosen.otherEye >= 0 &&
           points.getSlot(chosen.firstEye).reduced == reduced &&
           points.getSlot(chosen.otherEye).reduced == reduced;
}

// Runs frames until `done`; batches arrive from the worker whenever it is ready.
bool runFramesUntil(const std::function<void()>& frame, const std::function<bool()>& done) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        frame();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

using OrvelTest::readStencil;

// 90 degrees vertically on a square target: a point (x, 0, -5) in front of the camera lands at pixel
// column 32 + 32 * x / 5.
Mat4d<float> projection() {
    return Mat4d<float>::perspective(SIZE, SIZE, -0.1f, -100.0f, 1.5707964f, 0.0f, 0.0f);
}

using PointRendererGLTest = OrvelTest::GLTest;

// Rows: the three slots' first-eye flags and counts, the slot being filled, the slots drawn.
TEST(PointRendererSlots, DrawsTheFirstCompleteSlotOfEachEye) {
    struct Case {
        bool firstEye[3];
        int counts[3];
        int current;
        int expectedFirst;
        int expectedOther;
    };
    const Case cases[] = {
        {{true, false, false}, {5, 5, 0}, 2, 0, 1},  {{true, false, true}, {5, 5, 5}, 0, 2, 1},
        {{true, true, false}, {5, 5, 5}, 2, 0, -1},  {{false, true, false}, {5, 5, 5}, 1, -1, 0},
        {{true, false, false}, {5, 0, 0}, 2, 0, -1}, // a slot that never got a batch does not count
        {{false, false, true}, {0, 5, 5}, 0, 2, 1},  {{true, false, true}, {5, 5, 5}, 1, 0, -1},
    };
    for (const Case& c : cases) {
        PointGrabber::BufferData slots[PointRenderer::BUFFER_COUNT];
        for (int i = 0; i < PointRenderer::BUFFER_COUNT; ++i) {
            slots[i].firstEye = c.firstEye[i];
            slots[i].centreCount = c.counts[i];
        }
        const PointRenderer::DrawSlots chosen = PointRenderer::chooseDrawSlots(slots, c.current);
        EXPECT_EQ(std::make_pair(chosen.firstEye, chosen.otherEye),
                  std::make_pair(c.expectedFirst, c.expectedOther))
            << "current " << c.current;
    }
}

TEST_F(PointRendererGLTest, SpreadsLargeBatchOverThreeFrames) {
    constexpr int BATCH = 1000000;
    RunningGrabber host(
        [](float fov, const Vec3d<double>&, const Vec3d<double>&, std::vector<Point3dRGBA>& out) {
            if (isPeriphery(fov)) {
                return;
            }
            out.resize(BATCH);
            for (int i = 0; i < BATCH; ++i) {
                out[i] = {static_cast<float>(i), 1.0f, 2.0f, static_cast<std::uint8_t>(i), 7, 9, 255};
            }
        });
    host.grabber.setResolution(500, 500); // room for exactly one batch
    PointRenderer points(host.grabber, 1.0f, 0, 0);
    ASSERT_EQ(points.getBuffer(0)->getByteSize(), BATCH * 16);
    host.grabber.startThread();

    Brume::Renderer renderer;
    const Mat4d<float> viewProjection = projection();
    OrvelTest::GLCallRecorder recorder;
    auto frame = [&] {
        recorder.clear();
        points.draw(renderer, viewProjection);
    };
    ASSERT_TRUE(runFramesUntil(frame, [&] { return points.getSlot(0).uploadedCount > 0; }));
    // One upload step a frame; the slot turns only after the last.
    for (const auto& [uploaded, slot] : {std::pair{400000, 0}, {800000, 0}, {BATCH, 1}}) {
        EXPECT_EQ(recorder.count("glBufferSubData"), 1);
        EXPECT_EQ(std::make_pair(points.getSlot(0).uploadedCount, points.getCurrentSlot()),
                  std::make_pair(uploaded, slot));
        if (slot == 0) {
            frame();
        }
    }
    EXPECT_EQ(recorder.count("glDrawArrays"), 0) << "only one eye's batch so far: nothing is drawn";

    // Each part landed at its own offset.
    glBindBuffer(GL_ARRAY_BUFFER, points.getBuffer(0)->getId());
    for (int i : {0, 399999, 400000, 799999, 800000, 999999}) {
        Point3dRGB p{};
        glGetBufferSubData(GL_ARRAY_BUFFER, static_cast<GLintptr>(i * sizeof(Point3dRGB)), sizeof(p), &p);
        EXPECT_EQ(std::make_tuple(p.x, p.z, p.r, p.b),
                  std::make_tuple(static_cast<float>(i), 2.0f, i % 256, 9));
    }
}

TEST_F(PointRendererGLTest, RejectsBatchLargerThanItsBuffers) {
    RunningGrabber host(
        [](float fov, const Vec3d<double>&, const Vec3d<double>&, std::vector<Point3dRGBA>& out) {
            if (!isPeriphery(fov)) {
                out.assign(1000, Point3dRGBA{0, 0, -1, 1, 2, 3, 4});
            }
        });
    host.grabber.setResolution(10, 10);
    PointRenderer points(host.grabber, 1.0f, 0, 0);
    host.grabber.setResolution(20, 20); // the grabber now publishes more than 400 points
    host.grabber.startThread();

    std::string message = "<no exception>";
    runFramesUntil([&] { message = OrvelTest::thrownMessage([&] { points.uploadNewBuffer(); }); },
                   [&] { return message != "<no exception>"; });
    EXPECT_EQ(message, "Buffer::subData out of bounds");
}

// Eye 0 sees a red point straight ahead and a blue periphery point far left; eye 1, one metre to the
// right, sees a green point straight ahead of itself.
TEST_F(PointRendererGLTest, DrawsBothEyesBatchesWhereTheyProjectAndWritesStencil) {
    RunningGrabber host(
        onePointAPass({0, 0, -5, 255, 0, 0, 0}, {-4, 0, -5, 0, 0, 255, 0}, {0, 0, -5, 0, 255, 0, 0}));
    host.grabber.setResolution(10, 10);
    Mat4d<float> right = Mat4d<float>::translationMatrix({1, 0, 0});
    host.grabber.setCameraToWorldMatrix(right, 1);
    PointRenderer points(host.grabber, 5.0f, 0, 0);
    points.setPointSize(2.0f);
    host.grabber.startThread();

    Brume::Renderer renderer;
    OrvelTest::drawInto(renderer, SIZE, SIZE);
    const Mat4d<float> viewProjection = projection();
    ASSERT_TRUE(
        runFramesUntil([&] { points.uploadNewBuffer(); }, [&] { return points.getCurrentSlot() == 2; }));

    renderer.clear();
    points.drawPoints(renderer, viewProjection);
    // Red at the centre, green one fifth of the half-width to the right, both 2 pixels wide.
    EXPECT_EQ(OrvelTest::readPixel(32, 32).r, 255);
    EXPECT_EQ(OrvelTest::readPixel(38, 32).g, 255);
    EXPECT_EQ(OrvelTest::readPixel(35, 32).r + OrvelTest::readPixel(35, 32).g, 0);
    // The periphery point at column 6.4 is drawn eight times larger, a disc 16 pixels across: its square's
    // corner stays empty.
    EXPECT_EQ(OrvelTest::readPixel(6, 32).b, 255);
    EXPECT_EQ(OrvelTest::readPixel(13, 32).b, 255);
    EXPECT_EQ(OrvelTest::readPixel(6, 25).b, 255);
    EXPECT_EQ(OrvelTest::readPixel(13, 25).b, 0);
    EXPECT_EQ(OrvelTest::readPixel(16, 32).b, 0);

    // Picking pass: only the newest batch (eye 1's) marks its pixels, whatever stencil state was set.
    renderer.clear();
    glStencilFunc(GL_NEVER, 7, 0x0F);
    glStencilMask(0x00);
    points.drawSingleBuffer(renderer, viewProjection, 3.0f, true);
    EXPECT_EQ(readStencil(38, 32), static_cast<unsigned>(PointRenderer::STENCIL_INDEX));
    EXPECT_EQ(OrvelTest::readPixel(38, 32).g, 255);
    EXPECT_EQ(readStencil(32, 32), 0u);
    EXPECT_EQ(readStencil(6, 32), 0u);
    EXPECT_EQ(OrvelTest::readPixel(32, 32).r, 0);
}

// Both eyes' batches of one case see one point straight ahead each; eye 0 may add a big periphery point in
// the same direction. Eye 1 looks the same way rolled upside down, which keeps the axis where it is.
TEST_F(PointRendererGLTest, FirstEyeCentreCoversWhatLiesUnderItAndTheOtherEyeIsDepthTested) {
    struct Case {
        float peripheryZ; // 0: none
        float eye0Z;
        float eye1Z;
        OrvelTest::Rgba expected;
    };
    const Case cases[] = {{0, -5, -3, {0, 255, 0, 255}},
                          {0, -5, -8, {255, 0, 0, 255}},
                          {-2, -5, -8, {255, 0, 0, 255}},
                          {-2, -5, -3, {0, 255, 0, 255}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "periphery " << c.peripheryZ << " eye 0 " << c.eye0Z << " eye 1 " << c.eye1Z);
        RunningGrabber host(onePointAPass({0, 0, c.eye0Z, 255, 0, 0, 255},
                                          {0, 0, c.peripheryZ, 0, 0, 255, 255},
                                          {0, 0, c.eye1Z, 0, 255, 0, 255}));
        host.grabber.setResolution(10, 10);
        Mat4d<float> rolled = Mat4d<float>::rotation({0, 0, 1}, 3.14159265f);
        host.grabber.setCameraToWorldMatrix(rolled, 1);
        PointRenderer points(host.grabber, 2.0f, 0, 0);
        host.grabber.startThread();
        ASSERT_TRUE(
            runFramesUntil([&] { points.uploadNewBuffer(); }, [&] { return bothEyesDrawable(points); }));
        Brume::Renderer renderer;
        OrvelTest::drawInto(renderer, SIZE, SIZE);
        points.drawPoints(renderer, projection());
        const OrvelTest::Rgba got = OrvelTest::readPixel(32, 32);
        EXPECT_EQ(std::make_tuple(got.r, got.g, got.b),
                  std::make_tuple(c.expected.r, c.expected.g, c.expected.b));
    }
}

// Batches taken at half resolution (slow answers while the head moves) are drawn with twice the point size.
TEST_F(PointRendererGLTest, ReducedBatchesAreDrawnTwiceAsLarge) {
    std::atomic<std::int64_t> now{0};
    PointGrabber* grabber = nullptr;
    std::atomic<int> queries{0};
    std::atomic<bool> slowAndMoving{false};
    RunningGrabber host(
        [&](float fov, const Vec3d<double>&, const Vec3d<double>&, std::vector<Point3dRGBA>& out) {
            if (isPeriphery(fov)) {
                return;
            }
            out.push_back({0, 0, -5, 255, 0, 0, 255});
            if (slowAndMoving) {
                // A step along the view axis leaves the point where it projects.
                now += 300000000;
                Mat4d<float> step = Mat4d<float>::translationMatrix({0, 0, (++queries % 2) * 1.0f});
                grabber->setCameraToWorldMatrix(step, 0);
            }
        });
    grabber = &host.grabber;
    host.grabber.setClock([&] { return now.load(); });
    host.grabber.setResolution(10, 10);
    host.grabber.setNumEyes(1);
    PointRenderer points(host.grabber, 4.0f, 0, 0);
    host.grabber.startThread();

    auto drawnWidth = [&](bool reduced) {
        EXPECT_TRUE(runFramesUntil([&] { points.uploadNewBuffer(); },
                                   [&] { return bothEyesDrawable(points, reduced); }));
        Brume::Renderer renderer;
        OrvelTest::drawInto(renderer, SIZE, SIZE);
        points.drawPoints(renderer, projection());
        int width = 0;
        for (int x = 0; x < SIZE; ++x) {
            width += OrvelTest::readPixel(x, 32).r == 255 ? 1 : 0;
        }
        return width;
    };
    EXPECT_EQ(drawnWidth(false), 4);
    slowAndMoving = true;
    EXPECT_EQ(drawnWidth(true), 8);
}

} // namespace
