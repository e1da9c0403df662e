#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/LogCapture.h"
#include "vr/objects/Object3dGrabber.h"

namespace {

using std::chrono::milliseconds;
using VR::AnnotationData;
using VR::MeasurementData;
using Ids = std::vector<std::string>;

// Stands in for the worker's naps: adds each nap to a virtual clock and returns at once, except that it
// holds the worker (for real) at the first nap that would start at or after the hold, until moved on.
// The worker is always stopped, also when an assertion ends the test early.
struct RunningGrabber {
    explicit RunningGrabber(Object3dGrabber::ObjectQuery query) : grabber(std::move(query)) {
        grabber.setSleep([this](milliseconds nap) {
            std::unique_lock<std::mutex> guard(mutex);
            held = elapsed >= limit;
            changed.notify_all();
            changed.wait(guard, [&] { return elapsed < limit; });
            held = false;
            naps.push_back(nap);
            elapsed += nap;
        });
    }
    ~RunningGrabber() {
        holdAt(milliseconds::max());
        grabber.stopThread();
    }
    void holdAt(milliseconds at) {
        std::lock_guard<std::mutex> guard(mutex);
        limit = at;
        held = false;
        changed.notify_all();
    }
    // True once the worker waits at the hold; false after 30 s.
    bool waitUntilHeld() {
        std::unique_lock<std::mutex> guard(mutex);
        return changed.wait_for(guard, std::chrono::seconds(30), [&] { return held; });
    }
    std::vector<milliseconds> taken() {
        std::lock_guard<std::mutex> guard(mutex);
        return naps;
    }

    std::mutex mutex;
    std::condition_variable changed;
    milliseconds elapsed{0};
    milliseconds limit = milliseconds::max();
    bool held = false;
    std::vector<milliseconds> naps;
    Object3dGrabber grabber;
};

// What one tryProcessObjects hands over: measurement ids, then annotation ids; nothing when not taken.
std::vector<Ids> poll(Object3dGrabber& grabber) {
    std::vector<Ids> got;
    auto ids = [&](const auto& objects) {
        got.emplace_back();
        for (const auto& object : objects) {
            got.back().push_back(object.uuid);
        }
    };
    grabber.tryProcessObjects(ids, ids);
    return got;
}

TEST(Object3dGrabber, DeliversOnlyTheNewestAnswerOnce) {
    struct Case {
        std::vector<Ids> answers; // measurement ids of each host answer, one answer a cycle
        Ids delivered;
    };
    const Case cases[] = {
        {{{"m1"}, {"m2", "m3"}}, {"m2", "m3"}},
        {{{"m1"}, {}}, {}}, // an empty answer still replaces the previous one
        {{Ids{}}, {}},
    };
    for (const Case& c : cases) {
        int calls = 0;
        RunningGrabber host([&](std::vector<MeasurementData>& m, std::vector<AnnotationData>& a) {
            EXPECT_TRUE(m.empty() && a.empty()) << "the host gets cleared vectors";
            for (const std::string& id : c.answers[static_cast<std::size_t>(calls) % c.answers.size()]) {
                m.push_back({{}, id});
                a.push_back({{}, "text", id});
            }
            ++calls;
        });
        // Held at the first nap after the last answer was published.
        host.holdAt(milliseconds(1000) * static_cast<int>(c.answers.size() - 1));
        EXPECT_TRUE(poll(host.grabber).empty()) << "nothing before the first answer";
        host.grabber.startThread();
        ASSERT_TRUE(host.waitUntilHeld());

        EXPECT_EQ(poll(host.grabber), (std::vector<Ids>{c.delivered, c.delivered}));
        EXPECT_TRUE(poll(host.grabber).empty()) << "an answer is delivered once";
        EXPECT_EQ(calls, static_cast<int>(c.answers.size()));
    }
}

TEST(Object3dGrabber, StopDuringTheHostQueryEndsRightAfterIt) {
    Object3dGrabber neverStarted([](std::vector<MeasurementData>&, std::vector<AnnotationData>&) {});
    neverStarted.stopThread();

    std::mutex mutex;
    std::condition_variable changed;
    bool stopping = false;
    int calls = 0;
    RunningGrabber host([&](std::vector<MeasurementData>& m, std::vector<AnnotationData>&) {
        std::unique_lock<std::mutex> guard(mutex);
        ++calls;
        changed.notify_all();
        changed.wait(guard, [&] { return stopping; });
        // Lets the stopping thread go from the flag above to setting the grabber's own; nothing is timed.
        std::this_thread::sleep_for(milliseconds(200));
        m.push_back({{}, "slow"});
    });
    host.grabber.startThread();
    {
        std::unique_lock<std::mutex> guard(mutex);
        ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(30), [&] { return calls == 1; }));
        stopping = true;
    }
    changed.notify_all();
    host.grabber.stopThread();

    EXPECT_EQ(calls, 1);
    EXPECT_LE(host.taken().size(), 1u) << "a stop is honoured within one nap of the query's end";
    EXPECT_EQ(poll(host.grabber), (std::vector<Ids>{{"slow"}, {}})) << "the slow answer is still published";
}

TEST(Object3dGrabber, KeepsAskingAFailingHostAndLogsItSparingly) {
    OrvelTest::LogCapture log;
    int calls = 0;
    RunningGrabber host([&](std::vector<MeasurementData>& m, std::vector<AnnotationData>&) {
        ++calls;
        m.push_back({{}, "partial"});
        throw std::runtime_error("host down");
    });
    host.holdAt(milliseconds(3000));
    host.grabber.startThread();
    ASSERT_TRUE(host.waitUntilHeld());
    // Asked at 0, 1000, 2000 and 3000 ms: ten 100 ms naps between two queries, failed or not.
    EXPECT_EQ(calls, 4);
    EXPECT_EQ(host.taken(), std::vector<milliseconds>(30, Object3dGrabber::NAP));
    EXPECT_TRUE(poll(host.grabber).empty()) << "a failed query publishes nothing";
    EXPECT_EQ(log.lines(), std::vector<std::wstring>{L"Exception caught: host down\n"});

    host.holdAt(milliseconds(12000));
    ASSERT_TRUE(host.waitUntilHeld());
    EXPECT_EQ(calls, 13);
    EXPECT_EQ(log.lines(), (std::vector<std::wstring>{L"Exception caught: host down\n",
                                                      L"Exception caught: host down (10 more times)\n"}));
}

} // namespace
