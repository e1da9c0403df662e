#pragma once

#include <vector>

#include "common/Vec3d.h"
#include "vr/openvr/OpenVRTypes.h"

// The arithmetic of controller input, kept apart from the renderer so that every threshold can be checked
// on its own: the abstract buttons of both controller families, the left hand's locomotion values, the
// speed curve, the picking spiral, the wall test and the teleport landing offset.
namespace VR::Input {

// Button ids of the controller state's masks.
constexpr int BUTTON_GRIP = 2;
constexpr int BUTTON_A = 7;
constexpr int BUTTON_TOUCHPAD = 32;

struct ControllerButtons {
    float trigger = 0.0f;
    bool triggerPressed = false;
    bool primaryPressed = false;
    bool gripPressed = false;
};

// thumbstick: the controller family with a stick and face buttons; otherwise the wand family with a
// circular touchpad.
ControllerButtons readButtons(const vr::VRControllerState_t& state, bool thumbstick);

struct Locomotion {
    float move = 0.0f;
    float turn = 0.0f;
};

// The left hand's move and turn values. lastTouchpadPressed carries the wand touchpad's state from the
// previous frame, so that a snap turn happens once per press; the thumbstick path neither reads nor
// writes it.
Locomotion leftLocomotion(const vr::VRControllerState_t& state, const ControllerButtons& buttons,
                          bool thumbstick, bool& lastTouchpadPressed);

// Signed speed for a move value: the square on the wand family, a piecewise-linear curve on the thumbstick
// family that keeps slow movement fine and backward movement slow.
float speedCurve(float move, bool thumbstick);

// Offsets, in steps of the picking spiral, around the centre of the picking target; samples beyond four
// steps from the centre are left out.
struct SpiralOffset {
    int i;
    int j;
};
const std::vector<SpiralOffset>& pickSpiral();

// True when a least-squares plane through the points exists; normal is its unit normal.
bool fitPlane(const std::vector<Ko_1_1::Vec3d<double>>& points, Ko_1_1::Vec3d<double>& normal);
// A surface steeper than 45 degrees, for a plane of the given normal in the z-up world.
bool isWall(const Ko_1_1::Vec3d<double>& normal);

// Where the head lands relative to the hit point: at eye height above a floor, part of the way back
// toward the head from a wall.
Ko_1_1::Vec3d<float> landingOffset(bool wall, const Ko_1_1::Vec3d<float>& hit,
                                   const Ko_1_1::Vec3d<float>& head, float headHeight);

} // namespace VR::Input
