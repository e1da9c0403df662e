#pragma once

// What the point-query benchmarks share: the generated rooms with what building their index took, the user's
// eight headings, and per-query times kept to report their median and 95th percentile.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "examples/SceneGenerator.h"
#include "examples/StartView.h"
#include "examples/VisibilityQuery.h"

namespace QueryBench {

struct Room {
    std::size_t points = 0;
    std::unique_ptr<Demo::VisibilityQuery> query;
    double buildSeconds = 0.0; // the index alone
    // Peak resident memory added from generating the room through building its index.
    double peakBytesPerPoint = 0.0;
};

// A line of /proc/self/status in bytes ("VmRSS", "VmHWM"); 0 where there is none.
inline double statusBytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field + ":", 0) == 0) {
            return std::stod(line.substr(field.size() + 1)) * 1024.0;
        }
    }
    return 0.0;
}

// The room of that many points (seed 1). Only one is kept at a time: the 100 M one takes about 2 GB, and its
// peak is measured with nothing else around.
inline Room& roomOf(std::size_t points) {
    static Room room;
    if (room.points != points) {
        room = Room{};
        // Starts the peak afresh (Linux 4.0 on); elsewhere it keeps an earlier, smaller room's peak.
        std::ofstream("/proc/self/clear_refs") << "5";
        const double before = statusBytes("VmRSS");
        Demo::PointCloud cloud = Demo::SceneGenerator::generateRoom(points, 1);
        const auto start = std::chrono::steady_clock::now();
        room.query = std::make_unique<Demo::VisibilityQuery>(std::move(cloud));
        room.buildSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        room.peakBytesPerPoint = (statusBytes("VmHWM") - before) / static_cast<double>(points);
        room.points = points;
    }
    return room;
}

// Where the user stands in the room: at eye height near its centre.
inline Ko_1_1::Vec3d<double> eyeIn(const Room& room) {
    return Demo::StartView(room.query->cloud()).position() + Ko_1_1::Vec3d<double>{0.3, -0.2, 1.7};
}

// The back axis of the camera at one of eight headings, turning on the spot.
inline Ko_1_1::Vec3d<double> backAt(std::size_t heading) {
    const double angle = static_cast<double>(heading % 8) * (3.14159265358979323846 / 4);
    return {-std::cos(angle), -std::sin(angle), 0.0};
}

// Runs query(heading) once an iteration, heading after heading, after one untimed query; it returns how
// many points it answered. Reports the median and 95th percentile of the queries' wall-clock times and the
// points per query.
template <typename Query> void timeQueries(benchmark::State& state, const Query& query) {
    // Untimed: the first query of a thread makes its scratch memory, which a viewer's grabber does once.
    query(std::size_t{7});
    std::vector<double> ms;
    std::size_t heading = 0;
    double returned = 0.0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        returned += static_cast<double>(query(heading++));
        ms.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(ms.begin(), ms.end());
    auto percentile = [&](double p) {
        return ms[std::min(ms.size() - 1, static_cast<std::size_t>(p * ms.size()))];
    };
    state.counters["p50_ms"] = percentile(0.5);
    state.counters["p95_ms"] = percentile(0.95);
    state.counters["points/query"] = returned / static_cast<double>(ms.size());
}

} // namespace QueryBench
