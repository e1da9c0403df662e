#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "examples/ReadError.h"
#include "examples/SessionScript.h"

namespace {

using Script = Demo::SessionScript;

constexpr std::uint64_t GRIP = 1ull << 2;
constexpr std::uint64_t A_BUTTON = 1ull << 7;
constexpr std::uint64_t TOUCHPAD = 1ull << 32;

std::string failure(const std::string& text) {
    try {
        Script::parse(text, "s.txt");
    } catch (const Demo::ReadError& e) {
        return e.what();
    }
    return "(parsed)";
}

} // namespace

TEST(SessionScript, PlaysEveryStatementOfBothFamilies) {
    for (const auto& [family, primary] : {std::pair<std::string, std::uint64_t>{"wand", TOUCHPAD},
                                          std::pair<std::string, std::uint64_t>{"thumbstick", A_BUTTON}}) {
        SCOPED_TRACE(family);
        Script script = Script::parse("# header\nfamily " + family +
                                          "\ntreadmill on  # the platform\n\n"
                                          "0 right primary press\n"
                                          "0 left touchpad 0.8 -0.2 press\n"
                                          "1 right grip press\n"
                                          "1 left stick 0 1   # keeps the click\n"
                                          "1 treadmill speed 1.4 orientation 0.25 backward\n"
                                          "2 right trigger 0.5\n"
                                          "2 head pose 1 1.7 -2 90 0\n"
                                          "2 end\n",
                                      "s.txt");
        EXPECT_EQ(script.family() == Script::Family::Thumbstick, family == "thumbstick");
        EXPECT_TRUE(script.treadmill());
        EXPECT_EQ(script.endTime(), 2.0);

        Script::Frame frame = script.advance(10.0);
        EXPECT_EQ(frame.input[1].buttons, primary);
        EXPECT_EQ(frame.input[0].buttons, TOUCHPAD);
        EXPECT_EQ(frame.input[0].axes[0], 0.8f);
        EXPECT_EQ(frame.input[0].axes[1], -0.2f);
        EXPECT_FALSE(frame.treadmillChanged);

        frame = script.advance(11.0);
        EXPECT_EQ(frame.input[1].buttons, primary | GRIP);
        EXPECT_EQ(frame.input[0].buttons, TOUCHPAD);
        EXPECT_EQ(frame.input[0].axes[1], 1.0f);
        EXPECT_TRUE(frame.treadmillChanged);
        EXPECT_EQ(frame.treadmillSpeed, 1.4f);
        EXPECT_EQ(frame.treadmillOrientation, 0.25f);
        EXPECT_EQ(frame.treadmillDirection, 0.0f);
        EXPECT_FALSE(frame.posed[0]);

        // Yaw 90 turns the pointing direction (-z) to tracking -x.
        frame = script.advance(12.0);
        EXPECT_EQ(frame.input[1].axes[2], 0.5f);
        ASSERT_TRUE(frame.posed[0]);
        EXPECT_NEAR(frame.pose[0][2], 1.0f, 1e-6f);
        EXPECT_NEAR(frame.pose[0][10], 0.0f, 1e-6f);
        EXPECT_EQ(frame.pose[0][3], 1.0f);
        EXPECT_EQ(frame.pose[0][7], 1.7f);
        EXPECT_EQ(frame.pose[0][11], -2.0f);
        EXPECT_FALSE(frame.ended);
        EXPECT_TRUE(script.advance(12.1).ended);
    }
}

