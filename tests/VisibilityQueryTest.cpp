#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <thread>
#include <vector>

#include "examples/PointIndex.h"
#include "examples/SceneGenerator.h"
#include "examples/VisibilityQuery.h"

namespace {

using Vec3 = Ko_1_1::Vec3d<double>;

// Origin far from zero, as in survey data, so that the frame arithmetic is exercised at full size.
const Vec3 ORIGIN{636000.0, 849000.0, 400.0};

// Each point's red value is its tag: its place in the list, from 1.
Demo::PointCloud cloudOf(const std::vector<Vec3>& offsets) {
    Demo::PointCloud cloud(ORIGIN);
    std::uint8_t tag = 1;
    for (const Vec3& o : offsets) {
        cloud.addWorld(ORIGIN.x + o.x, ORIGIN.y + o.y, ORIGIN.z + o.z, tag++, 0, 0);
    }
    return cloud;
}

// Camera at ORIGIN + (0, 0, 1.5) looking north (+y), z up: camera x is world x, camera y is world z.
std::vector<VR::Point3dRGBA> lookNorth(const Demo::VisibilityQuery& query, float fov, unsigned short width,
                                       unsigned short height, Vec3 up = {0, 0, 1}) {
    std::vector<VR::Point3dRGBA> out;
    query.query(fov, width, height, 0.02f, 1000.0f, ORIGIN + Vec3{0, 0, 1.5}, up, {0, -1, 0}, out);
    return out;
}

void expectTagAt(const std::vector<VR::Point3dRGBA>& points, int tag, float x, float y, float z) {
    for (const auto& p : points) {
        if (p.r == tag) {
            EXPECT_LT((Vec3{p.x, p.y, p.z} - Vec3{x, y, z}).length(), 1e-4) << "tag " << tag;
            return;
        }
    }
    ADD_FAILURE() << "no point with tag " << tag;
}

} // namespace

TEST(VisibilityQuery, ReturnsVisiblePointsInCameraFrame) {
    // Tags: 1 ahead, 2 right and up, 3 behind, 4 far off to the side, 5 beyond far, 6 closer than near,
    // 7 inside the horizontal field but above the vertical one (the image is twice as wide as high).
    Demo::VisibilityQuery query(cloudOf({{0, 5, 1.5},
                                         {2, 4, 2.5},
                                         {0, -5, 1.5},
                                         {100, 5, 1.5},
                                         {0, 1500, 1.5},
                                         {0, 0.01, 1.5},
                                         {0, 4, 1.5 + 0.6 * 4}}));
    query.setMode(Demo::VisibilityQuery::Mode::Points);
    // 90 degrees across 200 x 100 pixels: tan of the half angles 1 and 0.5.
    const std::vector<VR::Point3dRGBA> out = lookNorth(query, 1.5707964f, 200, 100);
    ASSERT_EQ(out.size(), 2u);
    expectTagAt(out, 1, 0.0f, 0.0f, -5.0f);
    expectTagAt(out, 2, 2.0f, 1.0f, -4.0f);
    EXPECT_EQ(out[0].a, 255);
}

TEST(VisibilityQuery, KeepsNearestPointPerPixelAndHonoursImageSize) {
    // Tags 1 to 3 on one line of sight, the middle one nearest; tag 4 a pixel's width to the side.
    const Demo::VisibilityQuery query(cloudOf({{0, 9, 1.5}, {0, 3, 1.5}, {0, 6, 1.5}, {0.2, 3, 1.5}}));
    std::vector<VR::Point3dRGBA> out = lookNorth(query, 1.2f, 64, 64);
    ASSERT_EQ(out.size(), 2u);
    expectTagAt(out, 2, 0.0f, 0.0f, -3.0f);
    expectTagAt(out, 4, 0.2f, 0.0f, -3.0f);

    // A one-pixel image holds one point: the nearest of all in view.
    out = lookNorth(query, 1.2f, 1, 1);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].r, 2);

    // An off-axis up vector still yields a right-handed frame: a point straight ahead lands on the axis
    // whatever the roll.
    expectTagAt(lookNorth(query, 0.5f, 32, 32, {0.3, 0.2, 1}), 2, 0.0f, 0.0f, -3.0f);
}

