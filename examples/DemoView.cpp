#include "examples/DemoView.h"

#include "examples/ModelReader.h"

#include <algorithm>
#include <cstdio>
#include <exception>

namespace Demo {

DemoView::DemoView(std::shared_ptr<const VisibilityQuery> query_, HostObjects objects)
    : query(std::move(query_)), origin(objects.origin), store(std::move(objects.measurements)),
      annotations(std::move(objects.annotations)), meshes(std::move(objects.meshes)),
      random(std::random_device{}()) {
    pointSize = suggestedPointSize(query ? query->cloud().size() : 0);
    page.setPointSize(pointSize.load());
    showMeasurements();
}

void DemoView::queryPoints(float horizontalFov, unsigned short width, unsigned short height, float nearZ,
                           float farZ, Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                           Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) {
    ++queries;
    // Paused, the answer stays empty and the viewer keeps showing what it already has.
    if (query && !streamingPaused.load()) {
        query->query(horizontalFov, width, height, nearZ, farZ, position + origin, up, back, points);
    }
}

std::vector<VR::MeasurementData> DemoView::getMeasurements() {
    return store ? store->measurements() : std::vector<VR::MeasurementData>{};
}

void DemoView::getMeshes(std::vector<VR::MeshData>& out) {
    out = meshes;
}

bool DemoView::getHtmlImage(const unsigned char*& pixels, int& width, int& height) {
    if (!page.render()) {
        return false;
    }
    pixels = page.pixels();
    width = TabletPage::WIDTH;
    height = TabletPage::HEIGHT;
    return true;
}

void DemoView::sendHtmlPointerMove(int x, int y, bool up) {
    page.pointerMove(x, y, up);
}

void DemoView::sendHtmlButton(int x, int y, bool up) {
    const TabletPage::Action action = page.button(x, y, up);
    switch (action) {
    case TabletPage::Action::DeleteLast:
        try {
            const bool removed = store && store->removeLast();
            page.setStatus(removed ? "Measurement deleted" : "No measurement to delete");
        } catch (const std::exception& e) {
            std::fprintf(stderr, "orvel_demo: %s\n", e.what());
            page.setStatus("Could not save the measurements file");
        }
        showMeasurements();
        break;
    case TabletPage::Action::PointSizeUp:
    case TabletPage::Action::PointSizeDown: {
        const int step = action == TabletPage::Action::PointSizeUp ? 1 : -1;
        const int size = std::clamp(pointSize.load() + step, MIN_POINT_SIZE, MAX_POINT_SIZE);
        pointSize = size;
        page.setPointSize(size);
        page.setStatus("Point size " + std::to_string(size));
        break;
    }
    case TabletPage::Action::ToggleStreaming:
        streamingPaused = !streamingPaused.load();
        page.setStreamingPaused(streamingPaused.load());
        page.setStatus(streamingPaused.load() ? "Streaming paused" : "Streaming resumed");
        break;
    case TabletPage::Action::None:
        break;
    }
}

void DemoView::onMeasurementPointAdded(const Ko_1_1::Vec3d<float>& point, float, int) {
    firstPoint = point;
    measuring = true;
}

void DemoView::onMeasurementFinished(const Ko_1_1::Vec3d<float>& point, float, int) {
    if (!measuring) {
        return;
    }
    measuring = false;
    // A real host would refine both points against its own data here; the demo keeps them as they are.
    pending.uuid = newUuid();
    pending.points = {firstPoint, point};
    pendingReady = true;
    // Saved before the viewer even fetches it: from here on a crash cannot lose the measurement.
    if (store) {
        try {
            store->add(pending);
            page.setStatus("Measurement saved");
        } catch (const std::exception& e) {
            std::fprintf(stderr, "orvel_demo: %s\n", e.what());
            page.setStatus("Could not save the measurements file");
        }
    }
    showMeasurements();
}

void DemoView::getPendingMeasurement(VR::MeasurementData& measurement) {
    measurement = pending;
}

void DemoView::onScreenshot(const std::vector<unsigned char>& rgba, unsigned width, unsigned height,
                            const Ko_1_1::Mat4d<float>&) {
    std::lock_guard<std::mutex> lock(screenshotMutex);
    screenshot = rgba;
    screenshotWidth = width;
    screenshotHeight = height;
}

bool DemoView::lastScreenshot(std::vector<unsigned char>& rgba, unsigned& width, unsigned& height) const {
    std::lock_guard<std::mutex> lock(screenshotMutex);
    if (screenshot.empty()) {
        return false;
    }
    rgba = screenshot;
    width = screenshotWidth;
    height = screenshotHeight;
    return true;
}

void DemoView::setViewTransform(const Ko_1_1::Mat4d<float>&) {
    const std::uint64_t frame = ++frames;
    if (frameCallback) {
        frameCallback(frame);
    }
}

std::string DemoView::formatLength(float length) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f", static_cast<double>(length));
    return text;
}

std::string DemoView::newUuid() {
    // A random (version 4) UUID: measurements made in different sessions must never share one.
    unsigned char bytes[16];
    for (int i = 0; i < 16; i += 8) {
        const std::uint64_t r = random();
        for (int j = 0; j < 8; ++j) {
            bytes[i + j] = static_cast<unsigned char>(r >> (8 * j));
        }
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    char text[37];
    std::snprintf(text, sizeof(text), "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                  bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7], bytes[8],
                  bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14], bytes[15]);
    return text;
}

void DemoView::showMeasurements() {
    std::vector<std::string> lengths;
    for (const VR::MeasurementData& measurement : getMeasurements()) {
        float length = 0.0f;
        for (std::size_t i = 1; i < measurement.points.size(); ++i) {
            length += (measurement.points[i] - measurement.points[i - 1]).length();
        }
        lengths.push_back(formatLength(length) + " " + getLengthUnitText());
    }
    page.setMeasurements(std::move(lengths));
}

bool DemoView::loadMeshData(Ko_1_1::StringVal* const& path, std::vector<float>& positions,
                            std::vector<float>& normals, std::vector<unsigned int>& indices) {
    if (path == nullptr) {
        return false;
    }
    try {
        ModelReader::Model model = ModelReader::read(path->toUtf8());
        positions = std::move(model.positions);
        normals = std::move(model.normals);
        indices = std::move(model.indices);
        return true;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "orvel_demo: %s\n", e.what());
        return false;
    }
}

int DemoView::suggestedPointSize(std::size_t points) {
    // The query answers one point per covered pixel, so the point size sets how fine the picture is and how
    // much each batch costs. At 2 a query pixel is about one and a half of an eye's pixels and is drawn two
    // pixels wide: surfaces stay closed, and the viewer's widest query (twice the resolution) is a quarter
    // of what size 1 would ask. Past some tens of millions of points the query itself costs more than its
    // budget, and 3 trades detail for time.
    return points > 20000000 ? 3 : 2;
}

} // namespace Demo
