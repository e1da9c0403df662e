#include "examples/SessionScript.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>
#include <type_traits>

#include "examples/ObjectFiles.h"
#include "examples/ReadError.h"
#include "simvr/SimVR.h"
#include "simvr/cyb/SimCyb.h"

namespace Demo {
namespace {

constexpr std::uint64_t GRIP = 1ull << 2;
constexpr std::uint64_t A_BUTTON = 1ull << 7;
constexpr std::uint64_t TOUCHPAD = 1ull << 32;
constexpr double RADIANS_PER_DEGREE = 3.14159265358979323846 / 180.0;
// The viewer tells the thumbstick controllers by the headset's model number.
constexpr const char* THUMBSTICK_HEADSET_MODEL = "Oculus Rift S";
// A stream that has not come in after this long is not waited for any more.
constexpr double LONGEST_WAIT_SECONDS = 60.0;

bool toNumber(const std::string& word, double& value) {
    const char* end = word.data() + word.size();
    const auto result = std::from_chars(word.data(), end, value);
    return result.ec == std::errc() && result.ptr == end && std::isfinite(value);
}

// One line of a script, split into words, with the checks its statements need; every failure names the line.
class Statement {
public:
    Statement(const std::string& path, int line, const std::string& text)
        : where(path + ":" + std::to_string(line)) {
        std::istringstream in(text.substr(0, text.find('#')));
        for (std::string word; in >> word;) {
            words.push_back(word);
        }
    }

    [[noreturn]] void fail(const std::string& problem) const { throw ReadError(where, problem); }

