#include "tests/support/RecordingHost.h"

#include <algorithm>
#include <cstdio>

namespace OrvelTest {

void RecordingHost::record(const char* name) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        log.push_back({name, std::this_thread::get_id()});
    }
    if (beforeCall) {
        beforeCall(name);
    }
}

void RecordingHost::recordPoint(const char* name, const Ko_1_1::Vec3d<float>& point, float radius, int kind) {
    record(name);
    std::lock_guard<std::mutex> lock(mutex);
    placed.push_back({name, point, radius, kind});
}

void RecordingHost::requestFlyTo(Ko_1_1::Vec3d<float> target, float distance,
                                 Ko_1_1::Vec3d<float> direction) {
    std::lock_guard<std::mutex> lock(mutex);
    flyTo.emplace_back(target, distance, direction);
}

bool RecordingHost::takeFlyToRequest(Ko_1_1::Vec3d<float>& target, float& distance,
                                     Ko_1_1::Vec3d<float>& direction) {
    record("takeFlyToRequest");
    std::lock_guard<std::mutex> lock(mutex);
    if (flyTo.empty()) {
        return false;
    }
    std::tie(target, distance, direction) = flyTo.front();
    flyTo.erase(flyTo.begin());
    return true;
}

std::vector<RecordingHost::Call> RecordingHost::calls() const {
    return locked(log);
}

int RecordingHost::count(const std::string& name) const {
    std::lock_guard<std::mutex> lock(mutex);
    return static_cast<int>(
        std::count_if(log.begin(), log.end(), [&](const Call& c) { return c.name == name; }));
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

void RecordingHost::queryPoints(float fov, unsigned short width, unsigned short height, float nearZ,
                                float farZ, Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                                Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) {
    record("queryPoints");
    if (pointQuery) {
        pointQuery(fov, width, height, nearZ, farZ, position, up, back, points);
    }
}

void RecordingHost::onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                                 const Ko_1_1::Mat4d<float>&) {
    record("onScreenshot");
    std::lock_guard<std::mutex> lock(mutex);
    shots.push_back({rgba, width, height});
}

void RecordingHost::setHeadsetKind(int kind) {
    record("setHeadsetKind");
    std::lock_guard<std::mutex> lock(mutex);
    kinds.push_back(kind);
}

void RecordingHost::setViewTransform(const Ko_1_1::Mat4d<float>& transform) {
    record("setViewTransform");
    {
        std::lock_guard<std::mutex> lock(mutex);
        transforms.push_back(transform);
    }
    if (onViewTransform) {
        onViewTransform();
    }
}

void RecordingHost::setObjects(std::vector<VR::MeasurementData> m, std::vector<VR::AnnotationData> a) {
    std::lock_guard<std::mutex> lock(mutex);
    measurements = std::move(m);
    annotations = std::move(a);
}

std::vector<VR::MeasurementData> RecordingHost::getMeasurements() {
    record("getMeasurements");
    return locked(measurements);
}

std::vector<VR::AnnotationData> RecordingHost::getAnnotations() {
    record("getAnnotations");
    return locked(annotations);
}

void RecordingHost::getMeshes(std::vector<VR::MeshData>& out) {
    record("getMeshes");
    out = meshes;
}

void RecordingHost::setPage(std::vector<unsigned char> bgra, int width, int height) {
    std::lock_guard<std::mutex> lock(mutex);
    page = std::move(bgra);
    pageWidth = width;
    pageHeight = height;
    pageChanged = true;
}

bool RecordingHost::getHtmlImage(const unsigned char*& pixels, int& width, int& height) {
    record("getHtmlImage");
    std::lock_guard<std::mutex> lock(mutex);
    if (!pageChanged) {
        return false;
    }
    // The pixels must stay valid after the call: the shown copy is only replaced at the next change.
    pageShown = page;
    pageChanged = false;
    pixels = pageShown.data();
    width = pageWidth;
    height = pageHeight;
    return true;
}

void RecordingHost::setPendingMeasurement(VR::MeasurementData measurement) {
    std::lock_guard<std::mutex> lock(mutex);
    pending = {std::move(measurement)};
}

bool RecordingHost::hasPendingMeasurement() {
    record("hasPendingMeasurement");
    std::lock_guard<std::mutex> lock(mutex);
    return !pending.empty();
}

void RecordingHost::getPendingMeasurement(VR::MeasurementData& measurement) {
    record("getPendingMeasurement");
    std::lock_guard<std::mutex> lock(mutex);
    if (!pending.empty()) {
        measurement = pending.front();
    }
}

void RecordingHost::clearPendingMeasurement() {
    record("clearPendingMeasurement");
    std::lock_guard<std::mutex> lock(mutex);
    pending.clear();
}

void RecordingHost::sendHtmlPointerMove(int x, int y, bool state) {
    record("sendHtmlPointerMove");
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back({false, x, y, state});
}

void RecordingHost::sendHtmlButton(int x, int y, bool state) {
    record("sendHtmlButton");
    std::lock_guard<std::mutex> lock(mutex);
    events.push_back({true, x, y, state});
}

std::string RecordingHost::formatLength(float length) {
    record("formatLength");
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", static_cast<double>(length));
    return text;
}

} // namespace OrvelTest
