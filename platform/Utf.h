#pragma once

#include <string>

#include "platform/Export.h"

namespace VR {

// Lenient conversions for log text and host strings: malformed input becomes U+FFFD rather than an error.
ORVEL_VR_EXPORT std::wstring utf8ToWide(const std::string& text);
ORVEL_VR_EXPORT std::string wideToUtf8(const std::wstring& text);

} // namespace VR