    std::size_t size() const { return words.size(); }
    const std::string& word(std::size_t i) const { return words[i]; }
    void expect(std::size_t count, const char* usage) const {
        if (words.size() != count) {
            fail(std::string("expected '") + usage + "'");
        }
    }
    double number(std::size_t i) const {
        double value = 0.0;
        if (!toNumber(words[i], value)) {
            fail("'" + words[i] + "' is not a number");
        }
        return value;
    }
    float within(std::size_t i, double lowest, double highest) const {
        const double value = number(i);
        if (value < lowest || value > highest) {
            std::ostringstream problem;
            problem << "'" << words[i] << "' is not within " << lowest << " and " << highest;
            fail(problem.str());
        }
        return static_cast<float>(value);
    }
    bool pressed(std::size_t i) const {
        if (words[i] != "press" && words[i] != "release") {
            fail("expected press or release, not '" + words[i] + "'");
        }
        return words[i] == "press";
    }

private:
    std::string where;
    std::vector<std::string> words;
};

void setBit(std::uint64_t& buttons, std::uint64_t bit, bool on) {
    buttons = on ? buttons | bit : buttons & ~bit;
}

// A hand's input line changes the state it names and keeps the rest.
void readInput(const Statement& s, std::uint64_t primaryButton, SessionScript::ControllerInput& input) {
    const std::string& command = s.word(2);
    if (command == "trigger") {
        s.expect(4, "TIME HAND trigger VALUE");
        input.axes[2] = s.within(3, 0.0, 1.0);
    } else if (command == "primary" || command == "grip") {
        s.expect(4, "TIME HAND primary|grip press|release");
        setBit(input.buttons, command == "grip" ? GRIP : primaryButton, s.pressed(3));
    } else if (command == "touchpad" || command == "stick") {
        if (s.size() != 5 && !(command == "touchpad" && s.size() == 6)) {
            s.fail(command == "stick" ? "expected 'TIME HAND stick X Y'"
                                      : "expected 'TIME HAND touchpad X Y [press|release]'");
        }
        input.axes[0] = s.within(3, -1.0, 1.0);
        input.axes[1] = s.within(4, -1.0, 1.0);
        if (s.size() == 6) {
            setBit(input.buttons, TOUCHPAD, s.pressed(5));
        }
    } else {
        s.fail("unknown command '" + command + "' (pose, trigger, primary, grip, touchpad or stick)");
    }
}

} // namespace

struct SessionScript::Api {
    decltype(&simvr_setPaced) setPaced = nullptr;
    decltype(&simvr_setPoseScript) setPoseScript = nullptr;
    decltype(&simvr_setDevicePose) setDevicePose = nullptr;
    decltype(&simvr_setDeviceVelocity) setDeviceVelocity = nullptr;
    decltype(&simvr_setControllerState) setControllerState = nullptr;
    decltype(&simvr_setHmdProperties) setHmdProperties = nullptr;
    decltype(&simcyb_reset) treadmillReset = nullptr;
    decltype(&simcyb_setDevicePresent) treadmillSetPresent = nullptr;
    decltype(&simcyb_setSpeed) treadmillSetSpeed = nullptr;
    decltype(&simcyb_setOrientation) treadmillSetOrientation = nullptr;
    decltype(&simcyb_setMovementDirection) treadmillSetDirection = nullptr;
};

SessionScript SessionScript::read(const std::string& path) {
    return parse(ObjectFiles::readFile(path), path);
}

SessionScript SessionScript::parse(const std::string& text, const std::string& path) {
    SessionScript script;
    std::array<ControllerInput, 2> hands;
    Event platform{Event::Kind::Treadmill, 0.0, 0, {}, 0.0f, 0.0f, 1.0f};
    bool timed = false;
    bool ended = false;
    double previous = 0.0;
    int line = 0;
    std::istringstream lines(text);
    for (std::string raw; std::getline(lines, raw);) {
        const Statement s(path, ++line, raw);
        if (s.size() == 0) {
            continue;
        }
        if (ended) {
            s.fail("nothing may follow 'end'");
        }
        double time = 0.0;
        if (!toNumber(s.word(0), time)) {
            if (s.word(0) != "family" && s.word(0) != "treadmill") {
                s.fail("unknown statement '" + s.word(0) + "'");
            }
            if (timed) {
                s.fail("'" + s.word(0) + "' must come before the first timed line");
            }
            if (s.word(0) == "family") {
                s.expect(2, "family wand|thumbstick");
                if (s.word(1) != "wand" && s.word(1) != "thumbstick") {
                    s.fail("unknown controller family '" + s.word(1) + "' (wand or thumbstick)");
                }
                script.controllers = s.word(1) == "wand" ? Family::Wand : Family::Thumbstick;
            } else {
                s.expect(2, "treadmill on");
                if (s.word(1) != "on") {
                    s.fail("expected 'treadmill on'");
                }
                script.treadmillPresent = true;
            }
            continue;
        }
        if (time < 0.0) {
            s.fail("a time cannot be negative");
        }
        if (time < previous) {
            s.fail("time " + s.word(0) + " is earlier than the line before");
        }
        previous = time;
        timed = true;
        if (s.size() < 2) {
            s.fail("expected a target after the time: head, left, right, treadmill, wait or end");
        }
        const std::string& target = s.word(1);
        if (target == "end") {
            s.expect(2, "TIME end");
            script.events.push_back({Event::Kind::End, time, 0, {}, 0.0f, 0.0f, 0.0f});
            script.endAt = time;
            ended = true;
            continue;
        }
        if (target == "wait") {
            s.expect(3, "TIME wait points");
            if (s.word(2) != "points") {
                s.fail("expected 'TIME wait points'");
            }
            script.events.push_back({Event::Kind::Wait, time, 0, {}, 0.0f, 0.0f, 0.0f});
            continue;
        }
        if (target == "treadmill") {
            if (!script.treadmillPresent) {
                s.fail("the script has no 'treadmill on' line");
            }
            if (s.size() < 3) {
                s.fail("expected speed S, orientation F, forward or backward");
            }
            for (std::size_t i = 2; i < s.size(); ++i) {
                if ((s.word(i) == "speed" || s.word(i) == "orientation") && i + 1 < s.size()) {
                    (s.word(i) == "speed" ? platform.speed : platform.orientation) =
                        static_cast<float>(s.number(i + 1));
                    ++i;
                } else if (s.word(i) == "forward" || s.word(i) == "backward") {
                    platform.direction = s.word(i) == "forward" ? 1.0f : 0.0f;
                } else {
                    s.fail("expected speed S, orientation F, forward or backward, not '" + s.word(i) + "'");
                }
            }
            platform.time = time;
            script.events.push_back(platform);
            continue;
        }
        const int device = target == "head" ? 0 : target == "left" ? 1 : target == "right" ? 2 : -1;
        if (device < 0) {
            s.fail("unknown target '" + target + "' (head, left, right, treadmill, wait or end)");
        }
        const std::string command = s.size() > 2 ? s.word(2) : std::string();
        if (command == "pose") {
            s.expect(8, "TIME DEVICE pose X Y Z YAW PITCH");
            const Pose pose{static_cast<float>(s.number(3)), static_cast<float>(s.number(4)),
                            static_cast<float>(s.number(5)), static_cast<float>(s.number(6)),
                            static_cast<float>(s.number(7))};
            script.keyframes[static_cast<std::size_t>(device)].push_back({time, pose});
            continue;
        }
        if (device == 0) {
            s.fail("the head takes only 'pose'");
        }
        if (command.empty()) {
            s.fail("expected a command after '" + target + "'");
        }
        ControllerInput& input = hands[static_cast<std::size_t>(device - 1)];
        readInput(s, script.controllers == Family::Wand ? TOUCHPAD : A_BUTTON, input);
        script.events.push_back({Event::Kind::Input, time, device - 1, input, 0.0f, 0.0f, 0.0f});
    }
    if (!ended) {
        throw ReadError(path + ":" + std::to_string(std::max(line, 1)), "the script has no 'end' line");
    }
    return script;
}

SessionScript::Frame SessionScript::advance(double seconds, std::uint64_t pointQueries) {
    if (!clockRunning) {
        clockRunning = true;
        lastSeconds = seconds;
    }
    clock += std::max(0.0, seconds - lastSeconds);
    lastSeconds = seconds;

    Frame frame;
    while (next < events.size() && events[next].time <= clock) {
        const Event& event = events[next];
        const std::size_t hand = static_cast<std::size_t>(event.hand);
        if (event.kind == Event::Kind::Input) {
            if (frame.inputChanged[hand]) {
                break;
            }
            frame.inputChanged[hand] = true;
            frame.input[hand] = event.input;
            // The frame shows the input at the poses of its own time, and whatever comes later waits.
            clock = event.time;
        } else if (event.kind == Event::Kind::Treadmill) {
            frame.treadmillChanged = true;
            frame.treadmillSpeed = event.speed;
            frame.treadmillOrientation = event.orientation;
            frame.treadmillDirection = event.direction;
        } else if (event.kind == Event::Kind::Wait) {
            if (!waiting) {
                waiting = true;
                queriesBeforeWait = pointQueries;
                waitingSince = seconds;
            }
            // Queries are counted as they start: once two more have started after the one under way when
            // the wait began, two asked after it have been answered.
            const bool answered = pointQueries >= queriesBeforeWait + 3;
            // An answered batch still goes to the GPU a share a frame before it is drawn and can be aimed at.
            framesSinceAnswered = answered ? framesSinceAnswered + 1 : 0;
            if (framesSinceAnswered < FRAMES_TO_DRAW_A_BATCH &&
                seconds - waitingSince < LONGEST_WAIT_SECONDS) {
                clock = event.time;
                break;
            }
            waiting = false;
            framesSinceAnswered = 0;
        } else if (frame.inputChanged[0] || frame.inputChanged[1]) {
            break;
        } else {
            frame.ended = true;
        }
        ++next;
    }
    posesAt(clock, frame);
    return frame;
}

void SessionScript::posesAt(double time, Frame& frame) const {
    for (std::size_t device = 0; device < keyframes.size(); ++device) {
        const std::vector<Keyframe>& keys = keyframes[device];
        const auto after = std::upper_bound(keys.begin(), keys.end(), time,
                                            [](double t, const Keyframe& key) { return t < key.time; });
        if (after == keys.begin()) {
            continue;
        }
        const Keyframe& from = *(after - 1);
        Pose pose = from.pose;
        Pose rate{0.0f, 0.0f, 0.0f, 0.0f, 0.0f};
        if (after != keys.end()) {
            const Pose& to = after->pose;
            const float span = static_cast<float>(after->time - from.time);
            const float f = static_cast<float>(time - from.time) / span;
            auto blend = [&](float Pose::*part) {
                pose.*part = from.pose.*part + (to.*part - from.pose.*part) * f;
                rate.*part = (to.*part - from.pose.*part) / span;
            };
            for (float Pose::*part : {&Pose::x, &Pose::y, &Pose::z, &Pose::yaw, &Pose::pitch}) {
                blend(part);
            }
        }
        const float yaw = static_cast<float>(pose.yaw * RADIANS_PER_DEGREE);
        const float pitch = static_cast<float>(pose.pitch * RADIANS_PER_DEGREE);
        const float cy = std::cos(yaw), sy = std::sin(yaw), cp = std::cos(pitch), sp = std::sin(pitch);
        // Turned about the vertical, then pitched about the turned x axis.
        frame.pose[device] = {cy,  sy * sp, sy * cp, pose.x,  0.0f,    cp,
                              -sp, pose.y,  -sy,     cy * sp, cy * cp, pose.z};
        frame.velocity[device] = {rate.x, rate.y, rate.z};
        const float yawRate = static_cast<float>(rate.yaw * RADIANS_PER_DEGREE);
        const float pitchRate = static_cast<float>(rate.pitch * RADIANS_PER_DEGREE);
        frame.angularVelocity[device] = {pitchRate * cy, yawRate, -pitchRate * sy};
        frame.posed[device] = true;
    }
}

bool SessionScript::bind(const Resolver& symbol, const Resolver& treadmillSymbol, std::string& missing) {
    auto made = std::make_shared<Api>();
    bool complete = true;
    auto resolve = [&](const Resolver& from, auto& function, const char* name) {
        if (complete) {
            function =
                reinterpret_cast<std::remove_reference_t<decltype(function)>>(from ? from(name) : nullptr);
            if (function == nullptr) {
                complete = false;
                missing = name;
            }
        }
    };
    resolve(symbol, made->setPaced, "simvr_setPaced");
    resolve(symbol, made->setPoseScript, "simvr_setPoseScript");
    resolve(symbol, made->setDevicePose, "simvr_setDevicePose");
    resolve(symbol, made->setDeviceVelocity, "simvr_setDeviceVelocity");
    resolve(symbol, made->setControllerState, "simvr_setControllerState");
    resolve(symbol, made->setHmdProperties, "simvr_setHmdProperties");
    if (treadmillPresent) {
        resolve(treadmillSymbol, made->treadmillReset, "simcyb_reset");
        resolve(treadmillSymbol, made->treadmillSetPresent, "simcyb_setDevicePresent");
        resolve(treadmillSymbol, made->treadmillSetSpeed, "simcyb_setSpeed");
        resolve(treadmillSymbol, made->treadmillSetOrientation, "simcyb_setOrientation");
        resolve(treadmillSymbol, made->treadmillSetDirection, "simcyb_setMovementDirection");
    }
    if (complete) {
        api = std::move(made);
    }
    return complete;
}

void SessionScript::prepare() {
    if (controllers == Family::Thumbstick) {
        api->setHmdProperties(nullptr, THUMBSTICK_HEADSET_MODEL, nullptr);
    }
    if (treadmillPresent) {
        api->treadmillReset();
        api->treadmillSetPresent(1);
    }
}

void SessionScript::start(std::function<void()> end, std::function<std::uint64_t()> pointQueries) {
    onEnd = std::move(end);
    queries = std::move(pointQueries);
    api->setPaced(1);
    api->setPoseScript(&SessionScript::onFrame, this);
}

void SessionScript::stop() {
    if (api) {
        api->setPoseScript(nullptr, nullptr);
    }
}

void SessionScript::onFrame(std::uint64_t, double seconds, void* user) {
    SessionScript& script = *static_cast<SessionScript*>(user);
    const Api& api = *script.api;
    const Frame frame = script.advance(seconds, script.queries ? script.queries() : 0);
    for (std::uint32_t device = 0; device < 3; ++device) {
        if (frame.posed[device]) {
            api.setDevicePose(device, frame.pose[device].data());
            api.setDeviceVelocity(device, frame.velocity[device].data(),
                                  frame.angularVelocity[device].data());
        }
    }
    for (std::uint32_t hand = 0; hand < 2; ++hand) {
        if (frame.inputChanged[hand]) {
            const ControllerInput& input = frame.input[hand];
            // Devices 1 and 2 hold the left and right hand roles.
            api.setControllerState(hand + 1, input.buttons, input.buttons, input.axes.data());
        }
    }
    if (frame.treadmillChanged) {
        api.treadmillSetSpeed(frame.treadmillSpeed);
        api.treadmillSetOrientation(frame.treadmillOrientation);
        api.treadmillSetDirection(frame.treadmillDirection);
    }
    if (frame.ended && script.onEnd) {
        script.onEnd();
    }
}

} // namespace Demo
