// Whole VR runs on the simulated runtime with a host that has measurements, annotations, meshes and a tablet
// page: what each object draws into the submitted eye pictures, and the stencil value it leaves there.
#include <GLFW/glfw3.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "engine/GL.h"
#include "engine/Target.h"
#include "simvr/SimVR.h"
#include "tests/support/RecordingHost.h"
#include "vr/MinimalOpenVR.h"
#include "vr/VRRenderer.h"

using OrvelTest::RecordingHost;

namespace {

constexpr int WIDTH = 320;
constexpr int HEIGHT = 240;

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class InspectableRenderer final : public VR::VRRenderer {
public:
    using VRRenderer::eyeTargets;
    using VRRenderer::readDepthStencil;
    using VRRenderer::VRRenderer;
};
#pragma GCC diagnostic pop

// One frame's left eye: colour as submitted (rows bottom-up) and the stencil the frame left in the target.
struct EyePicture {
    std::vector<uint8_t> rgba;
    std::vector<unsigned> depthStencil;

    unsigned stencil(int x, int y) const { return depthStencil[static_cast<size_t>(y * WIDTH + x)] & 0xFFu; }
    const uint8_t* pixel(int x, int y) const { return &rgba[static_cast<size_t>(y * WIDTH + x) * 4]; }
    int countStencil(unsigned value) const {
        int n = 0;
        for (unsigned v : depthStencil) {
            n += (v & 0xFFu) == value ? 1 : 0;
        }
        return n;
    }
    // The pixels whose stencil is `value`, averaged.
    std::array<double, 3> meanColour(unsigned value) const {
        std::array<double, 3> sum{};
        int n = 0;
        for (int i = 0; i < WIDTH * HEIGHT; ++i) {
            if ((depthStencil[static_cast<size_t>(i)] & 0xFFu) == value) {
                for (int c = 0; c < 3; ++c) {
                    sum[static_cast<size_t>(c)] += rgba[static_cast<size_t>(i) * 4 + static_cast<size_t>(c)];
                }
                ++n;
            }
        }
        for (double& c : sum) {
            c = n > 0 ? c / n : -1.0;
        }
        return sum;
    }
};

class HostObjectsRun : public ::testing::Test {
protected:
    void SetUp() override {
        simvr_reset();
        simvr_setPaced(0);
        simvr_setRecommendedSize(WIDTH, HEIGHT);
    }
    void TearDown() override { simvr_reset(); }