TEST(VisibilityQuery, MatchesBruteForceOnGeneratedRoom) {
    const Demo::PointCloud room = Demo::SceneGenerator::generateRoom(300000, 7);
    Demo::VisibilityQuery query{Demo::PointCloud(room)};
    query.setMode(Demo::VisibilityQuery::Mode::Points);
    ASSERT_GT(query.index().cells().size(), 10u);

    struct Camera {
        Vec3 position, up, back;
    };
    const Camera cameras[] = {{{0.5, -0.5, 1.6}, {0, 0, 1}, {-0.6, 0.8, 0}},
                              {{-4.0, 2.0, 2.2}, {0.2, 0.1, 1}, {-0.5, 0.3, 0.4}},
                              {{3.0, -2.0, 0.3}, {0, 0, 1}, {0.2, 0.9, -0.1}}};
    const unsigned short width = 160, height = 120;
    const double fov = 1.2, focal = width / (2.0 * std::tan(fov / 2));
    // The pixel a camera-frame point projects to, or -1 outside the image or the depth range.
    auto pixelOf = [&](double x, double y, double z) -> long {
        const double depth = -z;
        const double px = x * focal / depth + width / 2.0, py = y * focal / depth + height / 2.0;
        if (depth < 0.02 || depth > 1000.0 || px < 0 || px >= width || py < 0 || py >= height) {
            return -1;
        }
        return static_cast<long>(py) * width + static_cast<long>(px);
    };
    for (const Camera& cam : cameras) {
        std::vector<VR::Point3dRGBA> out;
        query.query(static_cast<float>(fov), width, height, 0.02f, 1000.0f, cam.position, cam.up, cam.back,
                    out);
        Vec3 b = cam.back, u = cam.up;
        b.normalize();
        u = u - b * b.dot(u);
        u.normalize();
        const Vec3 r = u.cross(b);
        std::map<long, double> expected;
        for (const auto& p : room.points()) {
            const Vec3 d = room.origin() + Vec3{p.x, p.y, p.z} - cam.position;
            const long pixel = pixelOf(d.dot(r), d.dot(u), d.dot(b));
            if (pixel >= 0 && (expected.count(pixel) == 0 || -d.dot(b) < expected[pixel])) {
                expected[pixel] = -d.dot(b);
            }
        }
        std::map<long, double> got;
        for (const auto& p : out) {
            const long pixel = pixelOf(p.x, p.y, p.z);
            ASSERT_GE(pixel, 0) << p.x << " " << p.y << " " << p.z;
            EXPECT_TRUE(got.emplace(pixel, -p.z).second) << "two points in pixel " << pixel;
        }
        // Float and double rounding may move a point across a pixel border now and then; nothing more.
        ASSERT_GT(expected.size(), 1000u);
        EXPECT_NEAR(static_cast<double>(got.size()), static_cast<double>(expected.size()),
                    expected.size() * 0.005);
        std::size_t same = 0;
        for (const auto& [pixel, depth] : got) {
            same += expected.count(pixel) != 0 && std::fabs(expected[pixel] - depth) < 1e-3;
        }
        EXPECT_GT(same, got.size() * 99 / 100);
    }
}

