#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "text/Bitmap.h"

namespace {

std::string tempPath(const char* name) {
    return (std::string(::testing::TempDir()) + name);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

} // namespace

TEST(Bitmap, TakesOverMatchingDataAndZeroFillsOtherwise) {
    const Bitmap empty(2, 2, 1, {});
    EXPECT_EQ(empty.bytes(), std::vector<std::uint8_t>(4, 0));

    const Bitmap wrongSize(2, 3, 1, {1, 2, 3});
    EXPECT_EQ(wrongSize.bytes(), std::vector<std::uint8_t>(6, 0));

    std::vector<unsigned char> data{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    const unsigned char* storage = data.data();
    const Bitmap taken(2, 2, 3, std::move(data));
    EXPECT_EQ(taken.data(), storage) << "a matching vector is moved, not copied";
    EXPECT_EQ(taken.getWidth(), 2u);
    EXPECT_EQ(taken.getHeight(), 2u);
    EXPECT_EQ(taken.getNumberOfComponents(), 3);

    Bitmap copy = taken;
    copy.clear();
    EXPECT_EQ(copy.bytes(), std::vector<std::uint8_t>(12, 0));
    EXPECT_EQ(taken.bytes()[11], 12) << "copies do not share pixels";
}

TEST(Bitmap, SetPixelFlipsWithoutSubtractingOne) {
    Bitmap bitmap(2, 2, 1, {});
    bitmap.setPixel(1, 1, 200);
    EXPECT_EQ(bitmap.bytes(), (std::vector<std::uint8_t>{0, 0, 0, 200}));

    Bitmap tall(3, 4, 1, {});
    tall.setPixel(0, 1, 1); // last array row
    tall.setPixel(2, 3, 3); // array row 1
    tall.setPixel(1, 0, 9); // would address the row behind the array: dropped
    tall.setPixel(3, 2, 9);
    tall.setPixel(0, 4, 9);
    EXPECT_EQ(tall.bytes(), (std::vector<std::uint8_t>{0, 0, 0, 0, 0, 3, 0, 0, 0, 1, 0, 0}));

    Bitmap rgb(2, 2, 3, {});
    rgb.setPixel(1, 1, 200);
    EXPECT_EQ(rgb.bytes(), std::vector<std::uint8_t>(12, 0)) << "multi-channel bitmaps are left alone";
}

TEST(Bitmap, SavesPlainPPM) {
    const std::string path = tempPath("bitmap_gray.ppm");
    ASSERT_TRUE(Bitmap(1, 1, 1, {7}).saveToPPM(path.c_str()));
    EXPECT_EQ(readFile(path), "P3\n1 1\n255\n7 7 7 \n\n");

    ASSERT_TRUE(Bitmap(2, 1, 1, {1, 2}).saveToPPM(path.c_str()));
    EXPECT_EQ(readFile(path), "P3\n2 1\n255\n1 1 1 \n2 2 2 \n\n");

    // Four channels: the first byte of each pixel is skipped; rows are written in array order.
    const std::string rgbaPath = tempPath("bitmap_rgba.ppm");
    ASSERT_TRUE(Bitmap(1, 2, 4, {9, 1, 2, 3, 9, 4, 5, 6}).saveToPPM(rgbaPath.c_str()));
    EXPECT_EQ(readFile(rgbaPath), "P3\n1 2\n255\n1 2 3 \n\n4 5 6 \n\n");

    // Three channels take bytes 1..3, so the last value is the next pixel's first byte (0 after the last).
    ASSERT_TRUE(Bitmap(2, 1, 3, {10, 11, 12, 20, 21, 22}).saveToPPM(rgbaPath.c_str()));
    EXPECT_EQ(readFile(rgbaPath), "P3\n2 1\n255\n11 12 20 \n21 22 0 \n\n");
}

TEST(Bitmap, SaveToPPMRejectsUnsupportedChannelsAndUnopenableFiles) {
    const std::string path = tempPath("bitmap_two.ppm");
    EXPECT_FALSE(Bitmap(1, 1, 2, {}).saveToPPM(path.c_str()));
    EXPECT_EQ(readFile(path), "P3\n1 1\n255\n") << "the header stays in the file";

    EXPECT_TRUE(Bitmap(0, 0, 2, {}).saveToPPM(path.c_str()));
    EXPECT_EQ(readFile(path), "P3\n0 0\n255\n");

    EXPECT_FALSE(Bitmap(1, 1, 1, {}).saveToPPM((tempPath("no/such/folder") + "/x.ppm").c_str()));
}
