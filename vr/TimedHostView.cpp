#include "vr/TimedHostView.h"

#include "platform/Platform.h"

namespace VR {

template <typename Call> auto TimedHostView::timed(Call&& call) -> decltype(call()) {
    if (std::this_thread::get_id() != timedThread) {
        return call();
    }
    // Counted also when the host throws: the frame spent that time all the same.
    struct Meter {
        std::int64_t& total;
        const std::int64_t start = Platform::currentThreadCpuNanoseconds();
        ~Meter() { total += Platform::currentThreadCpuNanoseconds() - start; }
    } meter{hostCpu};
    return call();
}

// The grabber threads' slots: the render thread never waits for them.
void TimedHostView::queryPoints(float horizontalFov, unsigned short width, unsigned short height, float nearZ,
                                float farZ, Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                                Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) {
    host.queryPoints(horizontalFov, width, height, nearZ, farZ, position, up, back, points);
}

std::vector<VR::MeasurementData> TimedHostView::getMeasurements() {
    return host.getMeasurements();
}

std::vector<VR::AnnotationData> TimedHostView::getAnnotations() {
    return host.getAnnotations();
}

void TimedHostView::reservedSlot3() {
    timed([&] { host.reservedSlot3(); });
}

void TimedHostView::getMeshes(std::vector<VR::MeshData>& meshes) {
    timed([&] { host.getMeshes(meshes); });
}

bool TimedHostView::getHtmlImage(const unsigned char*& pixels, int& width, int& height) {
    return timed([&] { return host.getHtmlImage(pixels, width, height); });
}

void TimedHostView::sendHtmlPointerMove(int x, int y, bool state) {
    timed([&] { host.sendHtmlPointerMove(x, y, state); });
}

void TimedHostView::sendHtmlButton(int x, int y, bool state) {
    timed([&] { host.sendHtmlButton(x, y, state); });
}

void TimedHostView::onVrClosed() {
    timed([&] { host.onVrClosed(); });
}

void TimedHostView::onMeasurementFinished(const Ko_1_1::Vec3d<float>& point, float distance, int hitKind) {
    timed([&] { host.onMeasurementFinished(point, distance, hitKind); });
}

void TimedHostView::onMeasurementPointAdded(const Ko_1_1::Vec3d<float>& point, float distance, int hitKind) {
    timed([&] { host.onMeasurementPointAdded(point, distance, hitKind); });
}

void TimedHostView::getPendingMeasurement(VR::MeasurementData& measurement) {
    timed([&] { host.getPendingMeasurement(measurement); });
}

void TimedHostView::onObjectClicked(Ko_1_1::StringVal* id) {
    timed([&] { host.onObjectClicked(id); });
}

void TimedHostView::onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                                 const Ko_1_1::Mat4d<float>& view) {
    timed([&] { host.onScreenshot(rgba, width, height, view); });
}

void TimedHostView::setHeadsetKind(int kind) {
    timed([&] { host.setHeadsetKind(kind); });
}

bool TimedHostView::takeFlyToRequest(Ko_1_1::Vec3d<float>& target, float& distance,
                                     Ko_1_1::Vec3d<float>& direction) {
    return timed([&] { return host.takeFlyToRequest(target, distance, direction); });
}

void TimedHostView::setViewTransform(const Ko_1_1::Mat4d<float>& transform) {
    timed([&] { host.setViewTransform(transform); });
}

void TimedHostView::reservedSlot17() {
    timed([&] { host.reservedSlot17(); });
}

bool TimedHostView::isHeightLocked() {
    return timed([&] { return host.isHeightLocked(); });
}

void TimedHostView::reservedSlot19() {
    timed([&] { host.reservedSlot19(); });
}

int TimedHostView::getPointSize() {
    return timed([&] { return host.getPointSize(); });
}

std::string TimedHostView::getLengthUnitText() {
    return timed([&] { return host.getLengthUnitText(); });
}

std::string TimedHostView::formatLength(float length) {
    return timed([&] { return host.formatLength(length); });
}

bool TimedHostView::hasPendingMeasurement() {
    return timed([&] { return host.hasPendingMeasurement(); });
}

void TimedHostView::clearPendingMeasurement() {
    timed([&] { host.clearPendingMeasurement(); });
}

void TimedHostView::reservedSlot25() {
    timed([&] { host.reservedSlot25(); });
}

bool TimedHostView::isMeshVisible() {
    return timed([&] { return host.isMeshVisible(); });
}

bool TimedHostView::loadMeshData(Ko_1_1::StringVal* const& path, std::vector<float>& positions,
                                 std::vector<float>& attributes, std::vector<unsigned int>& indices) {
    return timed([&] { return host.loadMeshData(path, positions, attributes, indices); });
}

} // namespace VR
