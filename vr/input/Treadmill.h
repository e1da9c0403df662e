#pragma once

#include <memory>

#include "platform/Export.h"

// A walking-platform device as its vendor library presents it. Orientation is a fraction of a full turn;
// movement direction is positive while the player walks forward. Render thread only.
class ORVEL_VR_EXPORT CVirtDevice {
public:
    CVirtDevice() = default;
    CVirtDevice(const CVirtDevice&) = delete;
    CVirtDevice& operator=(const CVirtDevice&) = delete;

    // The first nine slots mirror the vendor's device interface and keep its order.
    virtual bool Open() = 0;
    virtual bool IsOpen() = 0;
    virtual bool Close() = 0;
    virtual float GetPlayerHeight() = 0;
    virtual void ResetPlayerHeight() = 0;
    virtual float GetPlayerOrientation() = 0;
    virtual float GetMovementSpeed() = 0;
    virtual float GetMovementDirection() = 0;
    virtual void ResetPlayerOrientation() = 0;
    // Declared after the nine so that it cannot shift them; owners delete through this base.
    virtual ~CVirtDevice() = default;
};

// The vendor library's device, reached through its plain exported functions. The library is optional:
// it is opened on first use (and again on later calls until that succeeds) and never unloaded, and every
// operation answers false, 0 or nothing while the library or the export is missing.
class ORVEL_VR_EXPORT CVirtDeviceNative : public CVirtDevice {
public:
    // "CybSDK.dll" on Windows, "libCybSDK.so" elsewhere.
    static const char* const LIBRARY_NAME;

    // The connected platform, or null when there is none or no library; the caller owns the result.
    static CVirtDevice* findDevice();
    // A platform emulated by a game pad, for development without the hardware; the caller owns it.
    static CVirtDevice* createDeviceMockupXInput();

    // Wraps a handle the library handed out; the library keeps owning what it points to.
    explicit CVirtDeviceNative(void* handle) : handle(handle) {}

    bool Open() override;
    bool IsOpen() override;
    bool Close() override;
    float GetPlayerHeight() override;
    void ResetPlayerHeight() override;
    float GetPlayerOrientation() override;
    float GetMovementSpeed() override;
    float GetMovementDirection() override;
    void ResetPlayerOrientation() override;

private:
    void* handle;
};

// The viewer's vendor-neutral walking platform: which way the player walks and how fast. Shared by the
// VR renderer, which keeps one only while it is connected; render thread only.
class ORVEL_VR_EXPORT ITreadmill {
public:
    virtual ~ITreadmill() = default;
    virtual bool isConnected() const = 0;
    // Heading of the walk in fractions of a full turn; 0 when not connected.
    virtual float getDirection() const = 0;
    // 0 when not connected.
    virtual float getSpeed() const = 0;
};

// The vendor's platform behind ITreadmill. Construction finds the device and opens it unless it already
// is; destruction closes it again if it was connected.
class ORVEL_VR_EXPORT Virtualizer : public ITreadmill {
public:
    Virtualizer();
    ~Virtualizer() override;
    Virtualizer(const Virtualizer&) = delete;
    Virtualizer& operator=(const Virtualizer&) = delete;

    bool isConnected() const override { return connected; }
    // Standing still or walking backward reports the heading turned by half a turn, so that the speed,
    // which does not carry a sign, moves the player backward. The result is not wrapped into 0..1.
    float getDirection() const override;
    float getSpeed() const override;

private:
    std::unique_ptr<CVirtDevice> device;
    bool connected = false;
};
