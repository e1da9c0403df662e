#include "simvr/SimSettings.h"

#include <string>

#include "simvr/SimRuntime.h"

namespace SimVR {

namespace {

using Setting = SimRuntime::Setting;

// Error values beyond the two the clients declare.
constexpr auto WRITE_FAILED = static_cast<vr::EVRSettingsError>(2);
constexpr auto UNSET_SETTING_HAS_NO_DEFAULT = static_cast<vr::EVRSettingsError>(5);

void setError(vr::EVRSettingsError* error, vr::EVRSettingsError value) {
    if (error != nullptr) {
        *error = value;
    }
}

void store(const char* section, const char* key, Setting setting, vr::EVRSettingsError* error) {
    if (section == nullptr || key == nullptr) {
        setError(error, WRITE_FAILED);
        return;
    }
    SimRuntime::instance().locked([&](SimRuntime::State& state) {
        state.settings[{section, key}] = std::move(setting);
    });
    setError(error, vr::VRSettingsError_None);
}

Setting numeric(Setting::Kind kind, double value) {
    Setting setting;
    setting.kind = kind;
    setting.number = value;
    return setting;
}

// Numbers convert between the numeric kinds as the runtime's settings file does; a string has no number.
bool readNumber(const char* section, const char* key, double& value, vr::EVRSettingsError* error) {
    const bool found =
        section != nullptr && key != nullptr && SimRuntime::instance().locked([&](SimRuntime::State& state) {
            const auto entry = state.settings.find({section, key});
            if (entry == state.settings.end() || entry->second.kind == Setting::Kind::String) {
                return false;
            }
            value = entry->second.number;
            return true;
        });
    setError(error, found ? vr::VRSettingsError_None : UNSET_SETTING_HAS_NO_DEFAULT);
    if (!found) {
        value = 0.0;
    }
    return found;
}

} // namespace

const char* SimSettings::GetSettingsErrorNameFromEnum(vr::EVRSettingsError error) {
    switch (static_cast<int32_t>(error)) {
    case 0:
        return "VRSettingsError_None";
    case 1:
        return "VRSettingsError_IPCFailed";
    case 2:
        return "VRSettingsError_WriteFailed";
    case 3:
        return "VRSettingsError_ReadFailed";
    case 4:
        return "VRSettingsError_JsonParseFailed";
    case 5:
        return "VRSettingsError_UnsetSettingHasNoDefault";
    default:
        return "Unknown EVRSettingsError";
    }
}

bool SimSettings::Sync(bool, vr::EVRSettingsError* error) {
    setError(error, vr::VRSettingsError_None);
    return true;
}

void SimSettings::SetBool(const char* section, const char* key, bool value, vr::EVRSettingsError* error) {
    store(section, key, numeric(Setting::Kind::Bool, value ? 1.0 : 0.0), error);
}

void SimSettings::SetInt32(const char* section, const char* key, int32_t value, vr::EVRSettingsError* error) {
    store(section, key, numeric(Setting::Kind::Int32, value), error);
}

void SimSettings::SetFloat(const char* section, const char* key, float value, vr::EVRSettingsError* error) {
    store(section, key, numeric(Setting::Kind::Float, value), error);
}

void SimSettings::SetString(const char* section, const char* key, const char* value,
                            vr::EVRSettingsError* error) {
    Setting setting;
    setting.kind = Setting::Kind::String;
    setting.text = value != nullptr ? value : "";
    store(section, key, std::move(setting), error);
}

bool SimSettings::GetBool(const char* section, const char* key, vr::EVRSettingsError* error) {
    double value = 0.0;
    readNumber(section, key, value, error);
    return value != 0.0;
}

int32_t SimSettings::GetInt32(const char* section, const char* key, vr::EVRSettingsError* error) {
    double value = 0.0;
    readNumber(section, key, value, error);
    return static_cast<int32_t>(value);
}

float SimSettings::GetFloat(const char* section, const char* key, vr::EVRSettingsError* error) {
    double value = 0.0;
    readNumber(section, key, value, error);
    return static_cast<float>(value);
}

void SimSettings::GetString(const char* section, const char* key, char* value, uint32_t valueSize,
                            vr::EVRSettingsError* error) {
    std::string text;
    const bool found =
        section != nullptr && key != nullptr && SimRuntime::instance().locked([&](SimRuntime::State& state) {
            const auto entry = state.settings.find({section, key});
            if (entry == state.settings.end() || entry->second.kind != Setting::Kind::String) {
                return false;
            }
            text = entry->second.text;
            return true;
        });
    if (!found) {
        setError(error, UNSET_SETTING_HAS_NO_DEFAULT);
        SimRuntime::copyString("", value, valueSize);
        return;
    }
    const uint32_t length = SimRuntime::copyString(text, value, valueSize);
    setError(error, value != nullptr && valueSize >= length ? vr::VRSettingsError_None
                                                            : vr::VRSettingsError_ReadFailed);
}

void SimSettings::RemoveSection(const char* section, vr::EVRSettingsError* error) {
    if (section != nullptr) {
        SimRuntime::instance().locked([&](SimRuntime::State& state) {
            for (auto entry = state.settings.begin(); entry != state.settings.end();) {
                entry = entry->first.first == section ? state.settings.erase(entry) : std::next(entry);
            }
        });
    }
    setError(error, vr::VRSettingsError_None);
}

void SimSettings::RemoveKeyInSection(const char* section, const char* key, vr::EVRSettingsError* error) {
    if (section != nullptr && key != nullptr) {
        SimRuntime::instance().locked([&](SimRuntime::State& state) {
            state.settings.erase({section, key});
        });
    }
    setError(error, vr::VRSettingsError_None);
}

} // namespace SimVR
