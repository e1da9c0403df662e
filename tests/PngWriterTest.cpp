#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include <png.h>

#include "examples/PngWriter.h"

TEST(PngWriter, WritesOpaqueTopDownFileAndNamesFileOnFailure) {
    // Three pixels wide, two rows; the first row in memory is the picture's bottom row. The alpha values, as
    // a rendered background leaves them, must not make the file see-through.
    const std::vector<unsigned char> rgba = {255, 0,  0,  0,  0,  255, 0,  128, 0,  0,   255, 255,  // bottom
                                             10,  20, 30, 40, 50, 60,  70, 80,  90, 100, 110, 120}; // top
    const std::filesystem::path path = std::filesystem::temp_directory_path() / "orvel_pngwriter_test.png";
    Demo::PngWriter::write(path.string(), rgba.data(), 3, 2);

    png_image image;
    std::memset(&image, 0, sizeof(image));
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&image, path.string().c_str())) << image.message;
    EXPECT_EQ(image.width, 3u);
    EXPECT_EQ(image.height, 2u);
    image.format = PNG_FORMAT_RGBA;
    std::vector<unsigned char> read(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, read.data(), 0, nullptr)) << image.message;
    const std::vector<unsigned char> topDown = {10,  20, 30, 255, 50, 60,  70, 255, 90, 100, 110, 255,
                                                255, 0,  0,  255, 0,  255, 0,  255, 0,  0,   255, 255};
    EXPECT_EQ(read, topDown);
    std::filesystem::remove(path);

    try {
        Demo::PngWriter::write("/nonexistent-folder/x.png", rgba.data(), 3, 2);
        ADD_FAILURE() << "writing into a missing folder succeeded";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("/nonexistent-folder/x.png"), std::string::npos) << e.what();
    }
}
