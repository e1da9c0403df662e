#include "examples/LasReader.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <vector>

#include "examples/ReadError.h"
#include "examples/ScanUnits.h"

namespace Demo {
namespace {

template <typename T> T readLE(const unsigned char* p) {
    T value;
    std::memcpy(&value, p, sizeof(T));
    return value;
}

// Smallest record of each point data record format, and where its RGB fields start (0: none). The waveform
// formats 4, 5, 9 and 10 are formats 1, 3, 6 and 8 with a 29-byte packet descriptor after them.
struct FormatInfo {
    std::size_t minLength;
    std::size_t rgbOffset;
};
constexpr FormatInfo FORMATS[] = {{20, 0}, {28, 0},  {26, 20}, {34, 28}, {57, 0}, {63, 28},
                                  {30, 0}, {36, 30}, {38, 30}, {59, 0},  {67, 30}};
constexpr unsigned FORMAT_COUNT = sizeof FORMATS / sizeof FORMATS[0];

// Header size by minor version: 1.0 to 1.2 share one layout, 1.3 adds the waveform offset, 1.4 the extended
// records and 64-bit counts.
constexpr std::size_t HEADER_SIZES[] = {227, 227, 227, 235, 375};
constexpr std::size_t HEADER_MAX = 375;
constexpr std::size_t VLR_HEADER = 54;
constexpr std::size_t EVLR_HEADER = 60;
// Records come in chunks of about this many bytes, whatever record length the header claims.
constexpr std::size_t CHUNK_BYTES = 1 << 22;
// A WKT string this long is not a coordinate system; it is not read.
constexpr std::uint64_t WKT_MAX = 1 << 20;

constexpr std::uint16_t GEO_KEYS_RECORD = 34735;
constexpr std::uint16_t WKT_RECORD = 2112;

// The coordinate system records found among the (extended) variable-length records.
struct Projection {
    std::vector<unsigned char> geoKeys;
    std::string wkt;
};

class LasFile {
public:
    LasFile(const std::string& path, ScanLoad& load) : path_(path), load_(load) {}

    PointCloud read() {
        in_.open(path_, std::ios::binary);
        if (!in_) {
            fail("cannot open the file");
        }
        in_.seekg(0, std::ios::end);
        fileSize_ = static_cast<std::uint64_t>(in_.tellg());
        in_.seekg(0);
        readHeader();
        readProjection();
        applyUnits();
        return readPoints();
    }

private:
    [[noreturn]] void fail(const std::string& problem) const { throw ReadError(path_, problem); }

    void readHeader() {
        in_.read(reinterpret_cast<char*>(header_),
                 static_cast<std::streamsize>(std::min<std::uint64_t>(fileSize_, HEADER_MAX)));
        in_.clear();
        if (fileSize_ < 4 || std::memcmp(header_, "LASF", 4) != 0) {
            fail("not a LAS file (no 'LASF' signature)");
        }
        if (fileSize_ < HEADER_SIZES[0]) {
            fail("the file is truncated: it is too short for a LAS header");
        }
        const unsigned major = header_[24];
        minor_ = header_[25];
        if (major != 1 || minor_ > 4) {
            fail("LAS version " + std::to_string(major) + "." + std::to_string(minor_) +
                 " is not supported (versions 1.0 to 1.4 are)");
        }
        headerSize_ = readLE<std::uint16_t>(header_ + 94);
        if (headerSize_ < HEADER_SIZES[minor_]) {
            fail("header size " + std::to_string(headerSize_) + " is too small for LAS 1." +
                 std::to_string(minor_));
        }
        if (headerSize_ > fileSize_) {
            fail("the header size (" + std::to_string(headerSize_) +
                 " bytes) is beyond the end of the file (" + std::to_string(fileSize_) + " bytes)");
        }
        pointOffset_ = readLE<std::uint32_t>(header_ + 96);
        const unsigned formatByte = header_[104];
        // The two top bits mark compressed point data.
        if (formatByte & 0xC0) {
            fail("compressed (LAZ) point data is not supported; decompress the file first");
        }
        if (formatByte >= FORMAT_COUNT) {
            fail("point data record format " + std::to_string(formatByte) +
                 " is not supported (formats 0 to 10 are)");
        }
        format_ = FORMATS[formatByte];
        recordLength_ = readLE<std::uint16_t>(header_ + 105);
        if (recordLength_ < format_.minLength) {
            fail("point record length " + std::to_string(recordLength_) + " is too small for record format " +
                 std::to_string(formatByte) + " (it needs " + std::to_string(format_.minLength) + " bytes)");
        }
        count_ = readLE<std::uint32_t>(header_ + 107);
        if (minor_ == 4) {
            // Writers fill the legacy count only where it can hold the true one, and not at all for the newer
            // formats; the 64-bit count is the one to trust whenever it is given.
            const std::uint64_t count64 = readLE<std::uint64_t>(header_ + 247);
            if (count64 != 0) {
                count_ = count64;
            }
        }
        for (int a = 0; a < 3; ++a) {
            scale_[a] = readLE<double>(header_ + 131 + 8 * a);
            offset_[a] = readLE<double>(header_ + 155 + 8 * a);
            if (!std::isfinite(scale_[a]) || scale_[a] == 0.0 || !std::isfinite(offset_[a])) {
                fail("the header's scale or offset is invalid");
            }
        }
        if (pointOffset_ < headerSize_) {
            fail("the offset to the point data (" + std::to_string(pointOffset_) +
                 ") lies inside the header (" + std::to_string(headerSize_) + " bytes)");
        }
        if (pointOffset_ > fileSize_) {
            fail("the offset to the point data (" + std::to_string(pointOffset_) +
                 ") lies outside the file (" + std::to_string(fileSize_) + " bytes)");
        }
        if (count_ == 0) {
            fail("the file holds no points");
        }
        pointEnd_ = fileSize_;
        if (minor_ == 4) {
            evlrStart_ = readLE<std::uint64_t>(header_ + 235);
            evlrCount_ = readLE<std::uint32_t>(header_ + 243);
            // Extended records follow the points; a start before them is damage, and they are not looked for.
            if (evlrStart_ < pointOffset_) {
                evlrCount_ = 0;
            }
            if (evlrCount_ > 0 && evlrStart_ < pointEnd_) {
                pointEnd_ = evlrStart_;
            }
        }
    }

