// The demo host's answer to the viewer's point query, on generated rooms of 1, 10 and 100 million points, at
// the resolution the viewer asks for at its highest quality: levels of detail (what the demo answers with)
// beside full detail, whose cost follows the visible cloud.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "bench/QueryBenchRooms.h"

namespace {

using Mode = Demo::VisibilityQuery::Mode;

// Arguments: cloud points, image size (square), field of view in tenths of a radian, mode.
void queryRoom(benchmark::State& state) {
    QueryBench::Room& room = QueryBench::roomOf(static_cast<std::size_t>(state.range(0)));
    const auto size = static_cast<unsigned short>(state.range(1));
    const float fov = static_cast<float>(state.range(2)) / 10.0f;
    room.query->setMode(static_cast<Mode>(state.range(3)));
    const Ko_1_1::Vec3d<double> eye = QueryBench::eyeIn(room);
    std::vector<VR::Point3dRGBA> points;
    points.reserve(static_cast<std::size_t>(size) * size);
    QueryBench::timeQueries(state, [&](std::size_t heading) {
        points.clear();
        room.query->query(fov, size, size, 0.02f, 1000.0f, eye, {0, 0, 1}, QueryBench::backAt(heading),
                          points);
        benchmark::DoNotOptimize(points.data());
        return points.size();
    });
    room.query->setMode(Mode::Levels);
    state.counters["build_s"] = room.buildSeconds;
    state.counters["bytes/point"] = room.peakBytesPerPoint;
}

// Five turns of eight headings for the levels, two for full detail. Each size's rows come together and the
// sizes in increasing order, so that each room is generated once.
const bool registered = [] {
    constexpr auto LEVELS = static_cast<std::int64_t>(Mode::Levels);
    constexpr auto FULL = static_cast<std::int64_t>(Mode::Footprints);
    struct Row {
        std::int64_t points, size, fovTenths, mode, turns;
    };
    const Row rows[] = {
        {1000000, 1300, 12, LEVELS, 5},   {1000000, 1300, 12, FULL, 2},     {10000000, 1300, 12, LEVELS, 5},
        {10000000, 1300, 20, LEVELS, 5},  {10000000, 650, 12, LEVELS, 5},   {10000000, 1300, 12, FULL, 2},
        {100000000, 1300, 12, LEVELS, 5}, {100000000, 1300, 20, LEVELS, 5}, {100000000, 650, 12, LEVELS, 5},
        {100000000, 1300, 12, FULL, 2},
    };
    for (const Row& row : rows) {
        benchmark::RegisterBenchmark("queryRoom", queryRoom)
            ->Args({row.points, row.size, row.fovTenths, row.mode})
            ->Iterations(8 * row.turns)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    }
    return true;
}();

} // namespace
