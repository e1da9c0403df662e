#include "vr/TimedHostView.h"

#include <unordered_set>

#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/Utf.h"

namespace VR {

namespace {

enum Fault : unsigned {
    MEASUREMENT_WITHOUT_ID = 1u << 0,
    MEASUREMENT_ID_REPEATED = 1u << 1,
    ANNOTATION_WITHOUT_ID = 1u << 2,
    ANNOTATION_ID_REPEATED = 1u << 3,
    ANNOTATION_TEXT_NOT_UTF8 = 1u << 4,
    LENGTH_TEXT_NOT_UTF8 = 1u << 5,
    POINT_SIZE_BELOW_ONE = 1u << 6,
};

// The labels show malformed bytes as U+FFFD; the host should still hear that its text was not what it meant.
bool isUtf8(const std::string& text) {
    return wideToUtf8(utf8ToWide(text)) == text;
}

// The faults of a list whose records are told apart by their uuid: the first bit for an empty identifier, the
// second for one that repeats.
template <typename Record>
unsigned identifierFaults(const std::vector<Record>& records, unsigned withoutId, unsigned repeated) {
    unsigned faults = 0;
    std::unordered_set<std::string> seen;
    for (const Record& record : records) {
        if (record.uuid.empty()) {
            faults |= withoutId;
        } else if (!seen.insert(record.uuid).second) {
            faults |= repeated;
        }
    }
    return faults;
}

} // namespace

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
    std::vector<VR::MeasurementData> measurements = host.getMeasurements();
    const unsigned faults = identifierFaults(measurements, MEASUREMENT_WITHOUT_ID, MEASUREMENT_ID_REPEATED);
    if ((faults & MEASUREMENT_WITHOUT_ID) != 0 && firstReport(MEASUREMENT_WITHOUT_ID)) {
        logLine(L"Measurement without an identifier shown; it cannot be clicked\n");
    }
    if ((faults & MEASUREMENT_ID_REPEATED) != 0 && firstReport(MEASUREMENT_ID_REPEATED)) {
        logLine(L"Measurements with the same identifier shown; a click cannot tell them apart\n");
    }
    return measurements;
}

std::vector<VR::AnnotationData> TimedHostView::getAnnotations() {
    std::vector<VR::AnnotationData> annotations = host.getAnnotations();
    const unsigned faults = identifierFaults(annotations, ANNOTATION_WITHOUT_ID, ANNOTATION_ID_REPEATED);
    if ((faults & ANNOTATION_WITHOUT_ID) != 0 && firstReport(ANNOTATION_WITHOUT_ID)) {
        logLine(L"Annotation without an identifier shown; it cannot be clicked\n");
    }
    if ((faults & ANNOTATION_ID_REPEATED) != 0 && firstReport(ANNOTATION_ID_REPEATED)) {
        logLine(L"Annotations with the same identifier shown; a click cannot tell them apart\n");
    }
    for (const VR::AnnotationData& annotation : annotations) {
        if (!isUtf8(annotation.text) && firstReport(ANNOTATION_TEXT_NOT_UTF8)) {
            logLine(L"Annotation text that is not UTF-8 shown with replacement characters\n");
        }
    }
    return annotations;
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
    const int size = timed([&] { return host.getPointSize(); });
    if (size >= 1) {
        return size;
    }
    // Both users divide by it or draw with it: 0 or less would divide by zero or draw nothing.
    if (firstReport(POINT_SIZE_BELOW_ONE)) {
        logLine(L"Point size %d from the host taken as 1\n", size);
    }
    return 1;
}

std::string TimedHostView::checkedLengthText(std::string text) {
    if (!isUtf8(text) && firstReport(LENGTH_TEXT_NOT_UTF8)) {
        logLine(L"Length text that is not UTF-8 shown with replacement characters\n");
    }
    return text;
}

std::string TimedHostView::getLengthUnitText() {
    return checkedLengthText(timed([&] { return host.getLengthUnitText(); }));
}

std::string TimedHostView::formatLength(float length) {
    return checkedLengthText(timed([&] { return host.formatLength(length); }));
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
