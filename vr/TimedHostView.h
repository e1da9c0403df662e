#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

#include "common/IVRView.h"

namespace VR {

// Stands between the library and the host's view: every call passes through, and the calls made on the timed
// thread add the CPU time that thread spent inside the host, so that the frame loop can tell its own CPU time
// from the host's. Answers the viewer cannot take as they are (a point size below 1, records that cannot be
// told apart, text that is not UTF-8) are logged once for the view's life; only the point size is changed.
// Owned by the VR renderer, which hands it to everything that calls the host. The grabber threads' calls pass
// through untimed.
class TimedHostView final : public IVRView {
public:
    explicit TimedHostView(IVRView& host) : host(host) {}

    // Set before the thread makes its first call; until then nothing is timed.
    void setTimedThread(std::thread::id thread) { timedThread = thread; }
    // CPU nanoseconds the timed thread has spent inside the host; read on that thread only.
    std::int64_t hostCpuNanoseconds() const { return hostCpu; }

    void queryPoints(float horizontalFov, unsigned short width, unsigned short height, float nearZ,
                     float farZ, Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                     Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) override;
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
    bool takeFlyToRequest(Ko_1_1::Vec3d<float>& target, float& distance,
                          Ko_1_1::Vec3d<float>& direction) override;
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
    bool loadMeshData(Ko_1_1::StringVal* const& path, std::vector<float>& positions,
                      std::vector<float>& attributes, std::vector<unsigned int>& indices) override;

private:
    template <typename Call> auto timed(Call&& call) -> decltype(call());
    // True the first time one of the faults is reported; any thread.
    bool firstReport(unsigned fault) { return (reported.fetch_or(fault) & fault) == 0; }
    std::string checkedLengthText(std::string text);

    IVRView& host;
    std::thread::id timedThread;
    std::int64_t hostCpu = 0;
    std::atomic<unsigned> reported{0};
};

} // namespace VR
