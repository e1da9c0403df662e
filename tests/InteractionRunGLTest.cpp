// Controllers in whole runs on the simulated runtime: what the picking ray finds, and what scripted
// presses, sticks and the walking platform do to the user and tell the host.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

#include "simvr/SimVR.h"
#include "simvr/cyb/SimCyb.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingHost.h"
#include "vr/MinimalOpenVR.h"
#include "vr/VRRenderer.h"
#include "vr/input/CameraAnimationVR.h"
#include "vr/input/TeleportRenderer.h"

using OrvelTest::RecordingHost;
using Vec = Ko_1_1::Vec3d<float>;

namespace {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class InspectableRenderer final : public VR::VRRenderer {
public:
    using VRRenderer::cameraPosition;
    using VRRenderer::currentAnimation;
    using VRRenderer::sendRay;
    using VRRenderer::tabletPose;
    using VRRenderer::teleportActive;
    using VRRenderer::teleportRenderer;
    using VRRenderer::viewAngles;
    using VRRenderer::VRRenderer;
};
#pragma GCC diagnostic pop

// A pose whose -z axis points along direction (any roll), as a 4 x 4 matrix or as the runtime's 3 x 4 rows.
Vec unit(Vec v) {
    v.normalize();
    return v;
}
Ko_1_1::Mat4d<float> aimed(Vec origin, Vec direction) {
    const Vec z = unit(-direction);
    const Vec helper = std::fabs(z.y) < 0.9f ? Vec{0, 1, 0} : Vec{1, 0, 0};
    const Vec x = unit(helper.cross(z));
    const Vec y = z.cross(x);
    Ko_1_1::Mat4d<float> m;
    const Vec columns[4] = {x, y, z, origin};
    for (int c = 0; c < 4; ++c) {
        m.at(0, c) = columns[c].x;
        m.at(1, c) = columns[c].y;
        m.at(2, c) = columns[c].z;
    }
    return m;
}
// The host's world is z-up, tracking space y-up: world (x, y, z) is tracking (x, z, -y) for a user who
// starts at the origin unturned.
Vec toTracking(Vec w) {
    return {w.x, w.z, -w.y};
}
void aimController(uint32_t device, Vec worldFrom, Vec worldTowards) {
    const auto m = aimed(toTracking(worldFrom), toTracking(worldTowards - worldFrom));
    float rows[12];
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 4; ++c) {
            rows[r * 4 + c] = m.at(r, c);
        }
    }
    simvr_setDevicePose(device, rows);
}
void setButtons(uint32_t device, uint64_t buttons, float x, float y, float trigger) {
    const float axes[10] = {x, y, trigger, 0, 0, 0, 0, 0, 0, 0};
    simvr_setControllerState(device, buttons, 0, axes);
}

constexpr uint32_t LEFT = 1;
constexpr uint32_t RIGHT = 2;
constexpr uint64_t TOUCHPAD = uint64_t{1} << 32;
const Vec RIGHT_HAND{0.2f, 0.3f, 1.2f};

// Meshes: a floor at z = 0 and a wall at y = 4, both 20 m wide. Scan points: a vertical patch 0.4 m square
// at y = 3 around (1, 3, 1.2). A measurement 2 m ahead, to the left.
void buildScene(RecordingHost& host) {
    host.meshVisible = true;
    VR::MeshData mesh;
    mesh.positions = {{-10, -10, 0}, {10, -10, 0}, {-10, 10, 0}, {10, 10, 0},
                      {-10, 4, 0},   {10, 4, 0},   {-10, 4, 3},  {10, 4, 3}};
    mesh.colors.assign(8, {90, 90, 90});
    mesh.indices = {0, 1, 2, 1, 3, 2, 4, 5, 6, 5, 7, 6};
    mesh.mode = 4;
    host.meshes = {mesh};
    host.setObjects({{{{-1.5f, 2.0f, 1.0f}, {-0.5f, 2.0f, 1.0f}}, "m-0"}}, {});
    host.pointQuery = [](float, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double> position,
                         Ko_1_1::Vec3d<double> up, Ko_1_1::Vec3d<double> back,
                         std::vector<VR::Point3dRGBA>& points) {
        const Ko_1_1::Vec3d<double> right = up.cross(back);
        for (int i = -20; i <= 20; ++i) {
            for (int j = -20; j <= 20; ++j) {
                const Ko_1_1::Vec3d<double> d =
                    Ko_1_1::Vec3d<double>{1.0 + i * 0.01, 3.0, 1.2 + j * 0.01} - position;
                points.push_back({static_cast<float>(d.dot(right)), static_cast<float>(d.dot(up)),
                                  static_cast<float>(d.dot(back)), 255, 0, 0, 255});
            }
        }
    };
}

