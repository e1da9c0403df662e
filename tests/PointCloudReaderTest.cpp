#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "examples/LasReader.h"
#include "examples/ModelReader.h"
#include "examples/PlyReader.h"
#include "examples/ReadError.h"
#include "platform/Platform.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using Vec3 = Ko_1_1::Vec3d<double>;

const fs::path SAMPLES = ORVEL_SAMPLE_DATA_DIR;

// Files a test writes live in a scratch folder of its own, removed afterwards.
class ReaderTest : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& bytes) const {
        const std::string path = folder.path(name);
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    // Each damaged copy must be refused with an error that names the file and contains the problem's words.
    struct Damage {
        const char* name;
        std::function<std::string(std::string)> change;
        const char* words;
    };
    template <typename Read>
    void expectRefused(Read read, const std::string& good, const std::vector<Damage>& damages) {
        for (const Damage& damage : damages) {
            const std::string path = write(damage.name, damage.change(good));
            try {
                read(path);
                ADD_FAILURE() << damage.name << " was read; expected '" << damage.words << "'";
            } catch (const Demo::ReadError& e) {
                const std::string message = e.what();
                EXPECT_EQ(message.rfind(path + ": ", 0), 0u) << message;
                EXPECT_NE(message.find(damage.words), std::string::npos) << message;
            }
        }
    }

    const OrvelTest::TempFolder folder;
};

template <typename T> void put(std::string& bytes, std::size_t at, T value) {
    if (bytes.size() < at + sizeof(T)) {
        bytes.resize(at + sizeof(T));
    }
    std::memcpy(&bytes[at], &value, sizeof(T));
}
template <typename T> auto putting(std::size_t at, T value) {
    return [=](std::string bytes) {
        put(bytes, at, value);
        return bytes;
    };
}
auto replacing(const std::string& from, const std::string& to) {
    return [=](std::string bytes) { return bytes.replace(bytes.find(from), from.size(), to); };
}
auto cutAt(std::size_t size) {
    return [=](const std::string& bytes) { return bytes.substr(0, size); };
}
auto text(const std::string& content) {
    return [=](const std::string&) { return content; };
}

void expectNear(Vec3 got, Vec3 want, double tolerance) {
    EXPECT_LT((got - want).length(), tolerance) << got.x << ", " << got.y << ", " << got.z;
}

void expectBounds(const Demo::PointCloud& cloud, Vec3 min, Vec3 max) {
    Vec3 lo, hi;
    cloud.worldBounds(lo, hi);
    expectNear(lo, min, 0.01);
    expectNear(hi, max, 0.01);
}

Vec3 worldOf(const Demo::PointCloud& cloud, std::size_t i) {
    const Demo::PointCloud::Point& p = cloud.points()[i];
    return cloud.origin() + Vec3{p.x, p.y, p.z};
}

// A minimal LAS file: header of the version's size, no VLRs, room for the records that follow.
std::string lasFile(unsigned minor, unsigned format, std::uint16_t recordLength, std::uint64_t count) {
    const std::uint16_t headerSize = minor == 2 ? 227 : 375;
    std::string bytes(headerSize, '\0');
    std::memcpy(&bytes[0], "LASF", 4);
    bytes[24] = 1;
    bytes[25] = static_cast<char>(minor);
    put<std::uint16_t>(bytes, 94, headerSize);
    put<std::uint32_t>(bytes, 96, headerSize);
    bytes[104] = static_cast<char>(format);
    put<std::uint16_t>(bytes, 105, recordLength);
    // Version 1.4 files may leave the legacy count 0 and give the real one in 64 bits.
    put<std::uint32_t>(bytes, 107, minor == 4 ? 0u : static_cast<std::uint32_t>(count));
    for (int a = 0; a < 3; ++a) {
        put<double>(bytes, 131 + 8 * a, 0.001);
        put<double>(bytes, 155 + 8 * a, a == 0 ? 500000.0 : a == 1 ? 4000000.0 : 100.0);
    }
    if (minor == 4) {
        put<std::uint64_t>(bytes, 247, count);
    }
    return bytes;
}

} // namespace

