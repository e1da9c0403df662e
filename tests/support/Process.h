#pragma once

#include <cstdlib>
#include <string>

#if !defined(_WIN32)
#include <sys/wait.h>
#endif

namespace OrvelTest {

// Runs a shell command, as a user would run a program, and answers its exit code (-1 when it did not exit).
inline int exitCodeOf(const std::string& command) {
#if defined(_WIN32)
    // The shell, cmd /c, drops the first and the last quote of a command line that starts with one: a quoted
    // program with a quoted argument would lose both, so an outer pair is there for it to drop.
    return std::system(("\"" + command + "\"").c_str());
#else
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
}

} // namespace OrvelTest
