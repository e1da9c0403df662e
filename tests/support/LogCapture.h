#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/Log.h"

namespace OrvelTest {

// Collects the library's log lines while alive and gives the platform's debug output back afterwards.
class LogCapture {
public:
    LogCapture() {
        VR::setLogSink([this](const std::wstring& line) {
            std::lock_guard<std::mutex> lock(mutex);
            captured.push_back(line);
        });
    }
    ~LogCapture() { VR::setLogSink({}); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::wstring> lines() const {
        std::lock_guard<std::mutex> lock(mutex);
        return captured;
    }

    // Lines that begin with the prefix.
    std::vector<std::wstring> startingWith(const std::wstring& prefix) const {
        std::vector<std::wstring> found;
        for (const std::wstring& line : lines()) {
            if (line.compare(0, prefix.size(), prefix) == 0) {
                found.push_back(line);
            }
        }
        return found;
    }

    // Lines that contain the text anywhere.
    int count(const std::wstring& text) const {
        int n = 0;
        for (const std::wstring& line : lines()) {
            n += line.find(text) != std::wstring::npos ? 1 : 0;
        }
        return n;
    }

    void clear() {
        std::lock_guard<std::mutex> lock(mutex);
        captured.clear();
    }

private:
    mutable std::mutex mutex;
    std::vector<std::wstring> captured;
};

} // namespace OrvelTest
