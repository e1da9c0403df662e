#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
#endif

#include "examples/MeasurementStore.h"
#include "examples/ObjectFiles.h"
#include "examples/ReadError.h"
#include "support/TempFolder.h"

namespace {

std::string contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

VR::MeasurementData measurement(const std::string& uuid, float x) {
    return {{{x, 2.35f, -0.1f}, {x + 1.0f / 3.0f, 1e-7f, 1234.5678f}}, uuid};
}

} // namespace

TEST(MeasurementStore, SavesEveryChangeAndLoadsItBackExactly) {
    OrvelTest::TempFolder folder;
    const std::string path = folder.path("scan.measurements.json");
    {
        Demo::MeasurementStore store(path);
        EXPECT_TRUE(store.measurements().empty());
        EXPECT_FALSE(store.removeLast());
        EXPECT_TRUE(contents(path).empty()) << "nothing to keep, nothing written";
        store.add(measurement("a", 0.1f));
        store.add(measurement("b", -7.25f));
        store.add(measurement("c", 3.0f));
        EXPECT_TRUE(store.removeLast());
    }
    Demo::MeasurementStore reloaded(path);
    const std::vector<VR::MeasurementData> loaded = reloaded.measurements();
    ASSERT_EQ(loaded.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        const VR::MeasurementData expected = measurement(i == 0 ? "a" : "b", i == 0 ? 0.1f : -7.25f);
        EXPECT_EQ(loaded[i].uuid, expected.uuid);
        EXPECT_EQ(loaded[i].points, expected.points) << "floats survive the decimal text bit for bit";
    }
    EXPECT_NE(contents(path).find("2.35,"), std::string::npos) << "written as the short decimal";

    // At survey coordinates the file keeps the world's: a float relative to the origin given would
    // otherwise resolve half a metre there.
    const Ko_1_1::Vec3d<double> origin{512000.0, 5000000.0, 100.0};
    reloaded.setOrigin(origin);
    EXPECT_EQ(reloaded.measurements()[0].points[0].y, static_cast<float>(2.35 - 5000000.0))
        << "read again relative to the origin";
    reloaded.removeLast();
    reloaded.removeLast();
    const VR::MeasurementData far{{{0.1f, 2.35f, -0.1f}, {-3.5f, 2.5f, 0.0f}}, "far"};
    reloaded.add(far);
    EXPECT_NE(contents(path).find("5000002.35,"), std::string::npos) << contents(path);
    EXPECT_NE(contents(path).find("512000.1,"), std::string::npos) << contents(path);
    Demo::MeasurementStore again(path);
    again.setOrigin(origin);
    EXPECT_EQ(again.measurements()[0].points, far.points);
}

TEST(MeasurementStore, ReportsDamagedFilesWithTheirPathAndNeverTouchesThem) {
    OrvelTest::TempFolder folder;
    const std::string path = folder.path("damaged.json");
    const struct {
        const char* bytes;
        const char* problem;
    } cases[] = {
        {R"({"version":1,"measurements":[{"uuid":"a","points":[[1,2,3],[4,5)", "not valid JSON"},
        {"", "not valid JSON"},
        {R"([1,2])", "top level"},
        {R"({"version":2,"measurements":[]})", "version"},
        {R"({"version":1})", "\"measurements\""},
        {R"({"version":1,"measurements":[{"uuid":7,"points":[]}]})", "measurement 1 \"uuid\""},
        {R"({"version":1,"measurements":[{"uuid":"a","points":[]},{"uuid":"b","points":[[1,2]]}]})",
         "measurement 2 has a point"},
    };
    for (const auto& c : cases) {
        write(path, c.bytes);
        try {
            Demo::MeasurementStore store(path);
            ADD_FAILURE() << "accepted: " << c.bytes;
        } catch (const Demo::ReadError& e) {
            const std::string message = e.what();
            EXPECT_EQ(message.rfind(path + ": ", 0), 0u) << message;
            EXPECT_NE(message.find(c.problem), std::string::npos) << message;
        }
        EXPECT_EQ(contents(path), c.bytes);
    }

    // The annotation sidecar follows the same rules.
    EXPECT_THROW(Demo::ObjectFiles::parseAnnotations(R"({"annotations":[{"uuid":"a","text":"t"}]})", path),
                 Demo::ReadError);
    const auto annotations = Demo::ObjectFiles::parseAnnotations(
        R"({"annotations":[{"uuid":"a","text":"配电箱","position":[1,2.5,3]}]})", path);
    ASSERT_EQ(annotations.size(), 1u);
    EXPECT_EQ(annotations[0].text, "配电箱");
    EXPECT_EQ(annotations[0].position.y, 2.5);
}

#if !defined(_WIN32)
// The process is killed for real between the flushed temporary file and the rename: the old file must be
// whole and be what the next start reads, whatever the temporary file holds.
TEST(MeasurementStore, KillBeforeTheRenameKeepsThePreviousFile) {
    OrvelTest::TempFolder folder;
    const std::string path = folder.path("killed.json");
    {
        Demo::MeasurementStore store(path);
        store.add(measurement("kept", 1.0f));
    }
    const std::string before = contents(path);

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Demo::MeasurementStore store(path);
        store.setBeforeReplace([](const std::string&) { raise(SIGKILL); });
        store.add(measurement("lost", 2.0f));
        _exit(0); // only reached when the callback was never called
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;

    EXPECT_EQ(contents(path), before);
    EXPECT_NE(contents(path + ".tmp").find("lost"), std::string::npos) << "the kill hit after the flush";
    Demo::MeasurementStore reloaded(path);
    ASSERT_EQ(reloaded.measurements().size(), 1u);
    EXPECT_EQ(reloaded.measurements()[0].uuid, "kept");

    // The next save simply replaces the stale temporary file.
    reloaded.add(measurement("next", 3.0f));
    EXPECT_EQ(Demo::MeasurementStore(path).measurements().size(), 2u);
    EXPECT_TRUE(contents(path + ".tmp").empty());
}
#endif
