// The log formatter on formats a caller could write: literal text of any code units, "%%", and up to four
// directives with any flags, width and precision, in the order of the arguments given (a wide string, a
// narrow string, an int, a double). The fuzzer's bytes choose the text, the directives and the arguments.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "platform/Log.h"

namespace {

class Bytes {
public:
    Bytes(const std::uint8_t* data, std::size_t size) : data(data), size(size) {}
    bool empty() const { return at >= size; }
    std::uint8_t next() { return at < size ? data[at++] : 0; }

private:
    const std::uint8_t* data;
    std::size_t size;
    std::size_t at = 0;
};

void appendSpec(Bytes& in, std::wstring& format, const wchar_t* conversion) {
    static const wchar_t flags[] = L"-+ #0";
    format += L'%';
    for (int n = in.next() % 3; n > 0; --n) {
        format += flags[in.next() % 5];
    }
    if (in.next() % 2 != 0) {
        format += std::to_wstring(in.next() * 39);
    }
    if (in.next() % 2 != 0) {
        format += L'.';
        format += std::to_wstring(in.next() % 20);
    }
    format += conversion;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes in(data, size);
    static const wchar_t* const conversions[][3] = {
        {L"s", L"ls", L"lS"}, {L"hs", L"hs", L"hs"}, {L"d", L"i", L"x"}, {L"f", L"g", L"e"}};
    const int directives = in.next() % 5;
    std::wstring format;
    std::wstring wide;
    std::string narrow;
    int integer = 0;
    double real = 0.0;
    for (int directive = 0; directive <= directives && !in.empty(); ++directive) {
        // Literal text, "%%" among it.
        for (int n = in.next() % 8; n > 0; --n) {
            const std::uint8_t kind = in.next();
            if (kind % 7 == 0) {
                format += L"%%";
            } else {
                const wchar_t unit = static_cast<wchar_t>(in.next() | (kind << 8));
                if (unit != 0 && unit != L'%') {
                    format += unit;
                }
            }
        }
        if (directive < directives) {
            appendSpec(in, format, conversions[directive][in.next() % 3]);
        }
    }
    for (int n = in.next() % 16; n > 0; --n) {
        const wchar_t unit = static_cast<wchar_t>(in.next() | (in.next() << 8));
        wide += unit != 0 ? unit : L'?';
        const char byte = static_cast<char>(in.next());
        narrow += byte != 0 ? byte : '?';
    }
    std::uint32_t bits = 0;
    for (int i = 0; i < 4; ++i) {
        bits = (bits << 8) | in.next();
    }
    integer = static_cast<int>(bits);
    std::uint64_t realBits = bits;
    realBits = (realBits << 32) | bits;
    std::memcpy(&real, &realBits, sizeof(real));
    const std::wstring line = VR::formatLine(format.c_str(), wide.c_str(), narrow.c_str(), integer, real);
    (void)line;
    return 0;
}