// A wall 4 m north, its points on a square grid; tag 2 marks a red box hidden 1 m behind it.
Demo::PointCloud wallWithBoxBehind(double spacing) {
    Demo::PointCloud cloud(ORIGIN);
    for (double x = -4; x <= 4; x += spacing) {
        for (double z = -2.5; z <= 5.5; z += spacing) {
            cloud.addWorld(ORIGIN.x + x, ORIGIN.y + 4, ORIGIN.z + z, 1, 200, 200);
        }
    }
    for (double x = -0.5; x <= 0.5; x += 0.02) {
        for (double z = 1.0; z <= 2.0; z += 0.02) {
            cloud.addWorld(ORIGIN.x + x, ORIGIN.y + 5, ORIGIN.z + z, 2, 0, 0);
        }
    }
    return cloud;
}

TEST(VisibilityQuery, FootprintsCloseSparseSurfacesAndKeepDenseOnesAsTheyAre) {
    // Sparse: 10 cm spacing seen at 4 m through 200 pixels of 1.2 rad is a point every 6 pixels.
    Demo::VisibilityQuery sparse(wallWithBoxBehind(0.1));
    EXPECT_NEAR(sparse.typicalSpacing(), 0.1, 0.03);
    const std::vector<VR::Point3dRGBA> closed = lookNorth(sparse, 1.2f, 200, 200);
    EXPECT_LE(closed.size(), 200u * 200u);
    EXPECT_GE(closed.size(), 200u * 200u * 98 / 100) << "the wall fills the view";
    for (const auto& p : closed) {
        ASSERT_NE(p.r, 2) << "the box behind the wall shows through";
        ASSERT_NEAR(p.z, -4.0f, 1e-3f) << "every answer lies on the wall";
    }

    // A stray point in front of the wall is a point, not a block of the size of its empty cell.
    Demo::PointCloud withStray = wallWithBoxBehind(0.02);
    withStray.addWorld(ORIGIN.x + 0.5, ORIGIN.y + 1.5, ORIGIN.z + 1.5, 3, 0, 0);
    std::size_t strayPixels = 0;
    for (const auto& p : lookNorth(Demo::VisibilityQuery(std::move(withStray)), 1.2f, 200, 200)) {
        strayPixels += p.r == 3 ? 1 : 0;
    }
    EXPECT_GE(strayPixels, 1u);
    EXPECT_LE(strayPixels, 25u);

    // Dense: 1 cm spacing through 64 pixels is many points a pixel, and footprints change nothing.
    Demo::VisibilityQuery dense(wallWithBoxBehind(0.01));
    dense.setMode(Demo::VisibilityQuery::Mode::Footprints);
    const std::vector<VR::Point3dRGBA> withFootprints = lookNorth(dense, 1.2f, 64, 64);
    dense.setMode(Demo::VisibilityQuery::Mode::Points);
    const std::vector<VR::Point3dRGBA> plain = lookNorth(dense, 1.2f, 64, 64);
    ASSERT_EQ(withFootprints.size(), plain.size());
    for (std::size_t i = 0; i < plain.size(); ++i) {
        ASSERT_EQ(std::memcmp(&withFootprints[i], &plain[i], sizeof(VR::Point3dRGBA)), 0) << "point " << i;
    }
}

bool sameAnswers(const std::vector<VR::Point3dRGBA>& a, const std::vector<VR::Point3dRGBA>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(VR::Point3dRGBA)) == 0;
}

