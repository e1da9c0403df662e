#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/IVRView.h"
#include "examples/VisibilityQuery.h"

namespace Demo {

// The demo host's view: answers the viewer's point query from a VisibilityQuery and keeps the other slots
// neutral (no measurements, annotations, meshes or tablet page). It remembers the last screenshot the
// viewer handed over and counts frames through the per-frame view transform, calling an optional frame
// callback so the program can script or end the run.
//
// Owned by the program and outlives the VR run. queryPoints runs on the point grabber thread and only reads
// the (immutable) query; the screenshot is guarded by a mutex; everything else runs on the render thread.
class DemoView final : public VR::IVRView {
public:
    explicit DemoView(std::shared_ptr<const VisibilityQuery> query);
    DemoView(const DemoView&) = delete;
    DemoView& operator=(const DemoView&) = delete;
    ~DemoView() = default;

    // Called on the render thread once a frame with the number of frames so far (from 1).
    void setFrameCallback(std::function<void(std::uint64_t frame)> callback) {
        frameCallback = std::move(callback);
    }

    std::uint64_t frameCount() const { return frames.load(); }
    bool vrClosed() const { return closed.load(); }
    std::uint64_t pointQueries() const { return queries.load(); }
    // Copies the last screenshot (RGBA, rows bottom-up); false when there was none.
    bool lastScreenshot(std::vector<unsigned char>& rgba, unsigned& width, unsigned& height) const;

    void queryPoints(float horizontalFov, unsigned short width, unsigned short height, float nearZ,
                     float farZ, Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                     Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) override;
    std::vector<VR::MeasurementData> getMeasurements() override { return {}; }
    std::vector<VR::AnnotationData> getAnnotations() override { return {}; }
    void reservedSlot3() override {}
    void getMeshes(std::vector<VR::MeshData>&) override {}
    bool getHtmlImage(const unsigned char*&, int&, int&) override { return false; }
    void sendHtmlPointerMove(int, int, bool) override {}
    void sendHtmlButton(int, int, bool) override {}
    void onVrClosed() override { closed = true; }
    void onMeasurementFinished(const Ko_1_1::Vec3d<float>&, float, int) override {}
    void onMeasurementPointAdded(const Ko_1_1::Vec3d<float>&, float, int) override {}
    void getPendingMeasurement(VR::MeasurementData&) override {}
    void onObjectClicked(Ko_1_1::StringVal*) override {}
    void onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                      const Ko_1_1::Mat4d<float>& view) override;
    void setHeadsetKind(int) override {}
    bool takeFlyToRequest(Ko_1_1::Vec3d<float>&, float&, Ko_1_1::Vec3d<float>&) override { return false; }
    void setViewTransform(const Ko_1_1::Mat4d<float>& transform) override;
    void reservedSlot17() override {}
    bool isHeightLocked() override { return false; }
    void reservedSlot19() override {}
    int getPointSize() override { return 1; }
    std::string getLengthUnitText() override { return "m"; }
    std::string formatLength(float length) override;
    bool hasPendingMeasurement() override { return false; }
    void clearPendingMeasurement() override {}
    void reservedSlot25() override {}
    bool isMeshVisible() override { return false; }
    bool loadMeshData(Ko_1_1::StringVal* const&, std::vector<float>&, std::vector<float>&,
                      std::vector<unsigned int>&) override {
        return false;
    }

private:
    std::shared_ptr<const VisibilityQuery> query;
    std::function<void(std::uint64_t)> frameCallback;
    std::atomic<std::uint64_t> frames{0};
    std::atomic<std::uint64_t> queries{0};
    std::atomic<bool> closed{false};
    mutable std::mutex screenshotMutex;
    std::vector<unsigned char> screenshot;
    unsigned screenshotWidth = 0;
    unsigned screenshotHeight = 0;
};

} // namespace Demo
