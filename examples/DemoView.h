#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "common/IVRView.h"
#include "examples/MeasurementStore.h"
#include "examples/TabletPage.h"
#include "examples/VisibilityQuery.h"

namespace Demo {

// What the host shows besides the points. The measurements may be null (nothing is kept then); annotations
// and meshes are fixed for the run.
//
// The viewer keeps its camera in floats, which at survey coordinates of millions move in half-metre steps.
// A scan far from the world's origin is therefore shown relative to a point of its own: the viewer's
// coordinates are the world's less `origin`, which the query adds back to the camera, and the objects here
// are given in the viewer's coordinates (the measurement store converts its file).
struct HostObjects {
    std::shared_ptr<MeasurementStore> measurements;
    std::vector<VR::AnnotationData> annotations;
    std::vector<VR::MeshData> meshes;
    Ko_1_1::Vec3d<double> origin;
};

// The demo host's view: answers the viewer's point query from a VisibilityQuery, keeps the measurements the
// user makes (a finished measurement is refined, here taken as it is, saved at once and then reported as
// pending), hands out the annotations and meshes, and serves the tablet page with its buttons (delete the
// last measurement, point size, pause streaming). It remembers the last screenshot the viewer handed over
// and counts frames through the per-frame view transform, calling an optional frame callback so the program
// can script or end the run.
//
// Owned by the program and outlives the VR run. queryPoints runs on the point grabber thread and reads only
// the immutable query and two atomics; getMeasurements and getAnnotations run on the object grabber thread
// and read the store (which has its own mutex) and the immutable annotations; the screenshot is guarded by
// a mutex; everything else, the page and the measurement in progress included, is render-thread only.
class DemoView final : public VR::IVRView {
public:
    static constexpr int MIN_POINT_SIZE = 1;
    static constexpr int MAX_POINT_SIZE = 8;
    // The point size the host starts with for a cloud of that many points.
    static int suggestedPointSize(std::size_t points);

    explicit DemoView(std::shared_ptr<const VisibilityQuery> query, HostObjects objects = {});
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
    std::vector<VR::MeasurementData> getMeasurements() override;
    std::vector<VR::AnnotationData> getAnnotations() override { return annotations; }
    void reservedSlot3() override {}
    void getMeshes(std::vector<VR::MeshData>& out) override;
    bool getHtmlImage(const unsigned char*& pixels, int& width, int& height) override;
    void sendHtmlPointerMove(int x, int y, bool up) override;
    void sendHtmlButton(int x, int y, bool up) override;
    void onVrClosed() override { closed = true; }
    void onMeasurementFinished(const Ko_1_1::Vec3d<float>& point, float distance, int hitKind) override;
    void onMeasurementPointAdded(const Ko_1_1::Vec3d<float>& point, float distance, int hitKind) override;
    void getPendingMeasurement(VR::MeasurementData& measurement) override;
    void onObjectClicked(Ko_1_1::StringVal*) override {}
    void onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                      const Ko_1_1::Mat4d<float>& view) override;
    void setHeadsetKind(int) override {}
    bool takeFlyToRequest(Ko_1_1::Vec3d<float>&, float&, Ko_1_1::Vec3d<float>&) override { return false; }
    void setViewTransform(const Ko_1_1::Mat4d<float>& transform) override;
    void reservedSlot17() override {}
    bool isHeightLocked() override { return false; }
    void reservedSlot19() override {}
    int getPointSize() override { return pointSize.load(); }
    std::string getLengthUnitText() override { return "m"; }
    std::string formatLength(float length) override;
    bool hasPendingMeasurement() override { return pendingReady; }
    void clearPendingMeasurement() override { pendingReady = false; }
    void reservedSlot25() override {}
    bool isMeshVisible() override { return !meshes.empty(); }
    // The viewer's own models (the controller's beam), read from the path it names.
    bool loadMeshData(Ko_1_1::StringVal* const& path, std::vector<float>& positions,
                      std::vector<float>& normals, std::vector<unsigned int>& indices) override;

private:
    std::string newUuid();
    void showMeasurements();

    std::shared_ptr<const VisibilityQuery> query;
    Ko_1_1::Vec3d<double> origin;
    const std::shared_ptr<MeasurementStore> store;
    const std::vector<VR::AnnotationData> annotations;
    const std::vector<VR::MeshData> meshes;
    std::atomic<int> pointSize{MIN_POINT_SIZE};
    std::atomic<bool> streamingPaused{false};

    TabletPage page;
    std::mt19937_64 random;
    Ko_1_1::Vec3d<float> firstPoint;
    bool measuring = false;
    VR::MeasurementData pending;
    bool pendingReady = false;

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
