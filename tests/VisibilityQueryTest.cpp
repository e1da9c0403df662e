#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <vector>

#include "examples/SceneGenerator.h"
#include "examples/VisibilityQuery.h"

namespace {

using Vec3 = Ko_1_1::Vec3d<double>;

// Origin far from zero, as in survey data, so that the frame arithmetic is exercised at full size.
const Vec3 ORIGIN{636000.0, 849000.0, 400.0};

Demo::PointCloud cloudOf(const std::vector<Vec3>& offsets) {
    Demo::PointCloud cloud(ORIGIN);
    std::uint8_t tag = 1;
    for (const Vec3& o : offsets) {
        cloud.addWorld(ORIGIN.x + o.x, ORIGIN.y + o.y, ORIGIN.z + o.z, tag, 0, 0);
        ++tag;
    }
    return cloud;
}

// Camera at ORIGIN + (0, 0, 1.5) looking north (+y), z up: camera x is world x, camera y is world z.
std::vector<VR::Point3dRGBA> lookNorth(const Demo::VisibilityQuery& query, float fov, unsigned short width,
                                       unsigned short height) {
    std::vector<VR::Point3dRGBA> out;
    query.query(fov, width, height, 0.02f, 1000.0f, ORIGIN + Vec3{0, 0, 1.5}, {0, 0, 1}, {0, -1, 0}, out);
    return out;
}

const VR::Point3dRGBA* withTag(const std::vector<VR::Point3dRGBA>& points, int tag) {
    for (const auto& p : points) {
        if (p.r == tag) {
            return &p;
        }
    }
    return nullptr;
}

} // namespace

TEST(VisibilityQuery, ReturnsVisiblePointsInCameraFrame) {
    // Tags: 1 ahead, 2 right and up, 3 behind, 4 far off to the side, 5 beyond far, 6 closer than near,
    // 7 inside the horizontal field but above the vertical one (the image is twice as wide as high).
    const Demo::VisibilityQuery query(cloudOf({{0, 5, 1.5},
                                               {2, 4, 2.5},
                                               {0, -5, 1.5},
                                               {100, 5, 1.5},
                                               {0, 1500, 1.5},
                                               {0, 0.01, 1.5},
                                               {0, 4, 1.5 + 0.6 * 4}}));
    // 90 degrees across 200 x 100 pixels: tan of the half angles 1 and 0.5.
    const std::vector<VR::Point3dRGBA> out = lookNorth(query, static_cast<float>(M_PI / 2), 200, 100);
    ASSERT_EQ(out.size(), 2u);
    const VR::Point3dRGBA* ahead = withTag(out, 1);
    const VR::Point3dRGBA* side = withTag(out, 2);
    ASSERT_TRUE(ahead && side);
    EXPECT_NEAR(ahead->x, 0.0f, 1e-4f);
    EXPECT_NEAR(ahead->y, 0.0f, 1e-4f);
    EXPECT_NEAR(ahead->z, -5.0f, 1e-4f);
    EXPECT_NEAR(side->x, 2.0f, 1e-4f);
    EXPECT_NEAR(side->y, 1.0f, 1e-4f);
    EXPECT_NEAR(side->z, -4.0f, 1e-4f);
    EXPECT_EQ(ahead->a, 255);
}

