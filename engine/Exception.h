#pragma once

#include <exception>
#include <string>

#include "platform/Export.h"

namespace Brume {

// The engine's only exception: a fixed English sentence. The engine logs nothing itself; the library's
// entry points catch, log and turn it into an error code.
class ORVEL_VR_EXPORT Exception : public std::exception {
public:
    explicit Exception(std::string message) : text(std::move(message)) {}
    const char* what() const noexcept override { return text.c_str(); }

private:
    std::string text;
};

} // namespace Brume
