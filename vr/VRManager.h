#pragma once

#include <memory>

#include "common/IVRView.h"
#include "common/Vec3d.h"
#include "platform/Export.h"
#include "vr/RunStatistics.h"
#include "vr/VRGlobals.h"

namespace VR {

class VRRenderer;

// The object a host creates to run the viewer: it builds the OpenVR access object and the renderer and
// forwards init, runRenderLoop and closeVR. init and runRenderLoop must be called on the same thread
// (it becomes the render thread); closeVR may be called from any thread. One manager serves one VR run.
// With a null view every operation answers InitializationError and nothing is opened.
class ORVEL_VR_EXPORT VRManager {
public:
    VRManager(Ko_1_1::Vec3d<float> startPosition, IVRView* view);
    ~VRManager();
    VRManager(const VRManager&) = delete;
    VRManager& operator=(const VRManager&) = delete;

    VRGlobals::ErrorCodes init();
    VRGlobals::ErrorCodes runRenderLoop();
    VRGlobals::ErrorCodes closeVR();

    // The run's figures so far; any thread, during the run and after it. Zeros without a renderer.
    RunStatistics getStatistics() const;

private:
    IVRView* view;
    std::unique_ptr<VRRenderer> renderer;
};

} // namespace VR
