#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/TempFolder.h"
#include "text/Bitmap.h"

TEST(Bitmap, SetPixelFlipsWithoutSubtractingOne) {
    Bitmap tall(3, 4, 1, {});
    tall.setPixel(0, 1, 1); // last array row
    tall.setPixel(2, 3, 3); // array row 1
    tall.setPixel(1, 0, 9); // would address the row behind the array: dropped
    tall.setPixel(3, 2, 9);
    tall.setPixel(0, 4, 9);
    EXPECT_EQ(tall.bytes(), (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0}));
}

TEST(Bitmap, SavesPlainPPM) {
    const OrvelTest::TempFolder folder;
    const struct {
        Bitmap bitmap;
        bool saved;
        const char* text;
    } cases[] = {
        {Bitmap(2, 1, 1, {1, 2}), true, "P3\n2 1\n255\n1 1 1 \n2 2 2 \n\n"},
        // Four channels: the first byte of each pixel is skipped; rows are written in array order.
        {Bitmap(1, 2, 4, {9, 1, 2, 3, 9, 4, 5, 6}), true, "P3\n1 2\n255\n1 2 3 \n\n4 5 6 \n\n"},
        // Three channels take bytes 1..3, so the last value is the next pixel's first byte (0 after the
        // last).
        {Bitmap(2, 1, 3, {10, 11, 12, 20, 21, 22}), true, "P3\n2 1\n255\n11 12 20 \n21 22 0 \n\n"},
        // Two channels are refused after the header is written.
        {Bitmap(1, 1, 2, {}), false, "P3\n1 1\n255\n"},
    };
    int index = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const std::string path = folder.path("bitmap" + std::to_string(index++) + ".ppm");
        EXPECT_EQ(c.bitmap.saveToPPM(path.c_str()), c.saved);
        std::ifstream in(path, std::ios::binary);
        EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), c.text);
    }
    EXPECT_FALSE(Bitmap(1, 1, 1, {}).saveToPPM(folder.path("no/such/folder/x.ppm").c_str()));
}