TEST(VisibilityQuery, KeepsNearestPointPerPixelAndHonoursImageSize) {
    // Tags 1 to 3 on one line of sight, the middle one nearest; tag 4 a pixel's width to the side.
    const Demo::VisibilityQuery query(cloudOf({{0, 9, 1.5}, {0, 3, 1.5}, {0, 6, 1.5}, {0.2, 3, 1.5}}));
    std::vector<VR::Point3dRGBA> out = lookNorth(query, 1.2f, 64, 64);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_TRUE(withTag(out, 2) && withTag(out, 4));

    // A one-pixel image holds one point: the nearest of all in view.
    out = lookNorth(query, 1.2f, 1, 1);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0].r, 2);

    // A tilted camera and an off-axis up vector still yield a right-handed frame: a point straight
    // ahead lands on the axis whatever the roll.
    out.clear();
    const Vec3 eye = ORIGIN + Vec3{0, 0, 1.5};
    query.query(0.5f, 32, 32, 0.02f, 1000.0f, eye, {0.3, 0.2, 1}, {0, -1, 0}, out);
    const VR::Point3dRGBA* ahead = withTag(out, 2);
    ASSERT_TRUE(ahead);
    EXPECT_NEAR(ahead->x, 0.0f, 1e-4f);
    EXPECT_NEAR(ahead->y, 0.0f, 1e-4f);
    EXPECT_NEAR(ahead->z, -3.0f, 1e-4f);
}

TEST(VisibilityQuery, MatchesBruteForceOnGeneratedRoom) {
    const Demo::PointCloud room = Demo::SceneGenerator::generateRoom(300000, 7);
    const std::vector<Demo::PointCloud::Point> points = room.points();
    const Vec3 origin = room.origin();
    const Demo::VisibilityQuery query{Demo::PointCloud(room)};
    ASSERT_GT(query.cellCount(), 10u);

    struct Camera {
        Vec3 position, up, back;
    };
    const Camera cameras[] = {{{0.5, -0.5, 1.6}, {0, 0, 1}, {-0.6, 0.8, 0}},
                              {{-4.0, 2.0, 2.2}, {0.2, 0.1, 1}, {-0.5, 0.3, 0.4}},
                              {{3.0, -2.0, 0.3}, {0, 0, 1}, {0.2, 0.9, -0.1}}};
    const unsigned short width = 160, height = 120;
    const double fov = 1.2;
    for (const Camera& cam : cameras) {
        std::vector<VR::Point3dRGBA> out;
        query.query(static_cast<float>(fov), width, height, 0.02f, 1000.0f, cam.position, cam.up, cam.back,
                    out);
        ASSERT_LE(out.size(), static_cast<std::size_t>(width) * height);

        Vec3 b = cam.back, u = cam.up;
        b.normalize();
        u = u - b * b.dot(u);
        u.normalize();
        const Vec3 r = u.cross(b);
        const double focal = width / (2.0 * std::tan(fov / 2));
        auto pixelOf = [&](double x, double y, double z, long& pixel) {
            const double depth = -z;
            if (depth < 0.02 || depth > 1000.0) {
                return false;
            }
            const double px = x * focal / depth + width / 2.0;
            const double py = y * focal / depth + height / 2.0;
            if (px < 0 || px >= width || py < 0 || py >= height) {
                return false;
            }
            pixel = static_cast<long>(py) * width + static_cast<long>(px);
            return true;
        };
        std::map<long, double> expected;
        for (const auto& p : points) {
            const Vec3 d = origin + Vec3{p.x, p.y, p.z} - cam.position;
            long pixel;
            if (pixelOf(d.dot(r), d.dot(u), d.dot(b), pixel)) {
                auto it = expected.find(pixel);
                if (it == expected.end() || -d.dot(b) < it->second) {
                    expected[pixel] = -d.dot(b);
                }
            }
        }
        std::map<long, double> got;
        for (const auto& p : out) {
            long pixel;
            ASSERT_TRUE(pixelOf(p.x, p.y, p.z, pixel)) << p.x << " " << p.y << " " << p.z;
            EXPECT_TRUE(got.emplace(pixel, -p.z).second) << "two points in pixel " << pixel;
        }
        // Float and double rounding may move a point across a pixel border now and then; nothing more.
        ASSERT_GT(expected.size(), 1000u);
        EXPECT_NEAR(static_cast<double>(got.size()), static_cast<double>(expected.size()),
                    expected.size() * 0.005);
        std::size_t same = 0;
        for (const auto& [pixel, depth] : got) {
            auto it = expected.find(pixel);
            same += it != expected.end() && std::fabs(it->second - depth) < 1e-3;
        }
        EXPECT_GT(same, got.size() * 99 / 100);
    }
}

