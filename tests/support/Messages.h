#pragma once

#include <exception>
#include <string>

namespace OrvelTest {

// The text of the exception that f throws, or "<no exception>" when it returns normally.
template <typename F> std::string thrownMessage(F&& f) {
    try {
        f();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "<no exception>";
}

} // namespace OrvelTest
