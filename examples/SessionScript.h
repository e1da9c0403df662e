#pragma once

// Session scripts: a VR session played on the simulated runtime, as if a person wore the headset and held
// the controllers. A script is a text file, one statement a line:
//
//     # a comment; also after a statement
//     family wand | thumbstick          the controllers (default wand); before the first timed line
//     treadmill on                      a walking platform is connected; before the first timed line
//     TIME head|left|right pose X Y Z YAW PITCH
//     TIME left|right trigger VALUE                  0 released .. 1 fully pulled
//     TIME left|right primary press|release          touchpad click (wand), A button (thumbstick)
//     TIME left|right grip press|release
//     TIME left|right touchpad X Y [press|release]   finger on the touchpad, optionally clicking it
//     TIME left|right stick X Y                      thumbstick (or touchpad without click), -1 .. 1
//     TIME treadmill [speed S] [orientation F] [forward|backward]
//     TIME wait points                               until the scan has streamed in for the current view
//     TIME end                                       the session ends; the last line, required
//
// TIME is in seconds from the session's first frame, and never goes backwards from one line to the next.
// Poses are in the tracking space of the headset's room: metres, y up, the floor at y = 0; YAW (degrees)
// turns about the vertical, positive to the left, and 0 looks along -z, which is the viewer's starting
// heading; PITCH (degrees) is positive upwards. Between two pose lines of a device its position and angles
// move linearly; before its first pose line a device stays where the runtime put it, after its last one it
// stays there; two pose lines with the same time make a jump. Controllers point along their -z axis.
// Input lines set the state they name and keep the rest: a trigger stays pulled until a later line lets it
// go. Treadmill speeds are metres a second, orientations fractions of a full turn. `wait points` stops the
// script's clock until the host has answered two point queries (one for each eye) that the viewer asked
// after the line was reached and a few frames more have drawn them, or for at most a minute: the points
// arrive on a low-priority thread, and on a busy machine they can take many seconds, so a script waits for
// them before it aims at the scan (at the start, and after a turn or a teleport).
//
// The viewer reads the controllers once a frame, and on software GL a frame can take longer than the gap
// between a press and its release, or than the pause before the hand moves on. So a frame that takes an
// input line is shown at that line's time: the script's clock goes back to it, lines after that time wait
// for the next frame, and so does a second input line for the same hand or `end`. Every input state a
// script writes is therefore seen by at least one frame, with the poses of its time; a slow machine plays
// the script more slowly rather than skipping any of it.
//
// Made, bound and prepared on the program's thread before the session starts; once started, the runtime calls
// it on the render thread only, and it must stay where it is until stop().

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Demo {

class SessionScript {
public:
    enum class Family { Wand, Thumbstick };

    // The state a controller reports: button mask (1 << id) and five axes as x, y pairs.
    struct ControllerInput {
        std::uint64_t buttons = 0;
        std::array<float, 10> axes{};
    };

    // What one frame hands the runtime. Devices are 0 head, 1 left, 2 right; hands 0 left, 1 right.
    struct Frame {
        std::array<bool, 3> posed{};
        std::array<std::array<float, 12>, 3> pose{}; // 3 x 4 row-major, translation in the last column
        std::array<std::array<float, 3>, 3> velocity{};
        std::array<std::array<float, 3>, 3> angularVelocity{};
        std::array<bool, 2> inputChanged{};
        std::array<ControllerInput, 2> input{};
        bool treadmillChanged = false;
        float treadmillSpeed = 0.0f;
        float treadmillOrientation = 0.0f;
        float treadmillDirection = 1.0f; // above 0.5 walking forward
        bool ended = false;
    };

    // Throws ReadError, "<path>:<line>: <problem>" for a statement it cannot take, "<path>: <problem>" for a
    // file it cannot read.
    static SessionScript read(const std::string& path);
    static SessionScript parse(const std::string& text, const std::string& path);

    Family family() const { return controllers; }
    bool treadmill() const { return treadmillPresent; }
    double endTime() const { return endAt; }

    // The frame at `seconds` of a monotonic clock, the first call being the script's time 0, when the host
    // has been asked `pointQueries` times so far.
    Frame advance(double seconds, std::uint64_t pointQueries = 0);

    // Plays the script on the simulated runtime through its control functions, which `symbol` resolves by
    // name from the loaded runtime and `treadmillSymbol` from the walking-platform library (null when there
    // is none). False, naming what is missing, when a function is missing. prepare() sets up what the
    // viewer reads when it starts: call it before the session starts, then start(), whose `end` is called
    // on the render thread when the script ends and whose `pointQueries` tells how often the host has been
    // asked for points (from any thread).
    using Resolver = std::function<void*(const char* name)>;
    bool bind(const Resolver& symbol, const Resolver& treadmillSymbol, std::string& missing);
    void prepare();
    void start(std::function<void()> end, std::function<std::uint64_t()> pointQueries);
    // Removes the script from the runtime; the session must have ended.
    void stop();

private:
    struct Pose {
        float x, y, z, yaw, pitch;
    };
    struct Keyframe {
        double time;
        Pose pose;
    };
    struct Event {
        enum class Kind { Input, Treadmill, Wait, End } kind;
        double time;
        int hand; // Input only
        ControllerInput input;
        float speed, orientation, direction; // Treadmill only: the whole platform state after the line
    };

    static void onFrame(std::uint64_t frame, double seconds, void* user);
    void posesAt(double time, Frame& frame) const;

    Family controllers = Family::Wand;
    bool treadmillPresent = false;
    double endAt = 0.0;
    std::array<std::vector<Keyframe>, 3> keyframes;
    std::vector<Event> events;

    std::size_t next = 0;
    bool clockRunning = false;
    double clock = 0.0;
    double lastSeconds = 0.0;
    bool waiting = false;
    std::uint64_t queriesBeforeWait = 0;
    double waitingSince = 0.0;
    int framesSinceAnswered = 0;
    // Enough frames for the viewer to upload both eyes' answered batches (a full one takes a few frames).
    static constexpr int FRAMES_TO_DRAW_A_BATCH = 12;

    struct Api;
    std::shared_ptr<const Api> api;
    std::function<void()> onEnd;
    std::function<std::uint64_t()> queries;
};

} // namespace Demo
