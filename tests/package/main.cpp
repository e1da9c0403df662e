#include <cstdio>
#include <string>

// Every installed header, so each one is known to compile on its own in a host.
#include "common/IVRView.h"
#include "common/StringVal.h"
#include "engine/Renderer.h"
#include "platform/Log.h"
#include "text/Bitmap.h"
#include "text/TextRenderer.h"
#include "vr/VRManager.h"
#include "vr/VRRenderer.h"
#include "vr/VrModelRenderer.h"
#include "vr/objects/AnnotationController.h"
#include "vr/objects/HTMLView.h"
#include "vr/objects/LabelRenderer.h"
#include "vr/objects/MeasurementController.h"
#include "vr/objects/MeshRenderer.h"
#include "vr/objects/Object3dGrabber.h"
#include "vr/points/PointGrabber.h"
#include "vr/points/PointRenderer.h"

namespace {

int failures = 0;

void check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

} // namespace

int main() {
    VR::VRManager empty({0.0f, 0.0f, 0.0f}, nullptr);
    check(empty.init() == VR::VRGlobals::InitializationError, "a manager without a view refuses to start");

    const std::string utf8 = "Messpunkt \xC3\xA4 \xE6\xB5\x8B";
    Ko_1_1::StringVal* value = Ko_1_1::StringVal::constructUtf8(utf8);
    check(value->toUtf8() == utf8 && value->stringValue().size() == 13, "UTF-8 round trip");
    value->unref();

    // The installed font is usable through the exported text classes.
    TextRenderer renderer(ORVEL_INSTALLED_FONT);
    Bitmap bitmap(64, 64, 1, {});
    unsigned width = 0;
    unsigned height = 0;
    check(renderer.renderText(bitmap, "Ok", 2, 2, 20, width, height) && width > 4 && height == 24,
          "text renders");

    if (failures == 0) {
        std::printf("package host: all checks passed\n");
    }
    return failures == 0 ? 0 : 1;
}
