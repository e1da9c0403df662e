#pragma once

#include <gtest/gtest.h>

#include "simvr/SimVR.h"
#include "tests/support/LogCapture.h"
#include "vr/MinimalOpenVR.h"

namespace OrvelTest {

// A test against the simulated runtime: every test starts from the runtime's defaults, unpaced, with the
// log captured. The runtime is reached by the OpenVR layer through its own loading path; the test drives
// it through the control API of the same library.
template <typename Base> class SimVRFixture : public Base {
protected:
    void SetUp() override {
        Base::SetUp();
        simvr_reset();
        simvr_setPaced(0);
    }

    void TearDown() override {
        simvr_reset();
        Base::TearDown();
    }

    VR::VRGlobals::ErrorCodes start(MinimalOpenVR& openVR) {
        width = 0;
        height = 0;
        error = vr::VRInitError_Unknown;
        scale = -1.0f;
        return openVR.init(&width, &height, &error, &scale);
    }

    unsigned width = 0;
    unsigned height = 0;
    vr::EVRInitError error = vr::VRInitError_None;
    float scale = 0.0f;
    LogCapture log;
};

} // namespace OrvelTest