TEST(VisibilityQuery, LevelsAnswerAsFullDetailWhereTheCloudIsSparserThanThePixels) {
    // 20 000 points over the room are several pixels apart at 400 x 300 pixels from anywhere in it.
    Demo::VisibilityQuery query(Demo::SceneGenerator::generateRoom(20000, 7));
    const Vec3 eye{0.5, -0.5, 1.6};
    const Vec3 backs[] = {{-0.6, 0.8, 0}, {0.7, 0.1, 0.3}, {0.2, -0.9, 0.2}};
    for (const Vec3& back : backs) {
        auto ask = [&](Demo::VisibilityQuery::Mode mode, unsigned threads) {
            query.setMode(mode);
            query.setThreads(threads);
            std::vector<VR::Point3dRGBA> out;
            query.query(1.2f, 400, 300, 0.02f, 1000.0f, eye, {0, 0, 1}, back, out);
            return out;
        };
        const std::vector<VR::Point3dRGBA> full = ask(Demo::VisibilityQuery::Mode::Footprints, 1);
        ASSERT_GT(full.size(), 20000u);
        ASSERT_LE(full.size(), 400u * 300u);
        // Split into bands of rows, on any machine, and asked from two threads at once.
        EXPECT_TRUE(sameAnswers(ask(Demo::VisibilityQuery::Mode::Levels, 3), full));
        std::vector<VR::Point3dRGBA> fromOther;
        std::thread other([&] {
            query.query(1.2f, 400, 300, 0.02f, 1000.0f, eye, {0, 0, 1}, back, fromOther);
        });
        std::vector<VR::Point3dRGBA> fromThis;
        query.query(1.2f, 400, 300, 0.02f, 1000.0f, eye, {0, 0, 1}, back, fromThis);
        other.join();
        EXPECT_TRUE(sameAnswers(fromThis, full));
        EXPECT_TRUE(sameAnswers(fromOther, full));
    }
}

TEST(VisibilityQuery, LevelsKeepDenseSurfacesClosed) {
    // 1 cm spacing seen from 4 m through 200 pixels: several points a pixel, read as coarser levels. Face on
    // and at a slant, the wall still fills every pixel that full detail fills, and hides the box.
    Demo::VisibilityQuery query(wallWithBoxBehind(0.01));
    const Vec3 backs[] = {{0, -1, 0}, {0.8, -0.6, 0}, {0, -0.5, -0.85}};
    for (const Vec3& back : backs) {
        auto ask = [&](Demo::VisibilityQuery::Mode mode) {
            query.setMode(mode);
            std::vector<VR::Point3dRGBA> out;
            query.query(1.2f, 200, 200, 0.02f, 1000.0f, ORIGIN + Vec3{0, 0, 1.5}, {0, 0, 1}, back, out);
            return out;
        };
        const std::size_t full = ask(Demo::VisibilityQuery::Mode::Footprints).size();
        const std::vector<VR::Point3dRGBA> levels = ask(Demo::VisibilityQuery::Mode::Levels);
        EXPECT_GE(levels.size(), full - full / 1000) << back.x << " " << back.z;
        EXPECT_LE(levels.size(), 200u * 200u);
        for (const auto& p : levels) {
            ASSERT_NE(p.r, 2) << "the box behind the wall shows through";
        }
    }
}

TEST(PointIndex, PrefixesSpreadOverTheirCellsInProportion) {
    Demo::PointCloud room = Demo::SceneGenerator::generateRoom(400000, 5);
    std::vector<double> fractions;
    const std::thread::id constructing = std::this_thread::get_id();
    const Demo::PointIndex index(room.points(), [&](double fraction) {
        EXPECT_EQ(std::this_thread::get_id(), constructing);
        fractions.push_back(fraction);
    });
    ASSERT_FALSE(fractions.empty());
    EXPECT_EQ(fractions.back(), 1.0);
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));

    std::uint32_t covered = 0, checked = 0;
    for (const Demo::PointIndex::Cell& cell : index.cells()) {
        ASSERT_EQ(cell.begin, covered) << "cells cover the cloud once, in order";
        covered = cell.end;
        const std::uint32_t n = cell.end - cell.begin;
        if (n < 1024) {
            continue;
        }
        ++checked;
        // Each quarter of the cell's box (split across its two widest sides; the third is the scanner's
        // noise on a surface) holds its share of every prefix.
        const float mid[3] = {0.5f * (cell.min.x + cell.max.x), 0.5f * (cell.min.y + cell.max.y),
                              0.5f * (cell.min.z + cell.max.z)};
        const float size[3] = {cell.max.x - cell.min.x, cell.max.y - cell.min.y, cell.max.z - cell.min.z};
        const int thin = static_cast<int>(std::min_element(size, size + 3) - size);
        auto octant = [&](const Demo::PointCloud::Point& p) {
            const float at[3] = {p.x, p.y, p.z};
            int quarter = 0;
            for (int axis = 0, bit = 1; axis < 3; ++axis) {
                if (axis != thin) {
                    quarter |= at[axis] > mid[axis] ? bit : 0;
                    bit <<= 1;
                }
            }
            return quarter;
        };
        double all[8] = {};
        for (std::uint32_t i = cell.begin; i < cell.end; ++i) {
            ++all[octant(room.points()[i])];
        }
        for (const std::uint32_t k : {n / 64, n / 8, n / 3}) {
            double prefix[8] = {};
            for (std::uint32_t i = cell.begin; i < cell.begin + k; ++i) {
                ++prefix[octant(room.points()[i])];
            }
            for (int o = 0; o < 4; ++o) {
                const double expected = all[o] * k / n;
                EXPECT_NEAR(prefix[o], expected, 2.0 + 0.2 * expected) << "quarter " << o << " of " << k;
            }
        }
    }
    EXPECT_EQ(covered, room.size());
    EXPECT_GT(checked, 20u);
}

