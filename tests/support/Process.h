#pragma once

#include <cstdlib>
#include <string>

#if !defined(_WIN32)
#include <sys/wait.h>
#endif

namespace OrvelTest {

// Runs a shell command, as a user would run a program, and answers its exit code (-1 when it did not exit).
inline int exitCodeOf(const std::string& command) {
    const int status = std::system(command.c_str());
#if defined(_WIN32)
    return status;
#else
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
}

} // namespace OrvelTest
