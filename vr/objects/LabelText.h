#pragma once

#include <string>

#include "platform/Utf.h"

// Text from the host goes into labels as it is when it is well-formed UTF-8; malformed bytes become
// U+FFFD instead of stopping the rasteriser, which refuses malformed input as a whole.
inline std::string labelText(const std::string& text) {
    return VR::wideToUtf8(VR::utf8ToWide(text));
}
