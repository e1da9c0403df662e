#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <png.h>

#include "examples/MeasurementStore.h"

#include "tests/support/Process.h"

namespace {

using OrvelTest::exitCodeOf;

// The picture must be opaque and show the generated room: the cleared background is the grey of 0.5, the
// room's points cover much of the rest, in many colours.
void expectRoomPicture(const std::string& png) {
    png_image image;
    std::memset(&image, 0, sizeof(image));
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, png.c_str())) << image.message;
    EXPECT_EQ(image.format & PNG_FORMAT_FLAG_ALPHA, 0u);
    image.format = PNG_FORMAT_RGBA;
    std::vector<unsigned char> rgba(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, rgba.data(), 0, nullptr)) << image.message;

    std::map<std::uint32_t, std::size_t> colours;
    std::size_t background = 0;
    for (std::size_t i = 0; i < rgba.size(); i += 4) {
        ++colours[static_cast<std::uint32_t>(rgba[i] << 16 | rgba[i + 1] << 8 | rgba[i + 2])];
        background +=
            (rgba[i] == 127 || rgba[i] == 128) && rgba[i + 1] == rgba[i] && rgba[i + 2] == rgba[i] ? 1 : 0;
    }
    const std::size_t pixels = rgba.size() / 4;
    EXPECT_GT(pixels - background, pixels / 10);
    EXPECT_GT(colours.size(), 100u);
}

} // namespace

// The demo run as a user runs it, on the simulated runtime, under the test's display.
TEST(DemoProgram, RunsOnSimulatedRuntimeAndWritesOpaqueMirrorPicture) {
    const std::string png = ORVEL_DEMO_OUTPUT_DIR "/mirror.png";
    std::remove(png.c_str());
    ASSERT_EQ(exitCodeOf("\"" ORVEL_DEMO_PROGRAM "\" --runtime simulated --frames 200 --screenshot \"" + png +
                         "\""),
              0);
    expectRoomPicture(png);
}

// Each shipped session script plays to its end, which ends the session, and leaves its measurements in the
// file: only the measuring script places points, tablet clicks with the trigger place none.
struct ShippedScript {
    const char* name;
    std::size_t measurements;
};

void PrintTo(const ShippedScript& script, std::ostream* out) {
    *out << script.name;
}

class DemoScript : public testing::TestWithParam<ShippedScript> {};

TEST_P(DemoScript, PlaysToItsEnd) {
    const std::string name = GetParam().name;
    const std::string png = ORVEL_DEMO_OUTPUT_DIR "/script-" + name + ".png";
    const std::string measurements = ORVEL_DEMO_OUTPUT_DIR "/script-" + name + ".measurements.json";
    std::remove(png.c_str());
    std::remove(measurements.c_str());
    ASSERT_EQ(
        exitCodeOf("\"" ORVEL_DEMO_PROGRAM "\" --runtime simulated --script \"" ORVEL_DEMO_SCRIPTS_DIR "/" +
                   name + ".txt\" --measurements \"" + measurements + "\" --screenshot \"" + png + "\""),
        0);
    expectRoomPicture(png);
    EXPECT_EQ(Demo::MeasurementStore(measurements).measurements().size(), GetParam().measurements);
}

INSTANTIATE_TEST_SUITE_P(Shipped, DemoScript,
                         testing::Values(ShippedScript{"tour", 0}, ShippedScript{"measure", 2},
                                         ShippedScript{"tablet", 0}, ShippedScript{"treadmill", 0}),
                         [](const testing::TestParamInfo<ShippedScript>& info) { return info.param.name; });

// A damaged measurements file stops the program before any VR work, with a message naming the file, and
// the file is left exactly as it was.
TEST(DemoProgram, RefusesToStartOnDamagedMeasurementsFile) {
    const std::string damaged = ORVEL_DEMO_OUTPUT_DIR "/damaged.measurements.json";
    const std::string bytes = R"({"version":1,"measurements":[{"uuid":"a","points":[[1,2)";
    std::FILE* file = std::fopen(damaged.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
    const std::string log = ORVEL_DEMO_OUTPUT_DIR "/damaged.log";

    EXPECT_EQ(exitCodeOf("\"" ORVEL_DEMO_PROGRAM "\" --runtime simulated --frames 1 --measurements \"" +
                         damaged + "\" 2>\"" + log + "\""),
              1);

    std::string message(4096, '\0');
    file = std::fopen(log.c_str(), "rb");
    ASSERT_NE(file, nullptr);
    message.resize(std::fread(&message[0], 1, message.size(), file));
    std::fclose(file);
    EXPECT_NE(message.find(damaged + ": not valid JSON"), std::string::npos) << message;

    std::string after(bytes.size() + 16, '\0');
    file = std::fopen(damaged.c_str(), "rb");
    ASSERT_NE(file, nullptr);
    after.resize(std::fread(&after[0], 1, after.size(), file));
    std::fclose(file);
    EXPECT_EQ(after, bytes);
}
