// The grabber's side of one host query: copying what the host returns into the batch, with and without
// dropping the points inside the centre cone (the periphery pass). The host here answers instantly with
// a prepared set, so only the grabber's own work is timed.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "common/Mat4d.h"
#include "common/Point3dRGB.h"
#include "common/Point3dRGBA.h"
#include "vr/points/PointGrabber.h"

namespace {

constexpr std::size_t POINT_COUNT = 500000;

// Points in front of the camera (1 to 20 units down -z), spread across a view 1.2 times as wide as it is
// deep on each side, so that about a third of them fall inside the centre cone.
const std::vector<VR::Point3dRGBA>& hostPoints() {
    static const std::vector<VR::Point3dRGBA> points = [] {
        std::mt19937 random(1);
        std::uniform_real_distribution<float> depth(1.0f, 20.0f);
        std::uniform_real_distribution<float> spread(-1.2f, 1.2f);
        std::vector<VR::Point3dRGBA> result(POINT_COUNT);
        for (std::size_t i = 0; i < POINT_COUNT; ++i) {
            const float z = depth(random);
            result[i] = {
                spread(random) * z, spread(random) * z, -z, static_cast<std::uint8_t>(i), 128, 64, 255};
        }
        return result;
    }();
    return points;
}

void searchPoints(benchmark::State& state) {
    const bool peripheryOnly = state.range(0) != 0;
    const std::vector<VR::Point3dRGBA>& prepared = hostPoints();
    VR::PointGrabber grabber([&prepared](float, unsigned short, unsigned short, float, float,
                                         Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>,
                                         std::vector<VR::Point3dRGBA>& out) {
        out.insert(out.end(), prepared.begin(), prepared.end());
    });
    Ko_1_1::Mat4d<float> camera = Ko_1_1::Mat4d<float>::identity();
    std::vector<VR::Point3dRGB> out;
    out.reserve(POINT_COUNT);
    std::size_t kept = 0;
    for (auto _ : state) {
        out.clear();
        grabber.searchPoints(camera, 1.2f, 1300, 1300, out, peripheryOnly);
        kept += out.size();
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * POINT_COUNT));
    state.counters["kept/query"] = benchmark::Counter(static_cast<double>(kept) / state.iterations());
}

} // namespace

// Argument: 1 for the periphery pass (centre cone dropped), 0 for the centre pass (everything kept).
BENCHMARK(searchPoints)->ArgName("peripheryOnly")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
