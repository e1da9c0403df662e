#include "examples/ReadError.h"

namespace Demo {

ReadError::ReadError(const std::string& path, const std::string& problem)
    : std::runtime_error(path + ": " + problem) {}

} // namespace Demo
