// The demo host's point query beside what a host developer would otherwise reach for, on the same generated
// rooms of 1, 10 and 100 million points in one run: the Point Cloud Library's frustum culling over a
// pcl::PointCloud<pcl::PointXYZRGB>, followed by the nearest point per pixel of what it kept (one pixel a
// point, on one thread, as such a host would write it). Same camera, image and headings for both.

#include <benchmark/benchmark.h>

#include <pcl/filters/frustum_culling.h>
#include <pcl/point_cloud.h>
#include <pcl/point_types.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <vector>

#include "bench/QueryBenchRooms.h"

namespace {

constexpr unsigned short SIZE = 1300;
constexpr float FOV = 1.2f;
constexpr float NEAR_Z = 0.02f;
constexpr float FAR_Z = 1000.0f;

// Our median per cloud size, for the ratio the frustum culling reports.
std::map<std::size_t, double>& oursMedian() {
    static std::map<std::size_t, double> medians;
    return medians;
}

void ours(benchmark::State& state) {
    const auto points = static_cast<std::size_t>(state.range(0));
    QueryBench::Room& room = QueryBench::roomOf(points);
    const Ko_1_1::Vec3d<double> eye = QueryBench::eyeIn(room);
    std::vector<VR::Point3dRGBA> answer;
    answer.reserve(static_cast<std::size_t>(SIZE) * SIZE);
    QueryBench::timeQueries(state, [&](std::size_t heading) {
        answer.clear();
        room.query->query(FOV, SIZE, SIZE, NEAR_Z, FAR_Z, eye, {0, 0, 1}, QueryBench::backAt(heading),
                          answer);
        benchmark::DoNotOptimize(answer.data());
        return answer.size();
    });
    oursMedian()[points] = state.counters["p50_ms"];
}

// The same room as a PCL cloud, built once per size beside ours.
pcl::PointCloud<pcl::PointXYZRGB>::Ptr pclCloudOf(const QueryBench::Room& room) {
    static std::size_t size = 0;
    static pcl::PointCloud<pcl::PointXYZRGB>::Ptr cloud;
    if (size != room.points) {
        cloud.reset();
        cloud.reset(new pcl::PointCloud<pcl::PointXYZRGB>);
        const Demo::PointCloud& source = room.query->cloud();
        cloud->resize(source.size());
        for (std::size_t i = 0; i < source.size(); ++i) {
            const Demo::PointCloud::Point& p = source.points()[i];
            pcl::PointXYZRGB& q = (*cloud)[i];
            q.x = static_cast<float>(source.origin().x + p.x);
            q.y = static_cast<float>(source.origin().y + p.y);
            q.z = static_cast<float>(source.origin().z + p.z);
            q.r = p.r;
            q.g = p.g;
            q.b = p.b;
        }
        size = room.points;
    }
    return cloud;
}

std::uint32_t floatBits(float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

void pclFrustumCulling(benchmark::State& state) {
    const auto points = static_cast<std::size_t>(state.range(0));
    QueryBench::Room& room = QueryBench::roomOf(points);
    const pcl::PointCloud<pcl::PointXYZRGB>::Ptr cloud = pclCloudOf(room);
    const Ko_1_1::Vec3d<double> eye = QueryBench::eyeIn(room);
    const double tanHalf = std::tan(0.5 * FOV);
    const float focal = static_cast<float>(SIZE / (2.0 * tanHalf));
    const float degrees = static_cast<float>(FOV * 180.0 / 3.14159265358979323846);

    pcl::FrustumCulling<pcl::PointXYZRGB> culling;
    culling.setInputCloud(cloud);
    culling.setHorizontalFOV(degrees);
    culling.setVerticalFOV(degrees);
    culling.setNearPlaneDistance(NEAR_Z);
    culling.setFarPlaneDistance(FAR_Z);
    std::vector<int> inside;
    std::vector<std::uint64_t> nearest;
    std::vector<VR::Point3dRGBA> answer;
    answer.reserve(static_cast<std::size_t>(SIZE) * SIZE);

    QueryBench::timeQueries(state, [&](std::size_t heading) {
        const Ko_1_1::Vec3d<double> back = QueryBench::backAt(heading);
        const Ko_1_1::Vec3d<double> up{0, 0, 1};
        const Ko_1_1::Vec3d<double> right = up.cross(back);
        // PCL's camera looks along its x axis with y up and z right.
        Eigen::Matrix4f pose = Eigen::Matrix4f::Identity();
        auto column = [](const Ko_1_1::Vec3d<double>& v) {
            return Eigen::Vector3f(static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z));
        };
        pose.block<3, 1>(0, 0) = column(-back);
        pose.block<3, 1>(0, 1) = column(up);
        pose.block<3, 1>(0, 2) = column(right);
        pose.block<3, 1>(0, 3) = column(eye);
        culling.setCameraPose(pose);
        culling.filter(inside);

        // The nearest point per pixel, in the camera's frame.
        nearest.assign(static_cast<std::size_t>(SIZE) * SIZE, std::numeric_limits<std::uint64_t>::max());
        for (const int index : inside) {
            const pcl::PointXYZRGB& p = (*cloud)[index];
            const float dx = p.x - static_cast<float>(eye.x), dy = p.y - static_cast<float>(eye.y),
                        dz = p.z - static_cast<float>(eye.z);
            const float depth = -(dx * static_cast<float>(back.x) + dy * static_cast<float>(back.y));
            const float x = dx * static_cast<float>(right.x) + dy * static_cast<float>(right.y);
            const float px = x * focal / depth + 0.5f * SIZE, py = dz * focal / depth + 0.5f * SIZE;
            if (depth > NEAR_Z && px >= 0.0f && px < SIZE && py >= 0.0f && py < SIZE) {
                std::uint64_t& pixel =
                    nearest[static_cast<std::size_t>(py) * SIZE + static_cast<std::size_t>(px)];
                pixel = std::min(pixel, static_cast<std::uint64_t>(floatBits(depth)) << 32 |
                                            static_cast<std::uint32_t>(index));
            }
        }
        answer.clear();
        for (const std::uint64_t key : nearest) {
            if (key != std::numeric_limits<std::uint64_t>::max()) {
                const pcl::PointXYZRGB& p = (*cloud)[static_cast<std::uint32_t>(key)];
                const float dx = p.x - static_cast<float>(eye.x), dy = p.y - static_cast<float>(eye.y),
                            dz = p.z - static_cast<float>(eye.z);
                answer.push_back({dx * static_cast<float>(right.x) + dy * static_cast<float>(right.y), dz,
                                  dx * static_cast<float>(back.x) + dy * static_cast<float>(back.y), p.r, p.g,
                                  p.b, 255});
            }
        }
        benchmark::DoNotOptimize(answer.data());
        return answer.size();
    });
    state.counters["kept/query"] = static_cast<double>(inside.size());
    const auto median = oursMedian().find(points);
    if (median != oursMedian().end() && median->second > 0.0) {
        state.counters["vs_ours"] = state.counters["p50_ms"] / median->second;
    }
}

} // namespace

// Ours first at each size, then PCL on the same room; sizes in increasing order so that each room is
// generated once. PCL takes seconds a query at 100 M: one turn of eight headings there.
BENCHMARK(ours)->Arg(1000000)->Iterations(40)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pclFrustumCulling)->Arg(1000000)->Iterations(16)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ours)->Arg(10000000)->Iterations(40)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pclFrustumCulling)->Arg(10000000)->Iterations(16)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(ours)->Arg(100000000)->Iterations(40)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(pclFrustumCulling)->Arg(100000000)->Iterations(8)->UseRealTime()->Unit(benchmark::kMillisecond);
