#pragma once

#include <cstdint>

namespace VR {

// Result codes of the library's entry points. Hosts compare against the numbers, so they never move.
struct VRGlobals {
    enum ErrorCodes : std::int32_t {
        NoError = 0,
        RuntimeNotInstalled = 1,
        HmdNotPresent = 2,
        // 3 is reserved so that 4 and 5 keep their numbers.
        InitializationError = 4,
        WindowCreationFailed = 5,
    };
};

} // namespace VR