// A frame that takes an input line shows it at its own time, so a press and its release that one slow frame
// spans are both seen, and the hand does not move on before the release; poses in between move linearly.
TEST(SessionScript, EveryInputIsSeenByAFrameAtItsPoses) {
    Script script = Script::parse("0.5 right trigger 1\n"
                                  "0.6 right trigger 0\n"
                                  "0.6 left trigger 1\n"
                                  "1 right pose 0 1 0 0 0\n"
                                  "2 right pose 2 1 0 0 90\n"
                                  "2 end\n",
                                  "s.txt");
    struct Expected {
        double seconds;
        bool right, left;
        float rightTrigger;
        bool posed;
        float x;
        bool ended;
    };
    for (const Expected& e : std::vector<Expected>{{100.0, false, false, 0.0f, false, 0.0f, false},
                                                   {105.0, true, false, 1.0f, false, 0.0f, false},
                                                   {105.25, true, true, 0.0f, false, 0.0f, false},
                                                   {106.25, false, false, 0.0f, true, 1.2f, false},
                                                   {107.0, false, false, 0.0f, true, 2.0f, true}}) {
        SCOPED_TRACE(e.seconds);
        const Script::Frame frame = script.advance(e.seconds);
        EXPECT_EQ(frame.inputChanged[1], e.right);
        EXPECT_EQ(frame.inputChanged[0], e.left);
        if (e.right) {
            EXPECT_EQ(frame.input[1].axes[2], e.rightTrigger);
        }
        ASSERT_EQ(frame.posed[2], e.posed);
        if (e.posed) {
            EXPECT_NEAR(frame.pose[2][3], e.x, 1e-5f);
            EXPECT_NEAR(frame.velocity[2][0], e.ended ? 0.0f : 2.0f, 1e-5f);
        }
        EXPECT_EQ(frame.ended, e.ended);
    }
}

// The wait ends once two queries asked after it was reached are answered (queries are counted as they start),
// or after a minute, and the script's clock stands still meanwhile.
TEST(SessionScript, WaitsForPointsAskedAfterItsTime) {
    Script script = Script::parse("0 wait points\n0.5 right trigger 1\n1 end\n", "s.txt");
    EXPECT_FALSE(script.advance(10.0, 5).inputChanged[1]);
    EXPECT_FALSE(script.advance(20.0, 7).inputChanged[1]);
    // Answered at 8; a dozen frames draw the batches before the clock runs on again.
    for (int frame = 0; frame < 12; ++frame) {
        EXPECT_FALSE(script.advance(20.4, 8).inputChanged[1]);
    }
    EXPECT_FALSE(script.advance(20.8, 8).inputChanged[1]);
    EXPECT_TRUE(script.advance(20.9, 8).inputChanged[1]);

    Script stalled = Script::parse("1 wait points\n1 end\n", "s.txt");
    EXPECT_FALSE(stalled.advance(0.0, 1).ended);
    EXPECT_FALSE(stalled.advance(2.0, 1).ended);
    EXPECT_FALSE(stalled.advance(61.0, 1).ended);
    EXPECT_TRUE(stalled.advance(62.5, 1).ended);
}

TEST(SessionScript, RejectsWhatItCannotPlayNamingTheLine) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"0 head pose 0 1.7 0 0 0\njump\n1 end", "s.txt:2: unknown statement 'jump'"},
        {"0 head pose 0 1.7 0 0 0\nfamily wand\n1 end",
         "s.txt:2: 'family' must come before the first timed line"},
        {"# nothing\n\n0 right trigger 1", "s.txt:3: the script has no 'end' line"},
        {"0 end\n1 end", "s.txt:2: nothing may follow 'end'"},
        {"-1 end", "s.txt:1: a time cannot be negative"},
        {"2 right grip press\n1 end", "s.txt:2: time 1 is earlier than the line before"},
        {"0 nose pose 0 0 0 0 0\n1 end", "s.txt:1: unknown target 'nose'"},
        {"0 head pose 0 1.7 0 0\n1 end", "s.txt:1: expected 'TIME DEVICE pose X Y Z YAW PITCH'"},
        {"0 left pose 0 1.7 zero 0 0\n1 end", "s.txt:1: 'zero' is not a number"},
        {"0 right trigger 1.5\n1 end", "s.txt:1: '1.5' is not within 0 and 1"},
        {"0 left touchpad 0 -1.2 press\n1 end", "s.txt:1: '-1.2' is not within -1 and 1"},
        {"0 left primary hold\n1 end", "s.txt:1: expected press or release, not 'hold'"},
        {"0 treadmill speed 1\n1 end", "s.txt:1: the script has no 'treadmill on' line"},
        {"treadmill on\n0 treadmill speed\n1 end", "s.txt:2: expected speed S, orientation F, forward or"},
    };
    for (const auto& [text, message] : cases) {
        EXPECT_EQ(failure(text).rfind(message, 0), 0u) << text << "\n -> " << failure(text);
    }
    try {
        Script::read("no-such-folder/tour.txt");
        ADD_FAILURE() << "read a file that does not exist";
    } catch (const Demo::ReadError& e) {
        EXPECT_STREQ(e.what(), "no-such-folder/tour.txt: cannot be opened");
    }
}
