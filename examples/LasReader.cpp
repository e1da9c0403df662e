#include "examples/LasReader.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <vector>

#include "examples/ReadError.h"

namespace Demo {
namespace {

template <typename T> T readLE(const unsigned char* p) {
    T value;
    std::memcpy(&value, p, sizeof(T));
    return value;
}

// Smallest record of each point data record format, and where its RGB fields start (0: none).
struct FormatInfo {
    std::size_t minLength;
    std::size_t rgbOffset;
};

bool formatInfo(unsigned format, FormatInfo& info) {
    switch (format) {
    case 0:
        info = {20, 0};
        return true;
    case 1:
        info = {28, 0};
        return true;
    case 2:
        info = {26, 20};
        return true;
    case 3:
        info = {34, 28};
        return true;
    case 6:
        info = {30, 0};
        return true;
    case 7:
        info = {36, 30};
        return true;
    case 8:
        info = {38, 30};
        return true;
    default:
        return false;
    }
}

constexpr std::size_t HEADER_12 = 227;
constexpr std::size_t HEADER_13 = 235;
constexpr std::size_t HEADER_14 = 375;
constexpr std::size_t POINTS_PER_CHUNK = 1 << 16;

} // namespace

PointCloud LasReader::read(const std::string& path, const Progress& progress) {
    auto fail = [&path](const std::string& problem) { throw ReadError(path, problem); };

    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fail("cannot open the file");
    }
    in.seekg(0, std::ios::end);
    const std::uint64_t fileSize = static_cast<std::uint64_t>(in.tellg());
    in.seekg(0);

    unsigned char header[HEADER_14] = {};
    in.read(reinterpret_cast<char*>(header),
            static_cast<std::streamsize>(std::min<std::uint64_t>(fileSize, HEADER_14)));
    if (fileSize < 4 || std::memcmp(header, "LASF", 4) != 0) {
        fail("not a LAS file (no 'LASF' signature)");
    }
    if (fileSize < HEADER_12) {
        fail("the file is truncated: it is too short for a LAS header");
    }
    const unsigned major = header[24];
    const unsigned minor = header[25];
    if (major != 1 || minor < 2 || minor > 4) {
        fail("LAS version " + std::to_string(major) + "." + std::to_string(minor) +
             " is not supported (versions 1.2 to 1.4 are)");
    }
    const std::size_t headerSize = readLE<std::uint16_t>(header + 94);
    const std::size_t neededHeader = minor == 2 ? HEADER_12 : minor == 3 ? HEADER_13 : HEADER_14;
    if (headerSize < neededHeader) {
        fail("header size " + std::to_string(headerSize) + " is too small for LAS 1." +
             std::to_string(minor));
    }
    if (fileSize < neededHeader) {
        fail("the file is truncated: it is too short for a LAS 1." + std::to_string(minor) + " header");
    }
    const std::uint64_t pointOffset = readLE<std::uint32_t>(header + 96);
    const unsigned formatByte = header[104];
    // The two top bits mark compressed point data.
    if (formatByte & 0xC0) {
        fail("compressed (LAZ) point data is not supported; decompress the file first");
    }
    FormatInfo format;
    if (!formatInfo(formatByte, format)) {
        fail("point data record format " + std::to_string(formatByte) +
             " is not supported (formats 0 to 3 and 6 to 8 are)");
    }
    const std::size_t recordLength = readLE<std::uint16_t>(header + 105);
    if (recordLength < format.minLength) {
        fail("point record length " + std::to_string(recordLength) + " is too small for record format " +
             std::to_string(formatByte) + " (it needs " + std::to_string(format.minLength) + " bytes)");
    }
    std::uint64_t count = readLE<std::uint32_t>(header + 107);
    if (count == 0 && minor == 4) {
        count = readLE<std::uint64_t>(header + 247);
    }
    double scale[3], offset[3];
    for (int a = 0; a < 3; ++a) {
        scale[a] = readLE<double>(header + 131 + 8 * a);
        offset[a] = readLE<double>(header + 155 + 8 * a);
        if (!std::isfinite(scale[a]) || scale[a] == 0.0 || !std::isfinite(offset[a])) {
            fail("the header's scale or offset is invalid");
        }
    }
    if (pointOffset < headerSize || pointOffset > fileSize) {
        fail("the offset to the point data (" + std::to_string(pointOffset) + ") lies outside the file");
    }
    if (count == 0) {
        fail("the file holds no points");
    }
    const std::uint64_t fitting = (fileSize - pointOffset) / recordLength;
    if (fitting < count) {
        fail("the file is truncated: the header declares " + std::to_string(count) + " points of " +
             std::to_string(recordLength) + " bytes but only " + std::to_string(fitting) +
             " fit in the file");
    }

    PointCloud cloud;
    cloud.reserve(static_cast<std::size_t>(count));
    const bool hasColour = format.rgbOffset != 0;
    // The low byte of each colour value is stored right away and the high byte kept aside, so that one pass
    // decides between 8-bit values in 16-bit fields and true 16-bit colour.
    std::vector<std::uint8_t> highBytes;
    std::uint16_t maxColour = 0;
    if (hasColour) {
        highBytes.reserve(static_cast<std::size_t>(count) * 3);
    }

    in.seekg(static_cast<std::streamoff>(pointOffset));
    std::vector<unsigned char> chunk(POINTS_PER_CHUNK * recordLength);
    std::uint64_t done = 0;
    while (done < count) {
        const std::size_t n =
            static_cast<std::size_t>(std::min<std::uint64_t>(POINTS_PER_CHUNK, count - done));
        in.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(n * recordLength));
        if (static_cast<std::size_t>(in.gcount()) != n * recordLength) {
            fail("the file is truncated: reading stopped after " + std::to_string(done) + " of " +
                 std::to_string(count) + " points");
        }
        for (std::size_t i = 0; i < n; ++i) {
            const unsigned char* p = chunk.data() + i * recordLength;
            const double x = readLE<std::int32_t>(p) * scale[0] + offset[0];
            const double y = readLE<std::int32_t>(p + 4) * scale[1] + offset[1];
            const double z = readLE<std::int32_t>(p + 8) * scale[2] + offset[2];
            if (hasColour) {
                const std::uint16_t r = readLE<std::uint16_t>(p + format.rgbOffset);
                const std::uint16_t g = readLE<std::uint16_t>(p + format.rgbOffset + 2);
                const std::uint16_t b = readLE<std::uint16_t>(p + format.rgbOffset + 4);
                maxColour = std::max({maxColour, r, g, b});
                cloud.addWorld(x, y, z, static_cast<std::uint8_t>(r & 0xFF),
                               static_cast<std::uint8_t>(g & 0xFF), static_cast<std::uint8_t>(b & 0xFF));
                highBytes.push_back(static_cast<std::uint8_t>(r >> 8));
                highBytes.push_back(static_cast<std::uint8_t>(g >> 8));
                highBytes.push_back(static_cast<std::uint8_t>(b >> 8));
            } else {
                cloud.addWorld(x, y, z, 255, 255, 255);
            }
        }
        done += n;
        if (progress) {
            progress(static_cast<double>(done) / static_cast<double>(count));
        }
    }

    if (hasColour && maxColour > 255) {
        std::vector<PointCloud::Point>& points = cloud.points();
        for (std::size_t i = 0; i < points.size(); ++i) {
            points[i].r = highBytes[3 * i];
            points[i].g = highBytes[3 * i + 1];
            points[i].b = highBytes[3 * i + 2];
        }
    }
    cloud.recentre();
    if (!hasColour) {
        cloud.colourByHeight();
    }
    return cloud;
}

} // namespace Demo
