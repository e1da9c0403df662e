#include "examples/DemoView.h"

#include <cstdio>

namespace Demo {

DemoView::DemoView(std::shared_ptr<const VisibilityQuery> query_) : query(std::move(query_)) {}

void DemoView::queryPoints(float horizontalFov, unsigned short width, unsigned short height, float nearZ,
                           float farZ, Ko_1_1::Vec3d<double> position, Ko_1_1::Vec3d<double> up,
                           Ko_1_1::Vec3d<double> back, std::vector<VR::Point3dRGBA>& points) {
    ++queries;
    if (query) {
        query->query(horizontalFov, width, height, nearZ, farZ, position, up, back, points);
    }
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
    std::snprintf(text, sizeof(text), "%.3f", static_cast<double>(length));
    return text;
}

} // namespace Demo