class InteractionRun : public ::testing::Test {
protected:
    void SetUp() override {
        simvr_reset();
        simcyb_reset();
        simvr_setPaced(0);
        simvr_setRecommendedSize(160, 120);
        simvr_setPoseScript(&InteractionRun::onFrame, this);
    }
    void TearDown() override {
        simvr_reset();
        simcyb_reset();
    }
    static void onFrame(uint64_t frame, double, void* self) {
        auto* test = static_cast<InteractionRun*>(self);
        if (test->script) {
            test->script(frame);
        }
    }

    // Runs until check (called on the render thread at the top of every frame) says so, at most 400 frames.
    void run(RecordingHost& host, const std::function<bool(InspectableRenderer&, int frame)>& check) {
        InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, std::make_shared<MinimalOpenVR>());
        ASSERT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
        int frame = 0;
        host.onViewTransform = [&] {
            if (check(renderer, frame++) || frame > 400) {
                renderer.closeVR();
            }
        };
        EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
        EXPECT_LE(frame, 400) << "the run never got where it should";
    }

    std::function<void(uint64_t)> script;
};

TEST_F(InteractionRun, RayFindsPointsMeshesMeasurementsTheTabletAndNothing) {
    RecordingHost host;
    buildScene(host);
    host.setPage(std::vector<unsigned char>(32 * 32 * 4, 200), 32, 32);
    struct Ray {
        const char* what;
        Vec from, direction;
        bool hit;
        unsigned stencil;
        Vec at;
        bool wall;
    };
    const Ray rays[] = {
        {"scan points", {1.0f, 1.0f, 1.2f}, {0, 1, 0}, true, 1, {1.0f, 3.0f, 1.2f}, true},
        {"mesh wall", {-3, 1, 1.5f}, {0, 1, 0}, true, 2, {-3, 4, 1.5f}, true},
        {"mesh floor", {-3, 1, 1.5f}, {0.3f, 0.2f, -1}, true, 2, {-2.55f, 1.3f, 0}, false},
        {"measurement", {-1.0f, 1.0f, 1.0f}, {0, 1, 0}, true, 3, {-1.0f, 2.0f, 1.0f}, false},
        {"nothing", {0, 0, 1.5f}, {0, 0, 1}, false, 0, {}, false},
    };
    bool done = false;
    run(host, [&](InspectableRenderer& r, int) {
        Vec hit;
        bool wall = false;
        unsigned char stencil = 0;
        // Until the points and the measurement have arrived.
        if (!r.sendRay(aimed(rays[0].from, rays[0].direction), hit, wall, stencil) || stencil != 1 ||
            !r.sendRay(aimed(rays[3].from, rays[3].direction), hit, wall, stencil) || stencil != 3) {
            return false;
        }
        for (const Ray& ray : rays) {
            SCOPED_TRACE(ray.what);
            wall = false;
            EXPECT_EQ(r.sendRay(aimed(ray.from, ray.direction), hit, wall, stencil), ray.hit);
            EXPECT_EQ(stencil, ray.stencil);
            if (ray.hit) {
                EXPECT_NEAR((hit - ray.at).length(), 0.0f, 0.02f);
                EXPECT_EQ(wall, ray.wall);
            } else {
                EXPECT_GT((hit - ray.from).length(), 900.0f) << "a free ray ends at the far plane";
            }
        }
        // The tablet, from 30 cm in front of its face.
        const auto tablet = r.tabletPose();
        const Vec normal = unit(tablet.column(2));
        EXPECT_TRUE(r.sendRay(aimed(tablet.translation() + normal * 0.3f, -normal), hit, wall, stencil));
        EXPECT_EQ(stencil, 192u);
        EXPECT_NEAR((hit - tablet.translation()).length(), 0.0f, 0.02f);
        done = true;
        return true;
    });
    EXPECT_TRUE(done);
}