TEST(VisibilityQuery, IgnoresDegenerateRequests) {
    const Demo::VisibilityQuery query(cloudOf({{0, 5, 1.5}}));
    std::vector<VR::Point3dRGBA> out;
    query.query(1.2f, 0, 100, 0.02f, 1000.0f, ORIGIN, {0, 0, 1}, {0, -1, 0}, out);
    query.query(1.2f, 100, 100, 0.02f, 1000.0f, ORIGIN, {0, 0, 1}, {0, 0, 0}, out);
    query.query(0.0f, 100, 100, 0.02f, 1000.0f, ORIGIN, {0, 0, 1}, {0, -1, 0}, out);
    const Demo::VisibilityQuery empty{Demo::PointCloud()};
    empty.query(1.2f, 100, 100, 0.02f, 1000.0f, ORIGIN, {0, 0, 1}, {0, -1, 0}, out);
    EXPECT_TRUE(out.empty());
    // An up axis along the viewing direction still gives an answer.
    EXPECT_EQ(lookNorth(query, 1.2f, 100, 100, {0, 1, 0}).size(), 1u);
}

TEST(SceneGenerator, GeneratesDeterministicFurnishedRoom) {
    const Demo::PointCloud a = Demo::SceneGenerator::generateRoom(200000, 11);
    const std::size_t bytes = a.size() * sizeof(Demo::PointCloud::Point);
    ASSERT_EQ(a.size(), 200000u);
    for (const unsigned seed : {11u, 12u}) {
        const Demo::PointCloud b = Demo::SceneGenerator::generateRoom(200000, seed);
        EXPECT_EQ(std::memcmp(a.points().data(), b.points().data(), bytes) == 0, seed == 11) << seed;
    }

    Vec3 min, max;
    a.worldBounds(min, max);
    EXPECT_NEAR((min - Vec3{-6.0, -4.0, 0.0}).length(), 0.0, 0.05);
    EXPECT_NEAR((max - Vec3{6.0, 4.0, 2.8}).length(), 0.0, 0.05);
    // Floor, ceiling and furniture heights all hold points, in more than a handful of colours.
    std::size_t floor = 0, ceiling = 0, tableTops = 0;
    std::map<int, int> colours;
    for (const auto& p : a.points()) {
        floor += p.z < 0.02f;
        ceiling += p.z > 2.78f;
        tableTops += std::fabs(p.z - 0.75f) < 0.01f;
        ++colours[(p.r >> 4) << 8 | (p.g >> 4) << 4 | (p.b >> 4)];
    }
    EXPECT_GT(floor, 20000u);
    EXPECT_GT(ceiling, 10000u);
    EXPECT_GT(tableTops, 1000u);
    EXPECT_GT(colours.size(), 30u);
}