// The LAS scan keeps eight-bit colour in its sixteen-bit fields; the PLY scan has an extra property.
TEST_F(ReaderTest, ReadsTheSampleScans) {
    if (!fs::exists(SAMPLES / "autzen_trim.las") || !fs::exists(SAMPLES / "pump-scan.ply")) {
        GTEST_SKIP() << "sample scans not found in " << SAMPLES;
    }
    double lastProgress = -1.0;
    bool progressRose = true;
    const Demo::PointCloud cloud =
        Demo::LasReader::read((SAMPLES / "autzen_trim.las").string(), [&](double fraction) {
            progressRose = progressRose && fraction >= lastProgress;
            lastProgress = fraction;
        });
    ASSERT_EQ(cloud.size(), 110000u);
    expectBounds(cloud, {636001.76, 848935.20, 406.26}, {637179.22, 849497.90, 520.51});
    EXPECT_TRUE(progressRose);
    EXPECT_DOUBLE_EQ(lastProgress, 1.0);
    // Taking the high byte of these values would leave everything black.
    const auto bright = std::count_if(cloud.points().begin(), cloud.points().end(), [](const auto& p) {
        return std::max({p.r, p.g, p.b}) > 100;
    });
    EXPECT_GT(bright, 50000);

    lastProgress = -1.0;
    const Demo::PointCloud pump = Demo::PlyReader::read((SAMPLES / "pump-scan.ply").string(),
                                                        [&](double fraction) { lastProgress = fraction; });
    ASSERT_EQ(pump.size(), 155201u);
    expectBounds(pump, {-2.90, -5.30, -1.90}, {1.72, -0.79, 1.84});
    EXPECT_DOUBLE_EQ(lastProgress, 1.0);
    // The first vertex, read by hand: float x, y, z, then red, green, blue, then a float intensity.
    expectNear(worldOf(pump, 0), {1.7022860, -3.1935880, -1.8418430}, 1e-6);
    const auto& p = pump.points()[0];
    EXPECT_EQ(std::vector<int>({p.r, p.g, p.b}), std::vector<int>({51, 65, 49}));
}

TEST_F(ReaderTest, LasReadsSixteenBitColourOrHeightRampWithoutColour) {
    std::string coloured = lasFile(4, 7, 36, 2);
    const std::int32_t xyz[2][3] = {{1000, 2000, 3000}, {-5000, 250, 0}};
    const std::uint16_t rgb[2][3] = {{65535, 0, 32896}, {256, 512, 1024}};
    for (int i = 0; i < 2; ++i) {
        std::string record(36, '\0');
        for (int a = 0; a < 3; ++a) {
            put<std::int32_t>(record, 4 * a, xyz[i][a]);
            put<std::uint16_t>(record, 30 + 2 * a, rgb[i][a]);
        }
        coloured += record;
    }
    const Demo::PointCloud cloud = Demo::LasReader::read(write("v14.las", coloured));
    ASSERT_EQ(cloud.size(), 2u);
    expectNear(worldOf(cloud, 0), {500001.0, 4000002.0, 103.0}, 1e-4);
    expectNear(worldOf(cloud, 1), {499995.0, 4000000.25, 100.0}, 1e-4);
    const auto& p = cloud.points();
    EXPECT_EQ(std::vector<int>({p[0].r, p[0].g, p[0].b, p[1].r, p[1].b}),
              std::vector<int>({255, 0, 128, 1, 4}));

    std::string plain = lasFile(2, 0, 20, 2);
    for (const std::int32_t z : {0, 10000}) {
        std::string record(20, '\0');
        put<std::int32_t>(record, 8, z);
        plain += record;
    }
    const Demo::PointCloud ramp = Demo::LasReader::read(write("plain.las", plain));
    ASSERT_EQ(ramp.size(), 2u);
    EXPECT_GT(ramp.points()[0].b, ramp.points()[0].r); // low: blue
    EXPECT_GT(ramp.points()[1].r, ramp.points()[1].b); // high: red
}

// Damaged copies of a good file made here, so that the checks run wherever the tests do.
TEST_F(ReaderTest, LasRejectsDamagedAndUnsupportedFiles) {
    const std::string good = lasFile(2, 3, 34, 1000) + std::string(1000 * 34, '\0');
    expectRefused([](const std::string& path) { Demo::LasReader::read(path); }, good,
                  {{"cut.las", cutAt(good.size() / 2), "truncated"},
                   {"short.las", cutAt(100), "truncated"},
                   {"count.las", putting<std::uint32_t>(107, 1001), "truncated"},
                   {"signature.las", putting(0, 'X'), "not a LAS file"},
                   {"version.las", putting<char>(25, 1), "version 1.1 is not supported"},
                   {"format.las", putting<char>(104, 5), "record format 5 is not supported"},
                   {"laz.las", putting(104, static_cast<char>(0x83)), "compressed"},
                   {"record.las", putting<std::uint16_t>(105, 30), "too small for record format 3"},
                   {"offset.las", putting<std::uint32_t>(96, 0x7FFFFFFF), "outside the file"},
                   // Nothing can be written into a missing folder, so this file is absent.
                   {"missing/x.las", text(""), "cannot open"}});
}

TEST_F(ReaderTest, PlyReadsHandwrittenAsciiWithListsAndOtherElements) {
    // A face element before the vertices, a list among the vertex properties, CRLF line ends, and a vertex
    // spread over two lines.
    const std::string content =
        "ply\r\nformat ascii 1.0\r\ncomment written by hand\r\n"
        "element face 2\r\nproperty list uchar int vertex_indices\r\n"
        "element vertex 3\r\nproperty float x\r\nproperty float y\r\nproperty float z\r\n"
        "property list uchar float tags\r\n"
        "property uchar red\r\nproperty uchar green\r\nproperty uchar blue\r\nend_header\r\n"
        "3 0 1 2\r\n4 0 1 2 3\r\n"
        "1.5 -2 3e1 2 0.5 0.25 255 0 10\r\n0 0 0 0 1 2 3\r\n-1 -1\n -1 1 7 4 5 6\n";
    const Demo::PointCloud cloud = Demo::PlyReader::read(write("hand.ply", content));
    ASSERT_EQ(cloud.size(), 3u);
    expectNear(worldOf(cloud, 0), {1.5, -2.0, 30.0}, 1e-6);
    expectNear(worldOf(cloud, 2), {-1.0, -1.0, -1.0}, 1e-6);
    const auto& p = cloud.points();
    EXPECT_EQ(std::vector<int>({p[0].r, p[0].b, p[1].g, p[2].r}), std::vector<int>({255, 10, 2, 4}));
}

