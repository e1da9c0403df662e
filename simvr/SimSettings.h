#pragma once

#include "vr/openvr/OpenVRInterfaces.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace SimVR {

// The simulated runtime's IVRSettings: a section/key store of bools, integers, floats and strings kept in
// SimRuntime (so the control API can set "steamvr"/"supersampleScale"). One static instance; any thread.
class SimSettings final : public vr::IVRSettings {
public:
    const char* GetSettingsErrorNameFromEnum(vr::EVRSettingsError error) override;
    bool Sync(bool force, vr::EVRSettingsError* error) override;
    void SetBool(const char* section, const char* key, bool value, vr::EVRSettingsError* error) override;
    void SetInt32(const char* section, const char* key, int32_t value, vr::EVRSettingsError* error) override;
    void SetFloat(const char* section, const char* key, float value, vr::EVRSettingsError* error) override;
    void SetString(const char* section, const char* key, const char* value,
                   vr::EVRSettingsError* error) override;
    bool GetBool(const char* section, const char* key, vr::EVRSettingsError* error) override;
    int32_t GetInt32(const char* section, const char* key, vr::EVRSettingsError* error) override;
    float GetFloat(const char* section, const char* key, vr::EVRSettingsError* error) override;
    void GetString(const char* section, const char* key, char* value, uint32_t valueSize,
                   vr::EVRSettingsError* error) override;
    void RemoveSection(const char* section, vr::EVRSettingsError* error) override;
    void RemoveKeyInSection(const char* section, const char* key, vr::EVRSettingsError* error) override;
};

} // namespace SimVR

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
