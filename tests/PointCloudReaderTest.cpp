#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "examples/LasReader.h"
#include "examples/PlyReader.h"
#include "examples/ReadError.h"

namespace {

namespace fs = std::filesystem;

const fs::path SAMPLES = ORVEL_SAMPLE_DATA_DIR;

// A scratch folder per test, removed afterwards.
class ReaderTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir =
            fs::temp_directory_path() /
            ("orvel_reader_" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string write(const std::string& name, const std::string& bytes) const {
        const std::string path = (dir / name).string();
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    static std::string slurp(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

    static bool samplesPresent() {
        return fs::exists(SAMPLES / "autzen_trim.las") && fs::exists(SAMPLES / "pump-scan.ply");
    }

    fs::path dir;
};

template <typename T> void put(std::string& bytes, std::size_t at, T value) {
    if (bytes.size() < at + sizeof(T)) {
        bytes.resize(at + sizeof(T));
    }
    std::memcpy(&bytes[at], &value, sizeof(T));
}
template <typename T> void append(std::string& bytes, T value) {
    put(bytes, bytes.size(), value);
}

void expectBounds(const Demo::PointCloud& cloud, Ko_1_1::Vec3d<double> min, Ko_1_1::Vec3d<double> max,
                  double tolerance) {
    Ko_1_1::Vec3d<double> lo, hi;
    cloud.worldBounds(lo, hi);
    EXPECT_NEAR(lo.x, min.x, tolerance);
    EXPECT_NEAR(lo.y, min.y, tolerance);
    EXPECT_NEAR(lo.z, min.z, tolerance);
    EXPECT_NEAR(hi.x, max.x, tolerance);
    EXPECT_NEAR(hi.y, max.y, tolerance);
    EXPECT_NEAR(hi.z, max.z, tolerance);
}

// The error must name the file and contain the problem's words.
template <typename Read> void expectReadError(Read read, const std::string& path, const std::string& words) {
    try {
        read(path);
        ADD_FAILURE() << path << " was read without an error; expected '" << words << "'";
    } catch (const Demo::ReadError& e) {
        const std::string message = e.what();
        EXPECT_EQ(message.rfind(path + ": ", 0), 0u) << message;
        EXPECT_NE(message.find(words), std::string::npos) << message;
    }
}

Ko_1_1::Vec3d<double> worldOf(const Demo::PointCloud& cloud, std::size_t i) {
    const Demo::PointCloud::Point& p = cloud.points()[i];
    return cloud.origin() + Ko_1_1::Vec3d<double>{p.x, p.y, p.z};
}

// A minimal LAS file: header of the version's size, no VLRs, the given records.
std::string lasFile(unsigned minor, unsigned format, std::uint16_t recordLength, std::uint64_t count,
                    bool legacyCount) {
    const std::uint16_t headerSize = minor == 2 ? 227 : minor == 3 ? 235 : 375;
    std::string bytes(headerSize, '\0');
    std::memcpy(&bytes[0], "LASF", 4);
    bytes[24] = 1;
    bytes[25] = static_cast<char>(minor);
    put<std::uint16_t>(bytes, 94, headerSize);
    put<std::uint32_t>(bytes, 96, headerSize);
    bytes[104] = static_cast<char>(format);
    put<std::uint16_t>(bytes, 105, recordLength);
    put<std::uint32_t>(bytes, 107, legacyCount ? static_cast<std::uint32_t>(count) : 0u);
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

TEST_F(ReaderTest, LasReadsSampleWithEightBitColourInSixteenBitFields) {
    if (!samplesPresent()) {
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
    expectBounds(cloud, {636001.76, 848935.20, 406.26}, {637179.22, 849497.90, 520.51}, 0.006);
    EXPECT_TRUE(progressRose);
    EXPECT_DOUBLE_EQ(lastProgress, 1.0);
    // Taking the high byte of these values would leave everything black.
    int bright = 0;
    for (const auto& p : cloud.points()) {
        bright += std::max({p.r, p.g, p.b}) > 100;
    }
    EXPECT_GT(bright, 50000);
}

TEST_F(ReaderTest, LasReadsVersion14SixteenBitColourAndSixtyFourBitCount) {
    std::string bytes = lasFile(4, 7, 36, 2, false);
    const std::int32_t xyz[2][3] = {{1000, 2000, 3000}, {-5000, 250, 0}};
    const std::uint16_t rgb[2][3] = {{65535, 0, 32896}, {256, 512, 1024}};
    for (int i = 0; i < 2; ++i) {
        std::string record(36, '\0');
        for (int a = 0; a < 3; ++a) {
            put<std::int32_t>(record, 4 * a, xyz[i][a]);
            put<std::uint16_t>(record, 30 + 2 * a, rgb[i][a]);
        }
        bytes += record;
    }
    const Demo::PointCloud cloud = Demo::LasReader::read(write("v14.las", bytes));
    ASSERT_EQ(cloud.size(), 2u);
    const Ko_1_1::Vec3d<double> first = worldOf(cloud, 0);
    EXPECT_NEAR(first.x, 500001.0, 1e-4);
    EXPECT_NEAR(first.y, 4000002.0, 1e-4);
    EXPECT_NEAR(first.z, 103.0, 1e-4);
    EXPECT_NEAR(worldOf(cloud, 1).x, 499995.0, 1e-4);
    EXPECT_EQ(cloud.points()[0].r, 255);
    EXPECT_EQ(cloud.points()[0].g, 0);
    EXPECT_EQ(cloud.points()[0].b, 128);
    EXPECT_EQ(cloud.points()[1].r, 1);
    EXPECT_EQ(cloud.points()[1].b, 4);
}

TEST_F(ReaderTest, LasWithoutColourGetsHeightRamp) {
    std::string bytes = lasFile(2, 0, 20, 2, true);
    for (const std::int32_t z : {0, 10000}) {
        std::string record(20, '\0');
        put<std::int32_t>(record, 8, z);
        bytes += record;
    }
    const Demo::PointCloud cloud = Demo::LasReader::read(write("plain.las", bytes));
    ASSERT_EQ(cloud.size(), 2u);
    const auto& low = cloud.points()[0];
    const auto& high = cloud.points()[1];
    EXPECT_GT(low.b, low.r);
    EXPECT_GT(high.r, high.b);
}

TEST_F(ReaderTest, LasRejectsDamagedAndUnsupportedFiles) {
    if (!samplesPresent()) {
        GTEST_SKIP() << "sample scans not found in " << SAMPLES;
    }
    const std::string good = slurp(SAMPLES / "autzen_trim.las");
    auto read = [](const std::string& path) { Demo::LasReader::read(path); };

    expectReadError(read, write("cut.las", good.substr(0, good.size() / 2)), "truncated");
    expectReadError(read, write("short.las", good.substr(0, 100)), "truncated");
    std::string more = good;
    put<std::uint32_t>(more, 107, 110001);
    expectReadError(read, write("count.las", more), "truncated");
    std::string signature = good;
    signature[0] = 'X';
    expectReadError(read, write("signature.las", signature), "not a LAS file");
    std::string version = good;
    version[25] = 1;
    expectReadError(read, write("version.las", version), "version 1.1 is not supported");
    std::string format = good;
    format[104] = 5;
    expectReadError(read, write("format.las", format), "record format 5 is not supported");
    std::string laz = good;
    laz[104] = static_cast<char>(0x83);
    expectReadError(read, write("laz.las", laz), "compressed");
    std::string record = good;
    put<std::uint16_t>(record, 105, 30);
    expectReadError(read, write("record.las", record), "too small for record format 3");
    std::string offset = good;
    put<std::uint32_t>(offset, 96, 0x7FFFFFFF);
    expectReadError(read, write("offset.las", offset), "outside the file");
    expectReadError(read, (dir / "missing.las").string(), "cannot open");
}

TEST_F(ReaderTest, PlyReadsSampleBinaryWithExtraProperty) {
    if (!samplesPresent()) {
        GTEST_SKIP() << "sample scans not found in " << SAMPLES;
    }
    double lastProgress = -1.0;
    const Demo::PointCloud cloud = Demo::PlyReader::read((SAMPLES / "pump-scan.ply").string(),
                                                         [&](double fraction) { lastProgress = fraction; });
    ASSERT_EQ(cloud.size(), 155201u);
    expectBounds(cloud, {-2.90, -5.30, -1.90}, {1.72, -0.79, 1.84}, 0.006);
    EXPECT_DOUBLE_EQ(lastProgress, 1.0);
    // The first vertex, read by hand: float x, y, z, then red, green, blue, then a float intensity.
    const Ko_1_1::Vec3d<double> first = worldOf(cloud, 0);
    EXPECT_NEAR(first.x, 1.7022860, 1e-6);
    EXPECT_NEAR(first.y, -3.1935880, 1e-6);
    EXPECT_NEAR(first.z, -1.8418430, 1e-6);
    EXPECT_EQ(cloud.points()[0].r, 51);
    EXPECT_EQ(cloud.points()[0].g, 65);
    EXPECT_EQ(cloud.points()[0].b, 49);
}

TEST_F(ReaderTest, PlyReadsHandwrittenAsciiWithListsAndOtherElements) {
    const std::string text = "ply\r\n"
                             "format ascii 1.0\r\n"
                             "comment written by hand\r\n"
                             "element face 2\r\n"
                             "property list uchar int vertex_indices\r\n"
                             "element vertex 3\r\n"
                             "property float x\r\n"
                             "property float y\r\n"
                             "property float z\r\n"
                             "property list uchar float tags\r\n"
                             "property uchar red\r\n"
                             "property uchar green\r\n"
                             "property uchar blue\r\n"
                             "end_header\r\n"
                             "3 0 1 2\r\n"
                             "4 0 1 2 3\r\n"
                             "1.5 -2 3e1 2 0.5 0.25 255 0 10\r\n"
                             "0 0 0 0 1 2 3\r\n"
                             "-1 -1\n -1 1 7 4 5 6\n";
    const Demo::PointCloud cloud = Demo::PlyReader::read(write("hand.ply", text));
    ASSERT_EQ(cloud.size(), 3u);
    const Ko_1_1::Vec3d<double> first = worldOf(cloud, 0);
    EXPECT_NEAR(first.x, 1.5, 1e-6);
    EXPECT_NEAR(first.y, -2.0, 1e-6);
    EXPECT_NEAR(first.z, 30.0, 1e-6);
    EXPECT_EQ(cloud.points()[0].r, 255);
    EXPECT_EQ(cloud.points()[0].b, 10);
    EXPECT_EQ(cloud.points()[1].g, 2);
    EXPECT_NEAR(worldOf(cloud, 2).z, -1.0, 1e-6);
    EXPECT_EQ(cloud.points()[2].r, 4);
}

TEST_F(ReaderTest, PlyKeepsDoublePrecisionOfLargeCoordinates) {
    std::string bytes = "ply\nformat binary_little_endian 1.0\n"
                        "element vertex 2\n"
                        "property double x\nproperty double y\nproperty double z\n"
                        "property list uint short ring\n"
                        "end_header\n";
    const double coords[2][3] = {{636001.7612, 848935.2034, 406.2611}, {637179.2288, 849497.9071, 520.5123}};
    for (int i = 0; i < 2; ++i) {
        for (double c : coords[i]) {
            append<double>(bytes, c);
        }
        append<std::uint32_t>(bytes, 2);
        append<std::int16_t>(bytes, 7);
        append<std::int16_t>(bytes, 8);
    }
    const Demo::PointCloud cloud = Demo::PlyReader::read(write("double.ply", bytes));
    ASSERT_EQ(cloud.size(), 2u);
    for (int i = 0; i < 2; ++i) {
        const Ko_1_1::Vec3d<double> p = worldOf(cloud, i);
        // Float positions alone would be off by centimetres at these coordinates.
        EXPECT_NEAR(p.x, coords[i][0], 1e-3);
        EXPECT_NEAR(p.y, coords[i][1], 1e-3);
        EXPECT_NEAR(p.z, coords[i][2], 1e-3);
    }
}

TEST_F(ReaderTest, PlyRejectsDamagedAndUnsupportedFiles) {
    if (!samplesPresent()) {
        GTEST_SKIP() << "sample scans not found in " << SAMPLES;
    }
    const std::string good = slurp(SAMPLES / "pump-scan.ply");
    auto read = [](const std::string& path) { Demo::PlyReader::read(path); };
    const std::size_t body = good.find("end_header\n") + 11;

    expectReadError(read, write("cut.ply", good.substr(0, body + 1000)), "truncated");
    std::string count = good;
    count.replace(count.find("155201"), 6, "155209");
    expectReadError(read, write("count.ply", count), "truncated");
    expectReadError(read, write("noend.ply", good.substr(0, body - 11)), "end_header");
    expectReadError(read, write("garbage.ply", "plx\n" + good.substr(4)), "not a PLY file");
    std::string big = good;
    big.replace(big.find("binary_little_endian"), 20, "binary_big_endian");
    expectReadError(read, write("big.ply", big), "binary_big_endian");
    std::string keyword = good;
    keyword.replace(keyword.find("property float intensity"), 8, "propertx");
    expectReadError(read, write("keyword.ply", keyword), "unexpected keyword");
    expectReadError(read,
                    write("int.ply", "ply\nformat ascii 1.0\nelement vertex 1\nproperty int x\n"
                                     "property float y\nproperty float z\nend_header\n1 2 3\n"),
                    "float or double");
    expectReadError(read,
                    write("novertex.ply", "ply\nformat ascii 1.0\nelement point 1\nproperty float x\n"
                                          "end_header\n1\n"),
                    "no 'vertex' element");
    expectReadError(read,
                    write("text.ply", "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\n"
                                      "property float y\nproperty float z\nend_header\n1 2 3\n4 five 6\n"),
                    "'five' in vertex 1 is not a number");
    expectReadError(read,
                    write("short.ply", "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\n"
                                       "property float y\nproperty float z\nend_header\n1 2 3\n4 5\n"),
                    "truncated");
    expectReadError(read,
                    write("list.ply", "ply\nformat binary_little_endian 1.0\nelement vertex 1\n"
                                      "property float x\nproperty float y\nproperty float z\n"
                                      "property list uint int big\nend_header\n" +
                                          std::string(12, '\0') + "\xff\xff\xff\x7f"),
                    "truncated");
}
