#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "simvr/SimVR.h"
#include "vr/openvr/OpenVRTypes.h"

namespace SimVR {

// Everything the simulated runtime knows: what the control API configured, the session, and what the client
// did. One process-wide instance, shared by the four interface objects, the OpenVR entry points and the
// control API. Every access goes through `locked`, so any thread may use it; nothing calls out of the
// runtime (pose script, GL) while the lock is held.
class SimRuntime {
public:
    using Clock = std::chrono::steady_clock;

    static constexpr uint32_t DEVICE_COUNT = vr::k_unMaxTrackedDeviceCount;

    struct Device {
        vr::ETrackedDeviceClass deviceClass = vr::TrackedDeviceClass_Invalid;
        vr::ETrackedControllerRole role = vr::TrackedControllerRole_Invalid;
        bool connected = false;
        bool poseValid = false;
        vr::HmdMatrix34_t pose = identity();
        vr::HmdVector3_t velocity = {};
        vr::HmdVector3_t angularVelocity = {};
        vr::VRControllerState_t controller = {};
        std::map<int32_t, std::string> strings;
    };

    struct Picture {
        uint32_t texture = 0;
        uint32_t width = 0;
        uint32_t height = 0;
        std::vector<uint8_t> rgba;
    };

    struct HapticPulse {
        uint32_t device;
        uint32_t axis;
        uint16_t microseconds;
    };

    struct Setting {
        enum class Kind { Bool, Int32, Float, String };
        Kind kind = Kind::Float;
        double number = 0.0;
        std::string text;
    };

    struct State {
        // Configuration.
        bool installed = true;
        bool hmdPresent = true;
        std::vector<int32_t> initErrors;
        size_t nextInitError = 0;
        std::vector<std::string> unavailableInterfaces;
        uint32_t recommendedWidth = 1512;
        uint32_t recommendedHeight = 1680;
        float displayFrequency = 90.0f;
        float ipd = 0.064f;
        bool paced = true;
        bool captureSubmits = true;
        Device devices[DEVICE_COUNT];
        std::map<std::pair<std::string, std::string>, Setting> settings;
        simvr_PoseScript poseScript = nullptr;
        void* poseScriptUser = nullptr;
        uint32_t loadingPolls = 3;
        bool textureLoadFails = false;

        // Session.
        bool initialized = false;
        uint32_t initToken = 0;
        int32_t lastApplicationType = -1;
        Clock::time_point sessionStart = Clock::now();
        uint64_t sessionFrames = 0;
        vr::ETrackingUniverseOrigin trackingSpace = vr::TrackingUniverseStanding;
        vr::TrackedDevicePose_t lastPoses[DEVICE_COUNT] = {};
        std::map<std::string, uint32_t> modelPollsLeft;
        std::map<int32_t, uint32_t> texturePollsLeft;
        vr::HmdColor_t fadeColor = {0.0f, 0.0f, 0.0f, 0.0f};
        float gridAlpha = 0.0f;
        bool mirrorVisible = false;

        // What the client did.
        uint32_t initCount = 0;
        uint32_t shutdownCount = 0;
        uint64_t waitGetPosesCount = 0;
        uint64_t postPresentHandoffCount = 0;
        uint64_t submitCount[2] = {0, 0};
        uint64_t submitErrorCount = 0;
        Picture pictures[2];
        std::vector<HapticPulse> hapticPulses;
        uint32_t renderModelLoads = 0;
        uint32_t renderModelFrees = 0;
        uint32_t textureLoads = 0;
        uint32_t textureFrees = 0;
    };

    static SimRuntime& instance();

    template <typename Function> auto locked(Function&& function) {
        std::lock_guard<std::mutex> lock(mutex);
        return function(state);
    }

    // Back to the defaults; the init token keeps counting so that a client never sees an old token again.
    void reset();

    static vr::HmdMatrix34_t identity();
    static vr::TrackedDevicePose_t poseOf(const Device& device);
    static bool validIndex(uint32_t deviceIndex) { return deviceIndex < DEVICE_COUNT; }
    // The two-call string pattern: returns the length with its terminator and copies only when the buffer
    // holds it all (an empty buffer, if any, is then left holding "").
    static uint32_t copyString(const std::string& text, char* buffer, uint32_t bufferSize);
    // Sets a device's pose to a translation and keeps its orientation as it is.
    static void setPosition(Device& device, float x, float y, float z);

private:
    SimRuntime();
    static void applyDefaults(State& state);

    std::mutex mutex;
    State state;
};

} // namespace SimVR