TEST(VisibilityQuery, IgnoresDegenerateRequests) {
    const Demo::VisibilityQuery query(cloudOf({{0, 5, 1.5}}));
    std::vector<VR::Point3dRGBA> out;
    query.query(1.2f, 0, 100, 0.02f, 1000.0f, ORIGIN, {0, 0, 1}, {0, -1, 0}, out);
    query.query(1.2f, 100, 100, 0.02f, 1000.0f, ORIGIN, {0, 0, 1}, {0, 0, 0}, out);
    query.query(0.0f, 100, 100, 0.02f, 1000.0f, ORIGIN, {0, 0, 1}, {0, -1, 0}, out);
    EXPECT_TRUE(out.empty());
    const Demo::VisibilityQuery empty{Demo::PointCloud()};
    empty.query(1.2f, 100, 100, 0.02f, 1000.0f, ORIGIN, {0, 0, 1}, {0, -1, 0}, out);
    EXPECT_TRUE(out.empty());
    // An up axis along the viewing direction still gives an answer.
    query.query(1.2f, 100, 100, 0.02f, 1000.0f, ORIGIN + Vec3{0, 0, 1.5}, {0, 1, 0}, {0, -1, 0}, out);
    EXPECT_EQ(out.size(), 1u);
}

TEST(VisibilityQuery, StartsOnRoomFloorOrBesideLargeScan) {
    const Demo::VisibilityQuery room(Demo::SceneGenerator::generateRoom(100000, 3));
    const Vec3 inRoom = room.startPosition();
    EXPECT_NEAR(inRoom.x, 0.0, 0.1);
    EXPECT_NEAR(inRoom.y, 0.0, 0.1);
    EXPECT_NEAR(inRoom.z, 0.0, 0.05);

    // A terrain patch 200 x 100 units at height 50 with a few stray points far below it.
    std::vector<Vec3> terrain;
    for (int i = 0; i < 200; ++i) {
        for (int j = 0; j < 100; ++j) {
            terrain.push_back({static_cast<double>(i), static_cast<double>(j), 50.0 + 0.01 * ((i * j) % 7)});
        }
    }
    terrain.push_back({10, 10, -30});
    const Demo::VisibilityQuery outdoor(cloudOf(terrain));
    const Vec3 beside = outdoor.startPosition();
    EXPECT_NEAR(beside.x, ORIGIN.x + 99.5, 0.5);
    EXPECT_LT(beside.y, ORIGIN.y);
    EXPECT_NEAR(beside.z, ORIGIN.z + 50.0, 0.5);
}

TEST(SceneGenerator, GeneratesDeterministicFurnishedRoom) {
    const Demo::PointCloud a = Demo::SceneGenerator::generateRoom(200000, 11);
    const Demo::PointCloud b = Demo::SceneGenerator::generateRoom(200000, 11);
    const Demo::PointCloud c = Demo::SceneGenerator::generateRoom(200000, 12);
    ASSERT_EQ(a.size(), 200000u);
    ASSERT_EQ(b.size(), a.size());
    EXPECT_EQ(std::memcmp(a.points().data(), b.points().data(), a.size() * sizeof(Demo::PointCloud::Point)),
              0);
    EXPECT_NE(std::memcmp(a.points().data(), c.points().data(), a.size() * sizeof(Demo::PointCloud::Point)),
              0);

    Vec3 min, max;
    a.worldBounds(min, max);
    EXPECT_NEAR(min.x, -6.0, 0.05);
    EXPECT_NEAR(max.x, 6.0, 0.05);
    EXPECT_NEAR(min.y, -4.0, 0.05);
    EXPECT_NEAR(max.y, 4.0, 0.05);
    EXPECT_NEAR(min.z, 0.0, 0.05);
    EXPECT_NEAR(max.z, 2.8, 0.05);
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
