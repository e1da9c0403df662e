#pragma once

#include <atomic>
#include <string>

#include "platform/Export.h"

namespace Ko_1_1 {

// Reference-counted, immutable wide string that carries identifiers and paths across the host boundary.
// `construct` hands out one reference; whoever ends up holding the last one calls `unref`, which frees it.
// The count is atomic, so references may be taken and dropped on any thread.
class ORVEL_VR_EXPORT StringVal {
public:
    static StringVal* construct(const wchar_t* text);
    static StringVal* construct(const std::wstring& text);
    // Takes UTF-8 text (identifiers arrive from the host's records as UTF-8).
    static StringVal* constructUtf8(const std::string& text);

    void ref();
    void unref();

    const std::wstring& stringValue() const { return value; }
    std::string toUtf8() const;
    int refCount() const { return count.load(std::memory_order_acquire); }

    StringVal(const StringVal&) = delete;
    StringVal& operator=(const StringVal&) = delete;

private:
    explicit StringVal(std::wstring text);
    ~StringVal() = default;

    std::wstring value;
    std::atomic<int> count{1};
};

} // namespace Ko_1_1