TEST_F(InteractionRun, TriggerPressesMeasureOnTheWallAndTellTheHost) {
    RecordingHost host;
    buildScene(host);
    const Vec a{-1.5f, 4.0f, 1.2f};
    const Vec b{0.5f, 4.0f, 1.6f};
    script = [&](uint64_t f) {
        aimController(RIGHT, RIGHT_HAND, f < 12 ? a : b);
        const bool pulled = (f >= 6 && f < 10) || (f >= 16 && f < 20);
        setButtons(RIGHT, 0, 0, 0, pulled ? 1.0f : 0.0f);
    };
    run(host, [&](InspectableRenderer&, int) { return host.count("onMeasurementFinished") > 0; });
    const auto placed = host.measurementPoints();
    ASSERT_EQ(placed.size(), 2u);
    EXPECT_EQ(placed[0].call, "onMeasurementPointAdded");
    EXPECT_EQ(placed[1].call, "onMeasurementFinished");
    EXPECT_NEAR((placed[0].point - a).length(), 0.0f, 0.02f);
    EXPECT_NEAR((placed[1].point - placed[0].point).length(), (b - a).length(), 0.03f);
    EXPECT_EQ(placed[1].hitKind, 2) << "a mesh hit";
    EXPECT_NEAR(placed[1].searchRadius, (b - RIGHT_HAND).length() * 0.01f, 0.001f);
}