    // Runs frames until `done` says so for the left eye's last picture (or 600 frames went by), then closes.
    EyePicture runUntil(RecordingHost& host, const std::function<bool(const EyePicture&, int frame)>& done) {
        InspectableRenderer renderer({0.0f, 0.0f, 0.0f}, &host, std::make_shared<MinimalOpenVR>());
        EXPECT_EQ(renderer.init(1.0f, 1.0f, true, false), VR::VRGlobals::NoError);
        EyePicture last;
        int frame = 0;
        host.onViewTransform = [&] {
            // At the start of a frame the left target still holds the previous frame's picture.
            if (++frame < 3) {
                return;
            }
            EyePicture picture;
            picture.depthStencil.resize(static_cast<size_t>(WIDTH * HEIGHT));
            glBindFramebuffer(GL_READ_FRAMEBUFFER, renderer.eyeTargets[0]->getFramebuffer());
            renderer.readDepthStencil(picture.depthStencil);
            glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
            picture.rgba.resize(simvr_lastSubmittedPicture(0, nullptr, nullptr, nullptr, 0));
            simvr_lastSubmittedPicture(0, nullptr, nullptr, picture.rgba.data(), picture.rgba.size());
            last = picture;
            if (done(last, frame) || frame > 600) {
                renderer.closeVR();
            }
        };
        EXPECT_EQ(renderer.runRenderLoop(), VR::VRGlobals::NoError);
        return last;
    }
};

// The head stands at (0, 0, 1.7) in the host's world and looks down +y.
VR::MeasurementData measurementAhead() {
    return {{{-0.4f, 2.0f, 1.75f}, {0.4f, 2.0f, 1.75f}}, "m-ahead"};
}

TEST_F(HostObjectsRun, StoredMeasurementsAndAnnotationsAreDrawnWithTheirStencil) {
    RecordingHost host;
    host.setObjects({{{{-0.5f, 3.0f, 1.0f}, {-0.4f, 3.0f, 1.0f}}, "m-low"}, measurementAhead()},
                    {{{0.5, 2.5, 1.5}, "测量点 A", "a-right"}});
    const EyePicture picture = runUntil(
        host, [](const EyePicture& p, int) { return p.countStencil(4) > 0 && p.countStencil(128) > 0; });
    ASSERT_GT(picture.countStencil(4), 20) << "the second measurement (stencil 3 + 1) is where it projects";
    ASSERT_GT(picture.countStencil(128), 20) << "the annotation (stencil 128 + 0)";
    EXPECT_GT(host.count("getMeasurements"), 0);

    // The measurement runs across the middle of the view, 2 m ahead: left and right of the centre.
    int left = 0;
    int right = 0;
    for (int y = 0; y < HEIGHT; ++y) {
        for (int x = 0; x < WIDTH; ++x) {
            if (picture.stencil(x, y) == 4) {
                (x < WIDTH / 2 ? left : right) += 1;
            }
        }
    }
    EXPECT_GT(left, 5);
    EXPECT_GT(right, 5);
    // The annotation stands to the right.
    const auto annotation = picture.meanColour(128);
    EXPECT_GE(annotation[0], 0.0);
}

TEST_F(HostObjectsRun, PendingMeasurementReplacesTheToolsMeasurement) {
    RecordingHost host;
    host.setPendingMeasurement(measurementAhead());
    const EyePicture picture = runUntil(host, [](const EyePicture& p, int) { return p.countStencil(3) > 0; });
    EXPECT_GT(picture.countStencil(3), 20) << "the refined measurement is shown as stored measurement 0";
    EXPECT_EQ(host.count("getPendingMeasurement"), 1);
    EXPECT_EQ(host.count("clearPendingMeasurement"), 1);
}

TEST_F(HostObjectsRun, MeshesAreLitAndHiddenWhenTheHostSaysSo) {
    for (const bool visible : {true, false}) {
        SCOPED_TRACE(visible ? "visible" : "hidden");
        RecordingHost host;
        host.meshVisible = visible;
        VR::MeshData wall;
        // A green wall 3 m ahead across the whole view.
        wall.positions = {{-5.0f, 3.0f, -2.0f}, {5.0f, 3.0f, -2.0f}, {-5.0f, 3.0f, 5.0f}, {5.0f, 3.0f, 5.0f}};
        wall.colors = {{0, 200, 0}, {0, 200, 0}, {0, 200, 0}, {0, 200, 0}};
        wall.indices = {0, 1, 2, 1, 3, 2};
        wall.mode = 4;
        host.meshes = {wall};
        const EyePicture picture = runUntil(host, [](const EyePicture&, int frame) { return frame > 5; });
        if (!visible) {
            EXPECT_EQ(picture.countStencil(2), 0);
            continue;
        }
        EXPECT_GT(picture.countStencil(2), WIDTH * HEIGHT / 2) << "the wall fills the view";
        const uint8_t* centre = picture.pixel(WIDTH / 2, HEIGHT / 2);
        EXPECT_GT(centre[1], 40) << "lit green";
        EXPECT_GT(centre[1], centre[0] + 20);
        EXPECT_GT(centre[1], centre[2] + 20);
    }
}

TEST_F(HostObjectsRun, TabletShowsTheHostsPageInTheLeftHand) {
    RecordingHost host;
    // BGRA, one colour: blue 200, green 50, red 10.
    std::vector<unsigned char> page(64 * 64 * 4);
    for (size_t i = 0; i < page.size(); i += 4) {
        page[i] = 200;
        page[i + 1] = 50;
        page[i + 2] = 10;
        page[i + 3] = 255;
    }
    host.setPage(page, 64, 64);
    const EyePicture picture =
        runUntil(host, [](const EyePicture& p, int) { return p.countStencil(192) > 100; });
    ASSERT_GT(picture.countStencil(192), 100) << "the tablet is in view below left";
    const auto colour = picture.meanColour(192);
    EXPECT_NEAR(colour[0], 10, 25);
    EXPECT_NEAR(colour[1], 50, 25);
    EXPECT_NEAR(colour[2], 200, 25);
}

} // namespace
