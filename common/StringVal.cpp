#include "common/StringVal.h"

#include "platform/Utf.h"

namespace Ko_1_1 {

StringVal::StringVal(std::wstring text) : value(std::move(text)) {}

StringVal* StringVal::construct(const wchar_t* text) {
    return new StringVal(text ? std::wstring(text) : std::wstring());
}

StringVal* StringVal::construct(const std::wstring& text) {
    return new StringVal(text);
}

StringVal* StringVal::constructUtf8(const std::string& text) {
    return new StringVal(VR::utf8ToWide(text));
}

void StringVal::ref() {
    count.fetch_add(1, std::memory_order_relaxed);
}

void StringVal::unref() {
    if (count.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

std::string StringVal::toUtf8() const {
    return VR::wideToUtf8(value);
}

} // namespace Ko_1_1
