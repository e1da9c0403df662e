// The statistics file of the demo program, run as a user runs it on the simulated runtime.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tests/support/Process.h"

namespace {

using OrvelTest::exitCodeOf;

// A spread has exactly the keys named, each a number or null (no samples).
void expectSpread(const nlohmann::json& file, const char* key, std::vector<const char*> names) {
    const nlohmann::json& spread = file.at(key);
    ASSERT_TRUE(spread.is_object()) << key;
    EXPECT_EQ(spread.size(), names.size()) << key;
    for (const char* name : names) {
        EXPECT_TRUE(spread.contains(name) && (spread[name].is_number() || spread[name].is_null()))
            << key << "." << name;
    }
}

} // namespace

TEST(DemoProgram, WritesTheSessionStatistics) {
    const std::string path = ORVEL_DEMO_OUTPUT_DIR "/stats.json";
    std::remove(path.c_str());
    ASSERT_EQ(
        exitCodeOf("\"" ORVEL_DEMO_PROGRAM "\" --runtime simulated --frames 30 --stats \"" + path + "\""), 0);
    std::ifstream in(path);
    ASSERT_TRUE(in.good());
    const nlohmann::json file = nlohmann::json::parse(in);
    EXPECT_FALSE(std::ifstream(path + ".tmp").good()) << "the temporary file is renamed away";

    EXPECT_EQ(file.at("frames").get<int>(), 30);
    EXPECT_GT(file.at("seconds").get<double>(), 0.0);
    expectSpread(file, "frame_ms", {"p50", "p95", "p99"});
    EXPECT_GT(file["frame_ms"]["p50"].get<double>(), 0.0) << "30 frames were measured";
    expectSpread(file, "render_cpu_ms", {"p50", "p95"});
    expectSpread(file, "query_ms", {"p50", "p95"});
    expectSpread(file, "points_per_batch", {"p50", "p95", "mean", "max"});
    expectSpread(file, "pose_to_points_ms", {"p50", "p95"});
    EXPECT_EQ(file.at("query_ms")["p50"].is_null(), file.at("queries").get<int>() == 0);
    EXPECT_EQ(file.at("points_per_batch")["p50"].is_null(), file.at("batches").get<int>() == 0);
    EXPECT_EQ(file.at("pose_to_points_ms")["p50"].is_null(), file.at("batches_drawn").get<int>() == 0);
    const nlohmann::json& quality = file.at("seconds_at_quality");
    ASSERT_TRUE(quality.is_array());
    ASSERT_EQ(quality.size(), 3u);
    for (const auto& seconds : quality) {
        EXPECT_GE(seconds.get<double>(), 0.0);
    }
}