    // Only the coordinate system's records are kept, each checked to lie inside its part of the file before
    // its bytes are read.
    void readProjection() {
        const std::uint32_t vlrCount = readLE<std::uint32_t>(header_ + 100);
        std::uint64_t at = headerSize_;
        for (std::uint32_t i = 0; i < vlrCount; ++i) {
            unsigned char head[VLR_HEADER];
            if (pointOffset_ - at < VLR_HEADER || !readAt(at, head, VLR_HEADER)) {
                recordsDamaged("variable-length record", i, vlrCount);
                break;
            }
            const std::uint64_t length = readLE<std::uint16_t>(head + 20);
            if (pointOffset_ - at - VLR_HEADER < length) {
                recordsDamaged("variable-length record", i, vlrCount);
                break;
            }
            keep(head, readLE<std::uint16_t>(head + 18), at + VLR_HEADER, length);
            at += VLR_HEADER + length;
        }
        at = evlrStart_;
        for (std::uint32_t i = 0; i < evlrCount_; ++i) {
            unsigned char head[EVLR_HEADER];
            if (at > fileSize_ || fileSize_ - at < EVLR_HEADER || !readAt(at, head, EVLR_HEADER)) {
                recordsDamaged("extended variable-length record", i, evlrCount_);
                break;
            }
            const std::uint64_t length = readLE<std::uint64_t>(head + 20);
            if (fileSize_ - at - EVLR_HEADER < length) {
                recordsDamaged("extended variable-length record", i, evlrCount_);
                break;
            }
            keep(head, readLE<std::uint16_t>(head + 18), at + EVLR_HEADER, length);
            at += EVLR_HEADER + length;
        }
    }

    void recordsDamaged(const std::string& what, std::uint32_t index, std::uint32_t count) {
        load_.warnings.push_back(what + " " + std::to_string(index + 1) + " of " + std::to_string(count) +
                                 " runs past its part of the file; it and the ones after it are ignored");
    }

    void keep(const unsigned char* head, std::uint16_t id, std::uint64_t at, std::uint64_t length) {
        char user[17] = {};
        std::memcpy(user, head + 2, 16);
        if (std::strcmp(user, "LASF_Projection") != 0 || (id != GEO_KEYS_RECORD && id != WKT_RECORD) ||
            length > WKT_MAX) {
            return;
        }
        std::vector<unsigned char> data(static_cast<std::size_t>(length));
        if (!readAt(at, data.data(), data.size())) {
            return;
        }
        if (id == GEO_KEYS_RECORD) {
            projection_.geoKeys = std::move(data);
        } else {
            projection_.wkt.assign(data.begin(), data.end());
        }
    }

    bool readAt(std::uint64_t at, unsigned char* bytes, std::size_t size) {
        in_.clear();
        in_.seekg(static_cast<std::streamoff>(at));
        in_.read(reinterpret_cast<char*>(bytes), static_cast<std::streamsize>(size));
        return static_cast<std::size_t>(in_.gcount()) == size;
    }

