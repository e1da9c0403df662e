#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "common/IVRView.h"

namespace OrvelTest {

// A host view that records every call the library makes (name and calling thread) and answers with values
// the test sets. Safe to call from the library's three threads at once.
class RecordingHost final : public VR::IVRView {
public:
    struct Call {
        std::string name;
        std::thread::id thread;
    };
    struct HtmlEvent {
        bool button; // sendHtmlButton, else sendHtmlPointerMove
        int x;
        int y;
        bool state;
    };
    struct Screenshot {
        std::vector<unsigned char> rgba;
        unsigned width;
        unsigned height;
    };
    using PointQueryHandler =
        std::function<void(float, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double>,
                           Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>, std::vector<VR::Point3dRGBA>&)>;

    // Answers and hooks set by the test.
    PointQueryHandler pointQuery;
    std::function<void()> onViewTransform; // on the render thread at each setViewTransform
    int pointSize = 1;
    bool meshVisible = false;
    std::atomic<bool> heightLocked{false};
    std::vector<VR::MeshData> meshes; // handed over once, at set-up
    std::string lengthUnit = "m";
    // Runs at the start of every slot, on the calling thread, before the slot answers; a hostile host
    // throws from here. Set it before the run.
    std::function<void(const std::string& slot)> beforeCall;

    // Objects the object grabber thread fetches; safe to change while a run goes on.
    void setObjects(std::vector<VR::MeasurementData> measurements,
                    std::vector<VR::AnnotationData> annotations);
    // A tablet page (BGRA, rows top first) the tablet takes over at its next draw.
    void setPage(std::vector<unsigned char> bgra, int width, int height);
    // A refined measurement the frame loop takes over at its next pass.
    void setPendingMeasurement(VR::MeasurementData measurement);

    std::vector<Call> calls() const;
    int count(const std::string& name) const;
    std::vector<std::thread::id> threadsOf(const std::string& name) const;
    std::vector<int> headsetKinds() const { return locked(kinds); }
    std::vector<Ko_1_1::Mat4d<float>> viewTransforms() const { return locked(transforms); }
    std::vector<Screenshot> screenshots() const { return locked(shots); }
    std::vector<HtmlEvent> htmlEvents() const { return locked(events); }
    struct MeasurementPoint {
        std::string call;
        Ko_1_1::Vec3d<float> point;
        float searchRadius;
        int hitKind;
    };
    std::vector<MeasurementPoint> measurementPoints() const { return locked(placed); }
    // A fly-to request the frame loop takes at its next pass.
    void requestFlyTo(Ko_1_1::Vec3d<float> target, float distance, Ko_1_1::Vec3d<float> direction);

    void queryPoints(float fov, unsigned short width, unsigned short height, float nearZ, float farZ,
                     Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up, Ko_1_1::Vec3d<double> back,
                     std::vector<VR::Point3dRGBA>& points) override;
    std::vector<VR::MeasurementData> getMeasurements() override;
    std::vector<VR::AnnotationData> getAnnotations() override;
    void reservedSlot3() override { record("reservedSlot3"); }
    void getMeshes(std::vector<VR::MeshData>& out) override;
    bool getHtmlImage(const unsigned char*& pixels, int& width, int& height) override;
    void sendHtmlPointerMove(int x, int y, bool state) override;
    void sendHtmlButton(int x, int y, bool state) override;
    void onVrClosed() override { record("onVrClosed"); }
    void onMeasurementFinished(const Ko_1_1::Vec3d<float>& point, float radius, int kind) override {
        recordPoint("onMeasurementFinished", point, radius, kind);
    }
    void onMeasurementPointAdded(const Ko_1_1::Vec3d<float>& point, float radius, int kind) override {
        recordPoint("onMeasurementPointAdded", point, radius, kind);
    }
    void getPendingMeasurement(VR::MeasurementData& measurement) override;
    void onObjectClicked(Ko_1_1::StringVal*) override { record("onObjectClicked"); }
    void onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                      const Ko_1_1::Mat4d<float>& view) override;
    void setHeadsetKind(int kind) override;
    bool takeFlyToRequest(Ko_1_1::Vec3d<float>& target, float& distance,
                          Ko_1_1::Vec3d<float>& direction) override;
    void setViewTransform(const Ko_1_1::Mat4d<float>& transform) override;
    void reservedSlot17() override { record("reservedSlot17"); }
    bool isHeightLocked() override { return record("isHeightLocked", heightLocked.load()); }
    void reservedSlot19() override { record("reservedSlot19"); }
    int getPointSize() override { return record("getPointSize", pointSize); }
    std::string getLengthUnitText() override { return record("getLengthUnitText", lengthUnit); }
    // Two decimals, as a host showing metres would.
    std::string formatLength(float length) override;
    bool hasPendingMeasurement() override;
    void clearPendingMeasurement() override;
    void reservedSlot25() override { record("reservedSlot25"); }
    bool isMeshVisible() override { return record("isMeshVisible", meshVisible); }
    bool loadMeshData(Ko_1_1::StringVal* const&, std::vector<float>&, std::vector<float>&,
                      std::vector<unsigned int>&) override {
        return record("loadMeshData", false);
    }

private:
    void record(const char* name);
    void recordPoint(const char* name, const Ko_1_1::Vec3d<float>& point, float radius, int kind);
    template <typename T> T record(const char* name, T answer) {
        record(name);
        return answer;
    }
    template <typename T> T locked(const T& value) const {
        std::lock_guard<std::mutex> lock(mutex);
        return value;
    }

    mutable std::mutex mutex;
    std::vector<Call> log;
    std::vector<int> kinds;
    std::vector<Ko_1_1::Mat4d<float>> transforms;
    std::vector<Screenshot> shots;
    std::vector<VR::MeasurementData> measurements;
    std::vector<VR::AnnotationData> annotations;
    std::vector<unsigned char> page;
    std::vector<unsigned char> pageShown;
    int pageWidth = 0;
    int pageHeight = 0;
    bool pageChanged = false;
    std::vector<VR::MeasurementData> pending;
    std::vector<HtmlEvent> events;
    std::vector<MeasurementPoint> placed;
    std::vector<std::tuple<Ko_1_1::Vec3d<float>, float, Ko_1_1::Vec3d<float>>> flyTo;
};

} // namespace OrvelTest
