// Text the library takes from hosts and files: the lenient UTF-8 conversions and the label text filter.
// Malformed input becomes replacement characters, never a crash, and what comes out converts back unchanged.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/Utf.h"
#include "vr/objects/LabelText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::wstring wide = VR::utf8ToWide(bytes);
    const std::string utf8 = VR::wideToUtf8(wide);
    // Whatever the input, the output is well-formed UTF-8: decoding it again gives the same text.
    if (VR::utf8ToWide(utf8) != wide) {
        std::abort();
    }
    // Wide text from a host may hold anything, lone surrogates included.
    std::wstring units;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        units.push_back(static_cast<wchar_t>(data[i] | (data[i + 1] << 8)));
    }
    const std::string back = VR::wideToUtf8(units);
    if (VR::wideToUtf8(VR::utf8ToWide(back)) != back) {
        std::abort();
    }
    (void)labelText(bytes);
    return 0;
}
