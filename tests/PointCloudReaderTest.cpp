#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include "examples/LasReader.h"
#include "examples/ModelReader.h"
#include "examples/PlyReader.h"
#include "examples/ReadError.h"
#include "examples/ScanLoad.h"
#include "platform/Platform.h"
#include "tests/support/TempFolder.h"

namespace {

namespace fs = std::filesystem;
using Vec3 = Ko_1_1::Vec3d<double>;

const fs::path SAMPLES = ORVEL_SAMPLE_DATA_DIR;

// Files a test writes live in a scratch folder of its own, removed afterwards.
class ReaderTest : public ::testing::Test {
protected:
    // With ORVEL_FUZZ_SEEDS set, every file written is also kept there as a seed for the readers' fuzzers.
    std::string write(const std::string& name, const std::string& bytes) const {
        const std::string path = folder.path(name);
        std::ofstream(path, std::ios::binary) << bytes;
        if (const char* seeds = std::getenv("ORVEL_FUZZ_SEEDS")) {
            const fs::path kind = fs::path(seeds) / (fs::path(name).extension() == ".las" ? "las" : "ply");
            fs::create_directories(kind);
            std::ofstream(kind / name, std::ios::binary) << bytes;
        }
        return path;
    }

    // Each damaged copy must be refused with an error that names the file and contains the problem's words;
    // one that still holds most of its points (shown > 0) is shown instead, with a warning holding them.
    struct Damage {
        const char* name;
        std::function<std::string(std::string)> change;
        const char* words;
        std::size_t shown = 0;
    };
    template <typename Read>
    void expectRefused(Read read, const std::string& good, const std::vector<Damage>& damages) {
        for (const Damage& damage : damages) {
            const std::string path = write(damage.name, damage.change(good));
            Demo::ScanLoad load;
            try {
                const Demo::PointCloud cloud = read(path, load);
                const std::string warnings = load.warnings.empty() ? "" : load.warnings.front();
                EXPECT_EQ(cloud.size(), damage.shown)
                    << damage.name << " was read; expected '" << damage.words << "'";
                EXPECT_NE(warnings.find(damage.words), std::string::npos) << damage.name << ": " << warnings;
            } catch (const Demo::ReadError& e) {
                const std::string message = e.what();
                EXPECT_EQ(damage.shown, 0u) << message;
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
    const std::uint16_t headerSize = minor < 3 ? 227 : minor == 3 ? 235 : 375;
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

// The world position of lasRecord's point with the header lasFile writes.
const Vec3 LAS_POINT{500001.0, 4000002.0, 103.0};
std::string lasRecord(std::size_t length, std::size_t rgbOffset, const std::uint16_t (&rgb)[3],
                      int lift = 0) {
    std::string record(length, '\0');
    for (int a = 0; a < 3; ++a) {
        put<std::int32_t>(record, 4 * a, 1000 * (a + 1) + (a == 2 ? lift : 0));
        if (rgbOffset != 0) {
            put<std::uint16_t>(record, rgbOffset + 2 * a, rgb[a]);
        }
    }
    return record;
}

// A variable-length record (54-byte header) or, extended, an EVLR (60 bytes).
std::string lasVlr(std::uint16_t id, const std::string& data, bool extended = false) {
    std::string bytes(extended ? 60 : 54, '\0');
    std::memcpy(&bytes[2], "LASF_Projection", 15);
    put<std::uint16_t>(bytes, 18, id);
    // 16 bits in a VLR, 64 in an EVLR; the bytes beyond a short length are zero either way.
    put<std::uint64_t>(bytes, 20, data.size());
    return bytes + data;
}

std::string geoKeys(const std::vector<std::uint16_t>& keyAndCode) {
    std::string data;
    for (std::uint16_t word : {1, 1, 0, static_cast<int>(keyAndCode.size() / 2)}) {
        put(data, data.size(), word);
    }
    for (std::size_t i = 0; i < keyAndCode.size(); i += 2) {
        for (std::uint16_t word : {keyAndCode[i], std::uint16_t(0), std::uint16_t(1), keyAndCode[i + 1]}) {
            put(data, data.size(), word);
        }
    }
    return data;
}

// A PLY file in any encoding. A list property has a count type; its row value is the count, then the items.
struct PlyProperty {
    std::string type, name, countType;
};
struct PlyElement {
    std::string name;
    std::vector<PlyProperty> properties;
    std::vector<std::vector<double>> rows;
};
template <typename T> void putBinary(std::string& out, double value, bool bigEndian) {
    std::string bytes(sizeof(T), '\0');
    put<T>(bytes, 0, static_cast<T>(value));
    out += bigEndian ? std::string(bytes.rbegin(), bytes.rend()) : bytes;
}
void putPly(std::string& out, const std::string& type, double value, const std::string& format) {
    const bool big = format == "binary_big_endian";
    if (format == "ascii") {
        std::ostringstream text;
        text << std::setprecision(17) << value << ' ';
        out += text.str();
    } else if (type == "uchar" || type == "uint8") {
        putBinary<std::uint8_t>(out, value, big);
    } else if (type == "ushort") {
        putBinary<std::uint16_t>(out, value, big);
    } else if (type == "int") {
        putBinary<std::int32_t>(out, value, big);
    } else if (type == "float" || type == "float32") {
        putBinary<float>(out, value, big);
    } else {
        putBinary<double>(out, value, big);
    }
}
std::string plyFile(const std::string& format, const std::vector<PlyElement>& elements,
                    const std::string& comment = "") {
    std::string out = "ply\nformat " + format + " 1.0\n" + comment;
    for (const PlyElement& e : elements) {
        out += "element " + e.name + " " + std::to_string(e.rows.size()) + "\n";
        for (const PlyProperty& p : e.properties) {
            out += "property " + (p.countType.empty() ? "" : "list " + p.countType + " ") + p.type + " " +
                   p.name + "\n";
        }
    }
    out += "end_header\n";
    for (const PlyElement& e : elements) {
        for (const std::vector<double>& row : e.rows) {
            std::size_t i = 0;
            for (const PlyProperty& p : e.properties) {
                const std::size_t items = p.countType.empty() ? 1 : static_cast<std::size_t>(row[i]);
                if (!p.countType.empty()) {
                    putPly(out, p.countType, row[i++], format);
                }
                for (std::size_t n = 0; n < items; ++n) {
                    putPly(out, p.type, row[i++], format);
                }
            }
            out += format == "ascii" ? "\n" : "";
        }
    }
    return out;
}
const PlyElement FACES{"face", {{"int", "vertex_indices", "uchar"}}, {{3, 0, 1, 2}, {0}}};

} // namespace

// The LAS scan is in feet and keeps eight-bit colour in its sixteen-bit fields; the PLY scan has an extra
// property.
TEST_F(ReaderTest, ReadsTheSampleScans) {
    if (!fs::exists(SAMPLES / "autzen_trim.las") || !fs::exists(SAMPLES / "pump-scan.ply")) {
        GTEST_SKIP() << "sample scans not found in " << SAMPLES;
    }
    double lastProgress = -1.0;
    bool progressRose = true;
    Demo::ScanLoad load;
    load.progress = [&](double fraction) {
        progressRose = progressRose && fraction >= lastProgress;
        lastProgress = fraction;
    };
    const Demo::PointCloud cloud = Demo::LasReader::read((SAMPLES / "autzen_trim.las").string(), load);
    ASSERT_EQ(cloud.size(), 110000u);
    // The bounds in the sample's notes, times 0.3048.
    expectBounds(cloud, {193853.34, 258755.45, 123.83}, {194212.23, 258926.96, 158.65});
    EXPECT_EQ(load.notes,
              std::vector<std::string>(
                  {"coordinates in international feet (by the file's GeoTIFF keys), converted to metres"}));
    EXPECT_TRUE(progressRose);
    EXPECT_DOUBLE_EQ(lastProgress, 1.0);
    // Taking the high byte of these values would leave everything black.
    const auto bright = std::count_if(cloud.points().begin(), cloud.points().end(), [](const auto& p) {
        return std::max({p.r, p.g, p.b}) > 100;
    });
    EXPECT_GT(bright, 50000);

    Demo::ScanLoad pumpLoad;
    pumpLoad.progress = [&](double fraction) { lastProgress = fraction; };
    const Demo::PointCloud pump = Demo::PlyReader::read((SAMPLES / "pump-scan.ply").string(), pumpLoad);
    ASSERT_EQ(pump.size(), 155201u);
    expectBounds(pump, {-2.90, -5.30, -1.90}, {1.72, -0.79, 1.84});
    EXPECT_TRUE(pumpLoad.notes.empty());
    EXPECT_DOUBLE_EQ(lastProgress, 1.0);
    // The first vertex, read by hand: float x, y, z, then red, green, blue, then a float intensity.
    expectNear(worldOf(pump, 0), {1.7022860, -3.1935880, -1.8418430}, 1e-6);
    const auto& p = pump.points()[0];
    EXPECT_EQ(std::vector<int>({p.r, p.g, p.b}), std::vector<int>({51, 65, 49}));
}

// Every version with every record format: extra bytes after the odd formats' fields; in 1.4 the 64-bit count
// preferred over a legacy one that disagrees, or the legacy one alone; 16-bit colour in the even versions,
// 8-bit values in 16-bit fields in the odd ones; a height ramp without colour.
TEST_F(ReaderTest, LasReadsEveryVersionAndRecordFormat) {
    const std::size_t lengths[] = {20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
    const std::size_t rgbAt[] = {0, 0, 20, 28, 0, 28, 0, 30, 30, 0, 30};
    for (unsigned minor = 0; minor <= 4; ++minor) {
        for (unsigned format = 0; format <= 10; ++format) {
            SCOPED_TRACE("LAS 1." + std::to_string(minor) + " format " + std::to_string(format));
            const std::size_t length = lengths[format] + format % 2 * 3;
            std::string bytes = lasFile(minor, format, static_cast<std::uint16_t>(length), 2);
            if (minor == 4) {
                put<std::uint32_t>(bytes, 107, format % 2 ? 7 : 2);
                put<std::uint64_t>(bytes, 247, format % 2 ? 2 : 0);
            }
            const std::uint16_t high = minor % 2 ? 1 : 256;
            bytes += lasRecord(length, rgbAt[format],
                               {std::uint16_t(0x12 * high), std::uint16_t(0x34 * high), 0xFF}) +
                     lasRecord(length, rgbAt[format], {0, 0, 0}, 10000);
            const Demo::PointCloud cloud = Demo::LasReader::read(write("f.las", bytes));
            ASSERT_EQ(cloud.size(), 2u);
            expectNear(worldOf(cloud, 0), LAS_POINT, 1e-4);
            const auto& p = cloud.points();
            if (rgbAt[format] != 0) {
                EXPECT_EQ(std::vector<int>({p[0].r, p[0].g, p[0].b}),
                          std::vector<int>({0x12, 0x34, minor % 2 ? 0xFF : 0}));
            } else {
                EXPECT_GT(p[0].b, p[0].r); // low: blue
                EXPECT_GT(p[1].r, p[1].b); // high: red
            }
        }
    }
}

// Feet are shown in metres, whichever way the file declares them; the user's scale comes after.
TEST_F(ReaderTest, LasConvertsDeclaredUnitsToMetres) {
    const double FT = 0.3048, US = 1200.0 / 3937.0;
    const std::string projected =
        "PROJCS[\"NAD83 / Oregon\",GEOGCS[\"NAD83\",UNIT[\"degree\",0.0174532925199433]],"
        "PARAMETER[\"false_easting\",1312335.958,UNIT[\"foot\",0.3048]],";
    const struct {
        unsigned minor;
        std::string vlr, evlr;
        double xy, z;
        const char* note;
        double scale;
    } rows[] = {
        {0, lasVlr(34735, geoKeys({3076, 9002})), "", FT, FT,
         "coordinates in international feet (by the file's GeoTIFF keys)", 1},
        {2, lasVlr(34735, geoKeys({3076, 9003, 4099, 9001})), "", US, 1,
         "x and y in US survey feet, z in metres", 1},
        {3, lasVlr(2112, projected + "UNIT[\"US survey foot\",0.3048006096012192]]"), "", US, US,
         "coordinates in US survey feet (by the file's WKT)", 1},
        {4, "",
         lasVlr(2112,
                "COMPD_CS[\"x\"," + projected +
                    "UNIT[\"metre\",1]],VERT_CS[\"h\",UNIT[\"Foot_US\",0.3048006096]]]",
                true),
         1, US, "x and y in metres, z in US survey feet", 1},
        {1, lasVlr(34735, geoKeys({3076, 9002})), "", 2 * FT, 2 * FT, "multiplied by 2", 2},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.note);
        std::string bytes = lasFile(row.minor, 0, 20, 1) + row.vlr;
        put<std::uint32_t>(bytes, 96, static_cast<std::uint32_t>(bytes.size()));
        put<std::uint32_t>(bytes, 100, row.vlr.empty() ? 0 : 1);
        bytes += lasRecord(20, 0, {0, 0, 0});
        if (!row.evlr.empty()) {
            put<std::uint16_t>(bytes, 6, 0x10); // the WKT is the file's own description
            put<std::uint64_t>(bytes, 235, bytes.size());
            put<std::uint32_t>(bytes, 243, 1);
            bytes += row.evlr;
        }
        Demo::ScanLoad load;
        load.scale = row.scale;
        const Demo::PointCloud cloud = Demo::LasReader::read(write("u.las", bytes), load);
        expectNear(worldOf(cloud, 0), {LAS_POINT.x * row.xy, LAS_POINT.y * row.xy, LAS_POINT.z * row.z},
                   1e-4);
        const std::string notes = load.notes.empty() ? "" : load.notes.front() + "; " + load.notes.back();
        EXPECT_NE(notes.find(row.note), std::string::npos) << notes;
    }
}

// Damaged copies of a good file made here, so that the checks run wherever the tests do.
TEST_F(ReaderTest, LasRejectsDamagedAndUnsupportedFiles) {
    const std::string good = lasFile(2, 3, 34, 1000) + std::string(1000 * 34, '\1');
    const auto read = [](const std::string& path, Demo::ScanLoad& load) {
        return Demo::LasReader::read(path, load);
    };
    expectRefused(
        read, good,
        {{"cut.las", cutAt(good.size() / 2), "truncated: it holds 496 of the 1000 points"},
         {"short.las", cutAt(100), "truncated"},
         {"one.las", [](std::string b) { return putting<std::uint32_t>(107, 1)(b.substr(0, 227)); },
          "holds 0 of the 1 point its"},
         {"signature.las", putting(0, 'X'), "not a LAS file"},
         {"version.las", putting<char>(25, 5), "version 1.5 is not supported"},
         {"format.las", putting<char>(104, 11), "record format 11 is not supported"},
         {"laz.las", putting(104, static_cast<char>(0x83)), "compressed"},
         {"record.las", putting<std::uint16_t>(105, 30), "too small for record format 3"},
         {"header.las", putting<std::uint16_t>(94, 60000), "header size (60000 bytes) is beyond the end"},
         {"offset.las", putting<std::uint32_t>(96, 0x7FFFFFFF), "outside the file"},
         {"scale.las", putting<double>(131, 1e300),
          "1000 of 1000 points have coordinates that are not finite"},
         {"count.las", putting<std::uint32_t>(107, 1001), "1 of its 1001 points are missing", 1000},
         // Two megabytes of records each claiming the largest length.
         {"long.las",
          [](const std::string&) { return lasFile(2, 0, 65535, 30) + std::string(30 * 65535, '\0'); }, "",
          30},
         // Nothing can be written into a missing folder, so this file is absent.
         {"missing/x.las", text(""), "cannot open"}});
}

// Every encoding with every position and colour type, faces before the vertices in half of the files and
// after them in the others, properties the reader does not use on either side of the ones it does, and CRLF
// line ends in some of the ASCII files.
TEST_F(ReaderTest, PlyReadsEveryEncodingPositionAndColourType) {
    const struct {
        const char* type;
        double value;
        int expected;
    } colours[] = {{"", 0, 0}, {"uchar", 200, 200}, {"ushort", 0xFF00, 255}, {"float", 0.5, 128}};
    int files = 0;
    for (const char* format : {"ascii", "binary_little_endian", "binary_big_endian"}) {
        for (const char* position : {"float", "double", "float32", "float64"}) {
            const bool wide = std::strcmp(position, "double") == 0 || std::strcmp(position, "float64") == 0;
            for (const auto& colour : colours) {
                SCOPED_TRACE(std::string(format) + " " + position + " " + colour.type);
                PlyElement vertex{"vertex", {{"uchar", "flags", ""}}, {}};
                for (const char* axis : {"x", "y", "z"}) {
                    vertex.properties.push_back({position, axis, ""});
                }
                vertex.properties.push_back({"int", "ring", "uchar"});
                // Float positions alone would be off by centimetres at survey coordinates.
                const Vec3 at = wide ? Vec3{636001.7612, 848935.2034, 406.2611} : Vec3{1.5, -2.25, 3.125};
                std::vector<double> row = {7, at.x, at.y, at.z, 2, 8, 9};
                for (const char* name : {"red", "green", "blue"}) {
                    if (*colour.type) {
                        vertex.properties.push_back({colour.type, name, ""});
                        row.push_back(colour.value);
                    }
                }
                vertex.rows = {row, row};
                std::string bytes =
                    ++files % 2 ? plyFile(format, {FACES, vertex}) : plyFile(format, {vertex, FACES});
                for (std::size_t at = 0;
                     files % 4 == 1 && *format == 'a' && (at = bytes.find('\n', at)) != bytes.npos; at += 2) {
                    bytes.insert(at, "\r");
                }
                const Demo::PointCloud cloud = Demo::PlyReader::read(write("f.ply", bytes));
                ASSERT_EQ(cloud.size(), 2u);
                expectNear(worldOf(cloud, 1), at, 1e-6);
                if (*colour.type) {
                    EXPECT_EQ(cloud.points()[1].g, colour.expected);
                }
            }
        }
    }
}

// A y-up scan is turned into the demo's z-up world when its header says so, when its shape makes it plain, or
// when the user says so; the file's word beats its shape, and the user's beats both.
TEST_F(ReaderTest, PlyTurnsYUpScans) {
    using Up = Demo::ScanLoad::Up;
    // 20 m of ground at y = 0 with a 3 m post on it, and the same scene with z up.
    PlyElement ground{"vertex", {{"float", "x", ""}, {"float", "y", ""}, {"float", "z", ""}}, {}};
    for (int i = 0; i < 400; ++i) {
        ground.rows.push_back({i % 20 * 1.0, 0.0, i / 20 * 1.0});
    }
    for (int i = 0; i <= 30; ++i) {
        ground.rows.push_back({10.0, i * 0.1, 10.0});
    }
    PlyElement upright = ground;
    for (std::vector<double>& r : upright.rows) {
        r = {r[0], -r[2], r[1]};
    }
    const struct {
        const char* comment;
        const PlyElement& scan;
        Up up;
        bool turned;
    } rows[] = {{"comment up_axis Y\n", upright, Up::Detect, true},
                {"obj_info exported Y_UP\n", upright, Up::Detect, true},
                {"comment Z up\n", ground, Up::Detect, false},
                {"", ground, Up::Detect, true},
                {"", upright, Up::Detect, false},
                {"comment y is up\n", ground, Up::Z, false},
                {"", upright, Up::Y, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.comment) + (&row.scan == &ground ? "ground" : "upright"));
        Demo::ScanLoad load;
        load.up = row.up;
        const Demo::PointCloud cloud =
            Demo::PlyReader::read(write("up.ply", plyFile("ascii", {row.scan}, row.comment)), load);
        const std::vector<double>& r = row.scan.rows.back();
        expectNear(worldOf(cloud, cloud.size() - 1),
                   row.turned ? Vec3{r[0], -r[2], r[1]} : Vec3{r[0], r[1], r[2]}, 1e-5);
        EXPECT_EQ(load.notes.size(), row.turned ? 1u : 0u);
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
    const std::string three = "ply\nformat ascii 1.0\nelement vertex 3\n" + xyz + "end_header\n";
    // The second face's list length is on line 11.
    auto faces = [&](const std::string& count, const std::string& length) {
        return text("ply\nformat ascii 1.0\nelement face " + count +
                    "\nproperty list uchar int vertex_indices\nelement vertex 2\n" + xyz +
                    "end_header\n3 0 1 2\n" + length + " 0\n1 2 3\n4 5 6\n");
    };
    expectRefused(
        [](const std::string& path, Demo::ScanLoad& load) { return Demo::PlyReader::read(path, load); }, good,
        {{"cut.ply", cutAt(body + 1000), "truncated: it holds 52 of the 2000 vertices"},
         {"noend.ply", cutAt(body - 11), "end_header"},
         {"garbage.ply", replacing("ply\n", "plx\n"), "not a PLY file"},
         {"keyword.ply", replacing("property float intensity", "propertx"), "unexpected keyword"},
         {"int.ply",
          text(ascii + "property int x\nproperty float y\nproperty float z\nend_header\n1 2 3\n4 5 6\n"),
          "float or double"},
         {"novertex.ply", text("ply\nformat ascii 1.0\nelement point 1\nproperty float x\nend_header\n1\n"),
          "no 'vertex' element"},
         {"text.ply", text(ascii + xyz + "end_header\n1 2 3\n4 five 6\n"),
          "line 9: 'five' in vertex 1 is not a number"},
         {"short.ply", text(three + "1 2 3\n4 5\n"), "truncated"},
         {"list.ply",
          text("ply\nformat binary_little_endian 1.0\nelement vertex 1\n" + xyz +
               "property list uint int big\nend_header\n" + std::string(12, '\0') + "\xff\xff\xff\x7f"),
          "truncated"},
         {"huge.ply", faces("2", "1e300"),
          "line 11: list length '1e300' in face 1 is more than the rest of the file"},
         {"inf.ply", faces("2", "inf"), "line 11: list length 'inf' in face 1 is not a count"},
         {"minus.ply", faces("2", "-1"), "line 11: list length '-1' in face 1 is not a count"},
         {"nan.ply", faces("2", "nan"), "line 11: list length 'nan' in face 1 is not a count"},
         {"faces.ply", faces("2000", "3"), "declares 2000 'face' elements before the vertices"},
         {"far.ply", text(three + "3e38 0 0\n-3e38 0 0\n1 1 1\n"), "2 of 3 points have coordinates"},
         {"count.ply", replacing("vertex 2000", "vertex 2009"), "9 of its 2009 vertices are missing", 2000},
         {"half.ply", cutAt(body + 19 * 1500 + 5), "500 of its 2000 vertices are missing", 1500},
         {"halfascii.ply", text(ascii + xyz + "end_header\n1 2 3\n4 5\n"), "1 of its 2 vertices are missing",
          1},
         {"stray.ply", text(three + "1 2 3\ninf 0 0\n4 5 6\n"), "1 point left out", 2},
         // Elements without properties take no room, however many there are.
         {"empty.ply",
          text("ply\nformat ascii 1.0\nelement junk 1000000000000000000\nelement vertex 2\n" + xyz +
               "end_header\n1 2 3\n4 5 6\n"),
          "", 2}});
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
