#include <gtest/gtest.h>

#include <memory>

#include "simvr/cyb/SimCyb.h"
#include "vr/input/Treadmill.h"

// The viewer opens the simulated vendor library by name, the same file this test links for its control API.

namespace {

class Treadmill : public ::testing::Test {
protected:
    void SetUp() override { simcyb_reset(); }
};

} // namespace

TEST_F(Treadmill, OpensOnlyAClosedDeviceAndClosesWhatItConnected) {
    const struct {
        bool present;
        bool alreadyOpen;
        bool openSucceeds;
        bool connected;
        unsigned opens;
        unsigned closes;
    } cases[] = {
        {false, false, true, false, 0, 0},
        {true, false, true, true, 1, 1},
        {true, true, false, true, 0, 1},
        {true, false, false, false, 1, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "present " << c.present << ", already open " << c.alreadyOpen
                                          << ", open succeeds " << c.openSucceeds);
        simcyb_reset();
        simcyb_setDevicePresent(c.present);
        simcyb_setAlreadyOpen(c.alreadyOpen);
        simcyb_setOpenSucceeds(c.openSucceeds);
        simcyb_setSpeed(1.5f);
        simcyb_setOrientation(0.25f);
        {
            Virtualizer treadmill;
            EXPECT_EQ(treadmill.isConnected(), c.connected);
            EXPECT_EQ(treadmill.getSpeed(), c.connected ? 1.5f : 0.0f);
            EXPECT_EQ(treadmill.getDirection(), c.connected ? 0.25f : 0.0f);
            EXPECT_EQ(simcyb_openCount(), c.opens);
            EXPECT_EQ(simcyb_closeCount(), 0u);
        }
        EXPECT_EQ(simcyb_closeCount(), c.closes);
        EXPECT_FALSE(simcyb_isOpen());
    }
}

TEST_F(Treadmill, DirectionTurnsByHalfUnlessClearlyWalkingForward) {
    const struct {
        float orientation;
        float movementDirection;
        float direction;
    } cases[] = {
        {0.25f, 1.0f, 0.25f}, {0.25f, 0.51f, 0.25f}, {0.25f, 0.5f, 0.75f},
        {0.75f, 0.0f, 1.25f}, {0.75f, -1.0f, 1.25f}, {0.0f, 0.5f, 0.5f},
    };
    simcyb_setDevicePresent(1);
    Virtualizer treadmill;
    ASSERT_TRUE(treadmill.isConnected());
    // The readings are live: each query asks the device again.
    for (const auto& c : cases) {
        simcyb_setOrientation(c.orientation);
        simcyb_setMovementDirection(c.movementDirection);
        EXPECT_FLOAT_EQ(treadmill.getDirection(), c.direction)
            << c.orientation << " walking " << c.movementDirection;
    }
}

TEST_F(Treadmill, NativeDeviceReachesEveryExport) {
    simcyb_setDevicePresent(1);
    simcyb_setPlayerHeight(1.8f);
    simcyb_setOrientation(0.3f);
    std::unique_ptr<CVirtDevice> device(CVirtDeviceNative::findDevice());
    ASSERT_NE(device, nullptr);

    EXPECT_TRUE(device->Open());
    EXPECT_TRUE(device->IsOpen());
    device->ResetPlayerHeight();
    EXPECT_FLOAT_EQ(device->GetPlayerHeight(), 1.8f);
    device->ResetPlayerOrientation();
    EXPECT_EQ(device->GetPlayerOrientation(), 0.0f);
    EXPECT_EQ(device->GetMovementDirection(), 1.0f);
    EXPECT_TRUE(device->Close());
    EXPECT_FALSE(simcyb_isOpen());

    std::unique_ptr<CVirtDevice> mockup(CVirtDeviceNative::createDeviceMockupXInput());
    ASSERT_NE(mockup, nullptr);
    EXPECT_FLOAT_EQ(mockup->GetPlayerHeight(), 1.8f);
}
