#pragma once

#include <stdexcept>
#include <string>

namespace Demo {

// The one failure of the demo's file readers (point clouds, measurements, annotations): a file that cannot be
// opened, is malformed, truncated or uses something the readers do not support. The message names the file
// and the problem, ready to show.
class ReadError : public std::runtime_error {
public:
    ReadError(const std::string& path, const std::string& problem);
};

} // namespace Demo
