// The demo host's scan readers on arbitrary bytes: a file either loads or is refused with a ReadError; it
// never crashes, hangs, or asks for memory its size cannot justify (the fuzzer's memory limits catch that).
// Built twice, once per format (ORVEL_FUZZ_LAS selects the LAS reader).

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "examples/ReadError.h"
#include "examples/ScanLoad.h"
#if defined(ORVEL_FUZZ_LAS)
#include "examples/LasReader.h"
#else
#include "examples/PlyReader.h"
#endif

namespace {

// One scratch file per fuzzing process: the readers read files.
const std::string& scratchPath() {
    static const std::string path =
        "/tmp/orvel-fuzz-" + std::to_string(static_cast<long>(::getpid())) + (ORVEL_FUZZ_EXTENSION);
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::FILE* file = std::fopen(scratchPath().c_str(), "wb");
    if (file == nullptr) {
        return 0;
    }
    const bool written = size == 0 || std::fwrite(data, 1, size, file) == size;
    std::fclose(file);
    if (!written) {
        return 0;
    }
    Demo::ScanLoad load;
    try {
#if defined(ORVEL_FUZZ_LAS)
        const Demo::PointCloud cloud = Demo::LasReader::read(scratchPath(), load);
#else
        const Demo::PointCloud cloud = Demo::PlyReader::read(scratchPath(), load);
#endif
        (void)cloud;
    } catch (const Demo::ReadError&) {
        // A refused file is a correct answer.
    }
    return 0;
}
