#pragma once

#include <cstdarg>
#include <functional>
#include <string>

#include "platform/Export.h"

namespace VR {

// Formats one wide printf-style line the way the Windows debug output would show it, whatever the
// platform: "%s" and "%c" take wide arguments, "%hs" and "%hc" narrow ones, the rest as in printf.
// The finished text goes to the installed sink, or to the platform's debug output when there is none.
ORVEL_VR_EXPORT void logLine(const wchar_t* format, ...);

// The text logLine would produce, without writing it anywhere.
ORVEL_VR_EXPORT std::wstring formatLine(const wchar_t* format, ...);
std::wstring formatWideLine(const wchar_t* format, std::va_list args);

// Receives every finished line, on whichever thread logged it; the sink must be thread-safe. An empty
// function restores the platform's debug output.
using LogSink = std::function<void(const std::wstring& line)>;
ORVEL_VR_EXPORT void setLogSink(LogSink sink);

} // namespace VR
