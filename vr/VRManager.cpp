#include "vr/VRManager.h"

#include "vr/MinimalOpenVR.h"
#include "vr/VRRenderer.h"

namespace VR {

VRManager::VRManager(Ko_1_1::Vec3d<float> startPosition, IVRView* view_) : view(view_) {
    if (view == nullptr) {
        return;
    }
    std::shared_ptr<IOpenVR> openVr = std::make_shared<MinimalOpenVR>();
    // The renderer becomes the only owner of the access object once this constructor returns.
    renderer = std::make_unique<VRRenderer>(startPosition, view, std::move(openVr));
}

VRManager::~VRManager() = default;

VRGlobals::ErrorCodes VRManager::init() {
    if (!renderer) {
        return VRGlobals::InitializationError;
    }
    return renderer->init(1.0f, 1.0f, true, false);
}

VRGlobals::ErrorCodes VRManager::runRenderLoop() {
    if (!renderer) {
        return VRGlobals::InitializationError;
    }
    return renderer->runRenderLoop();
}

VRGlobals::ErrorCodes VRManager::closeVR() {
    if (!renderer) {
        return VRGlobals::InitializationError;
    }
    renderer->closeVR();
    return VRGlobals::NoError;
}

RunStatistics VRManager::getStatistics() const {
    return renderer ? renderer->getStatistics() : RunStatistics{};
}

} // namespace VR