TEST_F(InteractionRun, SnapTurnsOncePerPressAndTheTriggerFlies) {
    RecordingHost host;
    // Pointing 30 degrees below the horizon, along +y.
    const Vec down{0.0f, std::cos(0.5235988f), -std::sin(0.5235988f)};
    script = [&](uint64_t f) {
        aimController(LEFT, {-0.2f, 0.3f, 1.2f}, Vec{-0.2f, 0.3f, 1.2f} + down);
        if (f == 21) {
            // A broken pose from the runtime for one frame is skipped.
            const float broken[12] = {std::nanf(""), 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
            simvr_setDevicePose(LEFT, broken);
        }
        const bool pad = (f >= 5 && f < 10) || (f >= 15 && f < 20);
        host.heightLocked = f >= 35;
        setButtons(LEFT, pad ? TOUCHPAD : 0, 0.8f, 0.0f,
                   (f >= 25 && f < 30) || (f >= 35 && f < 40) ? 1.0f : 0.0f);
    };
    float headingAfterOne = 0;
    Vec atStart, afterFree, afterLocked;
    run(host, [&](InspectableRenderer& r, int frame) {
        if (frame == 12) {
            headingAfterOne = r.viewAngles.z;
        } else if (frame == 22) {
            atStart = r.cameraPosition;
        } else if (frame == 33) {
            afterFree = r.cameraPosition;
        } else if (frame == 43) {
            afterLocked = r.cameraPosition;
        }
        return frame > 43;
    });
    EXPECT_NEAR(headingAfterOne, -0.5235988f, 1e-5f) << "one press held for five frames turns once";
    // Five frames at 0.15 m along the pointing direction, turned twice by 30 degrees to the right.
    const Vec step = afterFree - atStart;
    EXPECT_NEAR(step.length(), 0.75f, 1e-3f);
    EXPECT_NEAR(step.z, -0.75f * 0.5f, 1e-3f);
    EXPECT_NEAR(std::atan2(step.y, step.x), std::atan2(1.0f, 0.0f) - 2 * 0.5235988f, 1e-3f);
    const Vec locked = afterLocked - afterFree;
    EXPECT_NEAR(locked.z, 0.0f, 1e-6f) << "height lock keeps the feet on their level";
    EXPECT_NEAR(locked.length(), 0.75f * std::cos(0.5235988f), 1e-3f);
}

TEST_F(InteractionRun, TeleportLandsWhereThePadShowedAndTheHostsFlyToGlides) {
    RecordingHost host;
    buildScene(host);
    const Vec floor{0.0f, 2.5f, 0.0f};
    script = [&](uint64_t f) {
        aimController(RIGHT, RIGHT_HAND, floor);
        setButtons(RIGHT, f >= 5 && f < 15 ? TOUCHPAD : 0, 0, 0, 0);
    };
    Vec pad, landed, flown;
    float heading = 0;
    int landedAt = -1;
    run(host, [&](InspectableRenderer& r, int frame) {
        if (r.teleportActive) {
            pad = r.teleportRenderer->getPadPosition();
        }
        if (frame > 16 && landedAt < 0 && !r.currentAnimation) {
            landed = r.cameraPosition;
            landedAt = frame;
            host.requestFlyTo({5.0f, 10.0f, 1.7f}, 2.0f, {1.0f, 0.0f, 0.0f});
        } else if (landedAt >= 0 && frame > landedAt + 2 && !r.currentAnimation) {
            flown = r.cameraPosition;
            heading = r.viewAngles.z;
            return true;
        }
        return false;
    });
    EXPECT_NEAR((pad - floor).length(), 0.0f, 0.03f) << "the pad lies on the floor where the ray hit";
    // The head stood 1.7 m above the tracking origin; it lands that high above the pad.
    EXPECT_NEAR((landed + Vec{0.0f, 0.0f, 1.7f} - (pad + Vec{0.0f, 0.0f, 1.7f})).length(), 0.0f, 1e-4f);
    // Looking along +x, two metres short of the target.
    EXPECT_NEAR(heading, -1.5707964f, 1e-4f);
    EXPECT_NEAR((flown + Vec{0.0f, 0.0f, 1.7f} - Vec{3.0f, 10.0f, 1.7f}).length(), 0.0f, 1e-3f);
}

TEST_F(InteractionRun, TreadmillWalksTheUserAtItsSpeed) {
    OrvelTest::LogCapture log;
    simcyb_setDevicePresent(1);
    simcyb_setSpeed(0.9f);
    simcyb_setOrientation(0.25f);
    RecordingHost host;
    script = [&](uint64_t f) { simcyb_setMovementDirection(f < 25 ? 1.0f : 0.0f); };
    Vec at10, at20, at30, at40;
    run(host, [&](InspectableRenderer& r, int frame) {
        (frame == 10 ? at10 : frame == 20 ? at20 : frame == 30 ? at30 : at40) = r.cameraPosition;
        return frame >= 40;
    });
    EXPECT_EQ(log.count(L"Virtualizer connected."), 1);
    // A hundredth of a metre a frame at 0.9 m/s and 90 frames a second; standing or walking backward turns
    // the heading by half a turn.
    const Vec forward = at20 - at10;
    const Vec back = at40 - at30;
    EXPECT_NEAR(forward.length(), 0.1f, 1e-4f);
    EXPECT_NEAR((forward + back).length(), 0.0f, 1e-4f);
    EXPECT_NEAR(forward.z, 0.0f, 1e-6f);
    EXPECT_EQ(simcyb_closeCount(), 1u) << "the device is closed with the run";
}

} // namespace