    void applyUnits() {
        const ScanUnits fromKeys =
            ScanUnits::fromGeoKeys(projection_.geoKeys.data(), projection_.geoKeys.size());
        const ScanUnits fromWkt = ScanUnits::fromWkt(projection_.wkt);
        // The global encoding's WKT bit says which description is the file's own; the other is a courtesy
        // copy that may be stale.
        const bool wktFirst = (readLE<std::uint16_t>(header_ + 6) & 0x10) != 0;
        ScanUnits units = wktFirst ? fromWkt : fromKeys;
        bool fromWktRecord = wktFirst;
        if (!units.declared()) {
            units = wktFirst ? fromKeys : fromWkt;
            fromWktRecord = !wktFirst;
        }
        if (!units.unknown.empty()) {
            load_.warnings.push_back("the " + units.unknown +
                                     " in the GeoTIFF keys is not known; those "
                                     "coordinates are taken as metres");
        }
        units.complete();
        if (!units.metric()) {
            load_.notes.push_back(units.describe() + " (by the file's " +
                                  (fromWktRecord ? "WKT" : "GeoTIFF keys") + "), converted to metres");
        }
        factor_[0] = factor_[1] = units.horizontal.metres * load_.scale;
        factor_[2] = units.vertical.metres * load_.scale;
    }

    PointCloud readPoints() {
        const std::uint64_t fitting = (pointEnd_ - pointOffset_) / recordLength_;
        const std::uint64_t present = std::min(count_, fitting);
        load_.acceptTruncated(path_, count_, present, "point");

        PointCloud cloud;
        cloud.reserve(static_cast<std::size_t>(present));
        const bool hasColour = format_.rgbOffset != 0;
        // The low byte of each colour value is stored right away and the high byte kept aside, so that one
        // pass decides between 8-bit values in 16-bit fields and true 16-bit colour.
        std::vector<std::uint8_t> highBytes;
        std::uint16_t maxColour = 0;
        if (hasColour) {
            highBytes.reserve(static_cast<std::size_t>(present) * 3);
        }

        const std::size_t chunkRecords = static_cast<std::size_t>(
            std::max<std::uint64_t>(1, std::min<std::uint64_t>(present, CHUNK_BYTES / recordLength_)));
        std::vector<unsigned char> chunk(chunkRecords * recordLength_);
        in_.clear();
        in_.seekg(static_cast<std::streamoff>(pointOffset_));
        std::uint64_t done = 0;
        while (done < present) {
            const std::size_t n =
                static_cast<std::size_t>(std::min<std::uint64_t>(chunkRecords, present - done));
            in_.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(n * recordLength_));
            if (static_cast<std::size_t>(in_.gcount()) != n * recordLength_) {
                fail("reading stopped after " + std::to_string(done) + " of " +
                     ScanLoad::count(count_, "point"));
            }
            for (std::size_t i = 0; i < n; ++i) {
                const unsigned char* p = chunk.data() + i * recordLength_;
                double xyz[3];
                for (int a = 0; a < 3; ++a) {
                    xyz[a] = (readLE<std::int32_t>(p + 4 * a) * scale_[a] + offset_[a]) * factor_[a];
                }
                if (!hasColour) {
                    cloud.addWorld(xyz[0], xyz[1], xyz[2], 255, 255, 255);
                    continue;
                }
                std::uint16_t rgb[3];
                for (int c = 0; c < 3; ++c) {
                    rgb[c] = readLE<std::uint16_t>(p + format_.rgbOffset + 2 * c);
                    maxColour = std::max(maxColour, rgb[c]);
                }
                const std::size_t before = cloud.size();
                cloud.addWorld(xyz[0], xyz[1], xyz[2], static_cast<std::uint8_t>(rgb[0] & 0xFF),
                               static_cast<std::uint8_t>(rgb[1] & 0xFF),
                               static_cast<std::uint8_t>(rgb[2] & 0xFF));
                if (cloud.size() != before) {
                    for (const std::uint16_t value : rgb) {
                        highBytes.push_back(static_cast<std::uint8_t>(value >> 8));
                    }
                }
            }
            done += n;
            if (load_.progress) {
                load_.progress(static_cast<double>(done) / static_cast<double>(present));
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
        load_.finish(path_, cloud, hasColour, ScanLoad::Up::Z, "");
        return cloud;
    }

    const std::string& path_;
    ScanLoad& load_;
    std::ifstream in_;
    std::uint64_t fileSize_ = 0;
    unsigned char header_[HEADER_MAX] = {};
    unsigned minor_ = 0;
    std::uint64_t headerSize_ = 0;
    std::uint64_t pointOffset_ = 0;
    std::uint64_t pointEnd_ = 0;
    std::uint64_t evlrStart_ = 0;
    std::uint32_t evlrCount_ = 0;
    FormatInfo format_{};
    std::size_t recordLength_ = 0;
    std::uint64_t count_ = 0;
    double scale_[3] = {};
    double offset_[3] = {};
    double factor_[3] = {1.0, 1.0, 1.0};
    Projection projection_;
};

} // namespace

PointCloud LasReader::read(const std::string& path, ScanLoad& load) {
    return LasFile(path, load).read();
}

PointCloud LasReader::read(const std::string& path) {
    ScanLoad load;
    return read(path, load);
}

} // namespace Demo