TEST_F(ReaderTest, PlyKeepsDoublePrecisionOfLargeCoordinates) {
    std::string bytes = "ply\nformat binary_little_endian 1.0\n"
                        "element vertex 2\n"
                        "property double x\nproperty double y\nproperty double z\n"
                        "property list uint short ring\n"
                        "end_header\n";
    const double coords[2][3] = {{636001.7612, 848935.2034, 406.2611}, {637179.2288, 849497.9071, 520.5123}};
    for (const auto& xyz : coords) {
        for (double c : xyz) {
            put(bytes, bytes.size(), c);
        }
        put<std::uint32_t>(bytes, bytes.size(), 2);
        put<std::uint32_t>(bytes, bytes.size(), 0x00080007); // the list's two shorts
    }
    const Demo::PointCloud cloud = Demo::PlyReader::read(write("double.ply", bytes));
    ASSERT_EQ(cloud.size(), 2u);
    // Float positions alone would be off by centimetres at these coordinates.
    for (int i = 0; i < 2; ++i) {
        expectNear(worldOf(cloud, i), {coords[i][0], coords[i][1], coords[i][2]}, 1e-3);
    }
}

TEST_F(ReaderTest, PlyRejectsDamagedAndUnsupportedFiles) {
    // Laid out as the pump scan is: floats x, y, z, colour bytes, a float intensity.
    const std::string good = "ply\nformat binary_little_endian 1.0\nelement vertex 2000\nproperty float x\n"
                             "property float y\nproperty float z\nproperty uchar red\nproperty uchar green\n"
                             "property uchar blue\nproperty float intensity\nend_header\n" +
                             std::string(2000 * 19, '\0');
    const std::size_t body = good.find("end_header\n") + 11;
    const std::string ascii = "ply\nformat ascii 1.0\nelement vertex 2\n";
    const std::string xyz = "property float x\nproperty float y\nproperty float z\n";
    expectRefused(
        [](const std::string& path) { Demo::PlyReader::read(path); }, good,
        {{"cut.ply", cutAt(body + 1000), "truncated"},
         {"count.ply", replacing("vertex 2000", "vertex 2009"), "truncated"},
         {"noend.ply", cutAt(body - 11), "end_header"},
         {"garbage.ply", replacing("ply\n", "plx\n"), "not a PLY file"},
         {"big.ply", replacing("binary_little_endian", "binary_big_endian"), "binary_big_endian"},
         {"keyword.ply", replacing("property float intensity", "propertx"), "unexpected keyword"},
         {"int.ply",
          text(ascii + "property int x\nproperty float y\nproperty float z\nend_header\n1 2 3\n4 5 6\n"),
          "float or double"},
         {"novertex.ply", text("ply\nformat ascii 1.0\nelement point 1\nproperty float x\nend_header\n1\n"),
          "no 'vertex' element"},
         {"text.ply", text(ascii + xyz + "end_header\n1 2 3\n4 five 6\n"),
          "'five' in vertex 1 is not a number"},
         {"short.ply", text(ascii + xyz + "end_header\n1 2 3\n4 5\n"), "truncated"},
         {"list.ply",
          text("ply\nformat binary_little_endian 1.0\nelement vertex 1\n" + xyz +
               "property list uint int big\nend_header\n" + std::string(12, '\0') + "\xff\xff\xff\x7f"),
          "truncated"}});
}

// The viewer's beam model as the build stages it, and a damaged copy.
TEST_F(ReaderTest, ModelReaderReadsTheStagedBeamAndRejectsDamage) {
    const Demo::ModelReader::Model beam =
        Demo::ModelReader::read(Platform::executableFolder() + "VR/Models/Cylinder.ply");
    EXPECT_EQ(beam.positions.size(), 66u * 3);
    EXPECT_EQ(beam.normals.size(), beam.positions.size());
    EXPECT_EQ(beam.indices.size(), 64u * 3);
    const std::string header = "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
                               "property float z\nelement face 1\nproperty list uchar int vertex_indices\n"
                               "end_header\n0 0 0\n1 0 0\n0 1 0\n";
    EXPECT_EQ(Demo::ModelReader::read(write("quad.ply", header + "3 0 1 2\n")).indices.size(), 3u);
    for (const char* face : {"3 0 1 3\n", "3 0 1\n", "2 0 1\n"}) {
        EXPECT_THROW(Demo::ModelReader::read(write("bad.ply", header + face)), Demo::ReadError) << face;
    }
}
