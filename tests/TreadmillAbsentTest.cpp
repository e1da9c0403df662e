#include <gtest/gtest.h>

#include <memory>

#include "vr/input/Treadmill.h"

// Built into a folder of its own and without a search path to the simulated vendor library: the situation
// of a machine without the walking platform's software.

TEST(TreadmillAbsent, EveryLayerAnswersNeutrally) {
    Virtualizer treadmill;
    EXPECT_FALSE(treadmill.isConnected());
    EXPECT_EQ(treadmill.getDirection(), 0.0f);
    EXPECT_EQ(treadmill.getSpeed(), 0.0f);

    EXPECT_EQ(CVirtDeviceNative::findDevice(), nullptr);
    EXPECT_EQ(CVirtDeviceNative::createDeviceMockupXInput(), nullptr);
}
