#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/IVRView.h"

namespace OrvelTest {

// A host view that records every call the library makes (slot, thread, a short argument text) and answers
// with values the test sets. Safe to call from the library's three threads at once.
class RecordingHost final : public VR::IVRView {
public:
    struct Call {
        int slot;
        std::string name;
        std::thread::id thread;
        std::string args;
    };

    using PointQueryHandler = std::function<void(float, unsigned short, unsigned short, float, float,
                                                 Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>,
                                                 Ko_1_1::Vec3d<double>, std::vector<VR::Point3dRGBA>&)>;

    RecordingHost() = default;
    ~RecordingHost() = default;

    // Answers and hooks set by the test.
    PointQueryHandler pointQuery;
    std::function<void()> onViewTransform; // called on the render thread at each setViewTransform
    std::function<void()> onClosed;
    int pointSize = 1;
    bool pendingMeasurement = false;

    std::vector<Call> calls() const;
    int count(const std::string& name) const;
    std::vector<std::thread::id> threadsOf(const std::string& name) const;
    std::vector<int> headsetKinds() const;
    std::vector<Ko_1_1::Mat4d<float>> viewTransforms() const;
    struct Screenshot {
        std::vector<unsigned char> rgba;
        unsigned width;
        unsigned height;
    };
    std::vector<Screenshot> screenshots() const;

    void queryPoints(float fov, unsigned short width, unsigned short height, float nearZ, float farZ,
                     Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up, Ko_1_1::Vec3d<double> back,
                     std::vector<VR::Point3dRGBA>& points) override;
    std::vector<VR::MeasurementData> getMeasurements() override;
    std::vector<VR::AnnotationData> getAnnotations() override;
    void reservedSlot3() override;
    void getMeshes(std::vector<VR::MeshData>& meshes) override;
    bool getHtmlImage(const unsigned char*& pixels, int& width, int& height) override;
    void sendHtmlPointerMove(int x, int y, bool state) override;
    void sendHtmlButton(int x, int y, bool state) override;
    void onVrClosed() override;
    void onMeasurementFinished(const Ko_1_1::Vec3d<float>& point, float distance, int hitKind) override;
    void onMeasurementPointAdded(const Ko_1_1::Vec3d<float>& point, float distance, int hitKind) override;
    void getPendingMeasurement(VR::MeasurementData& measurement) override;
    void onObjectClicked(Ko_1_1::StringVal* id) override;
    void onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                      const Ko_1_1::Mat4d<float>& view) override;
    void setHeadsetKind(int kind) override;
    bool takeFlyToRequest(Ko_1_1::Vec3d<float>& target, float& distance, Ko_1_1::Vec3d<float>& direction) override;
    void setViewTransform(const Ko_1_1::Mat4d<float>& transform) override;
    void reservedSlot17() override;
    bool isHeightLocked() override;
    void reservedSlot19() override;
    int getPointSize() override;
    std::string getLengthUnitText() override;
    std::string formatLength(float length) override;
    bool hasPendingMeasurement() override;
    void clearPendingMeasurement() override;
    void reservedSlot25() override;
    bool isMeshVisible() override;
    bool loadMeshData(Ko_1_1::StringVal* const& path, std::vector<float>& positions, std::vector<float>& attributes,
                      std::vector<unsigned int>& indices) override;

private:
    void record(int slot, const char* name, std::string args = {});

    mutable std::mutex mutex;
    std::vector<Call> log;
    std::vector<int> kinds;
    std::vector<Ko_1_1::Mat4d<float>> transforms;
    std::vector<Screenshot> shots;
};

} // namespace OrvelTest
