// The demo host's answer to the viewer's point query, on generated rooms of 1, 10 and 100 million points, at
// the resolution the viewer asks for at its highest quality, with and without footprints.

#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <memory>
#include <vector>

#include "examples/SceneGenerator.h"
#include "examples/VisibilityQuery.h"

namespace {

// Generating 10 million points takes seconds; each size is made once per process.
Demo::VisibilityQuery& roomOf(std::size_t points) {
    static std::map<std::size_t, std::unique_ptr<Demo::VisibilityQuery>> rooms;
    auto& room = rooms[points];
    if (!room) {
        room = std::make_unique<Demo::VisibilityQuery>(Demo::SceneGenerator::generateRoom(points, 1));
    }
    return *room;
}

// A user at eye height over the start position, turning on the spot: eight headings, one per query.
void queryRoom(benchmark::State& state) {
    Demo::VisibilityQuery& room = roomOf(static_cast<std::size_t>(state.range(0)));
    room.setFootprints(state.range(3) != 0);
    const unsigned short size = static_cast<unsigned short>(state.range(1));
    const float fov = static_cast<float>(state.range(2)) / 10.0f;
    const Ko_1_1::Vec3d<double> eye = room.startPosition() + Ko_1_1::Vec3d<double>{0.3, -0.2, 1.7};
    std::vector<VR::Point3dRGBA> points;
    points.reserve(static_cast<std::size_t>(size) * size);
    std::size_t heading = 0, returned = 0;
    for (auto _ : state) {
        const double angle = heading++ % 8 * (3.14159265358979323846 / 4);
        points.clear();
        room.query(fov, size, size, 0.02f, 1000.0f, eye, {0, 0, 1}, {-std::cos(angle), -std::sin(angle), 0},
                   points);
        returned += points.size();
        benchmark::DoNotOptimize(points.data());
    }
    state.counters["points/query"] = benchmark::Counter(static_cast<double>(returned) / state.iterations());
}

void buildGrid(benchmark::State& state) {
    const Demo::PointCloud cloud =
        Demo::SceneGenerator::generateRoom(static_cast<std::size_t>(state.range(0)), 1);
    for (auto _ : state) {
        Demo::VisibilityQuery query{Demo::PointCloud(cloud)};
        benchmark::DoNotOptimize(query.cellCount());
    }
}

} // namespace

// Arguments: cloud points, image size (square), field of view in tenths of a radian, footprints (1) or not.
BENCHMARK(queryRoom)
    ->Args({1000000, 1300, 12, 0})
    ->Args({1000000, 1300, 12, 1})
    ->Args({10000000, 1300, 12, 0})
    ->Args({10000000, 1300, 12, 1})
    ->Args({10000000, 1300, 20, 1})
    ->Args({10000000, 650, 12, 1})
    ->Args({100000000, 1300, 12, 0})
    ->Args({100000000, 1300, 12, 1})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(buildGrid)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond);
