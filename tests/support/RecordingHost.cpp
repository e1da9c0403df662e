#include "tests/support/RecordingHost.h"

#include <algorithm>

namespace OrvelTest {

void RecordingHost::record(int slot, const char* name, std::string args) {
    std::lock_guard<std::mutex> lock(mutex);
    log.push_back({slot, name, std::this_thread::get_id(), std::move(args)});
}

std::vector<RecordingHost::Call> RecordingHost::calls() const {
    std::lock_guard<std::mutex> lock(mutex);
    return log;
}

int RecordingHost::count(const std::string& name) const {
    std::lock_guard<std::mutex> lock(mutex);
    return static_cast<int>(std::count_if(log.begin(), log.end(), [&](const Call& c) { return c.name == name; }));
}

std::vector<std::thread::id> RecordingHost::threadsOf(const std::string& name) const {
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<std::thread::id> threads;
    for (const auto& c : log) {
        if (c.name == name && std::find(threads.begin(), threads.end(), c.thread) == threads.end()) {
            threads.push_back(c.thread);
        }
    }
    return threads;
}

std::vector<int> RecordingHost::headsetKinds() const {
    std::lock_guard<std::mutex> lock(mutex);
    return kinds;
}

std::vector<Ko_1_1::Mat4d<float>> RecordingHost::viewTransforms() const {
    std::lock_guard<std::mutex> lock(mutex);
    return transforms;
}

std::vector<RecordingHost::Screenshot> RecordingHost::screenshots() const {
    std::lock_guard<std::mutex> lock(mutex);
    return shots;
}

void RecordingHost::queryPoints(float fov, unsigned short width, unsigned short height, float nearZ, float farZ,
                                Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                                Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) {
    record(0, "queryPoints", std::to_string(width) + "x" + std::to_string(height));
    if (pointQuery) {
        pointQuery(fov, width, height, nearZ, farZ, position, up, back, points);
    }
}

std::vector<VR::MeasurementData> RecordingHost::getMeasurements() {
    record(1, "getMeasurements");
    return {};
}

std::vector<VR::AnnotationData> RecordingHost::getAnnotations() {
    record(2, "getAnnotations");
    return {};
}

void RecordingHost::reservedSlot3() { record(3, "reservedSlot3"); }

void RecordingHost::getMeshes(std::vector<VR::MeshData>&) { record(4, "getMeshes"); }

bool RecordingHost::getHtmlImage(const unsigned char*&, int&, int&) {
    record(5, "getHtmlImage");
    return false;
}

void RecordingHost::sendHtmlPointerMove(int, int, bool) { record(6, "sendHtmlPointerMove"); }

void RecordingHost::sendHtmlButton(int, int, bool) { record(7, "sendHtmlButton"); }

void RecordingHost::onVrClosed() {
    record(8, "onVrClosed");
    if (onClosed) {
        onClosed();
    }
}

void RecordingHost::onMeasurementFinished(const Ko_1_1::Vec3d<float>&, float, int) {
    record(9, "onMeasurementFinished");
}

void RecordingHost::onMeasurementPointAdded(const Ko_1_1::Vec3d<float>&, float, int) {
    record(10, "onMeasurementPointAdded");
}

void RecordingHost::getPendingMeasurement(VR::MeasurementData&) { record(11, "getPendingMeasurement"); }

void RecordingHost::onObjectClicked(Ko_1_1::StringVal*) { record(12, "onObjectClicked"); }

void RecordingHost::onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                                 const Ko_1_1::Mat4d<float>&) {
    record(13, "onScreenshot", std::to_string(width) + "x" + std::to_string(height));
    std::lock_guard<std::mutex> lock(mutex);
    shots.push_back({rgba, width, height});
}

void RecordingHost::setHeadsetKind(int kind) {
    record(14, "setHeadsetKind", std::to_string(kind));
    std::lock_guard<std::mutex> lock(mutex);
    kinds.push_back(kind);
}

bool RecordingHost::takeFlyToRequest(Ko_1_1::Vec3d<float>&, float&, Ko_1_1::Vec3d<float>&) {
    record(15, "takeFlyToRequest");
    return false;
}

void RecordingHost::setViewTransform(const Ko_1_1::Mat4d<float>& transform) {
    record(16, "setViewTransform");
    {
        std::lock_guard<std::mutex> lock(mutex);
        transforms.push_back(transform);
    }
    if (onViewTransform) {
        onViewTransform();
    }
}

void RecordingHost::reservedSlot17() { record(17, "reservedSlot17"); }

bool RecordingHost::isHeightLocked() {
    record(18, "isHeightLocked");
    return false;
}

void RecordingHost::reservedSlot19() { record(19, "reservedSlot19"); }

int RecordingHost::getPointSize() {
    record(20, "getPointSize");
    return pointSize;
}

std::string RecordingHost::getLengthUnitText() {
    record(21, "getLengthUnitText");
    return "m";
}

std::string RecordingHost::formatLength(float length) {
    record(22, "formatLength");
    return std::to_string(length);
}

bool RecordingHost::hasPendingMeasurement() {
    record(23, "hasPendingMeasurement");
    return pendingMeasurement;
}

void RecordingHost::clearPendingMeasurement() {
    record(24, "clearPendingMeasurement");
    pendingMeasurement = false;
}

void RecordingHost::reservedSlot25() { record(25, "reservedSlot25"); }

bool RecordingHost::isMeshVisible() {
    record(26, "isMeshVisible");
    return false;
}

bool RecordingHost::loadMeshData(Ko_1_1::StringVal* const&, std::vector<float>&, std::vector<float>&,
                                 std::vector<unsigned int>&) {
    record(27, "loadMeshData");
    return false;
}

} // namespace OrvelTest
