#include "vr/points/PointGrabber.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <exception>
#include <utility>

#include "platform/Log.h"
#include "platform/Platform.h"
#include "vr/RunRecorder.h"

namespace VR {

namespace {

constexpr std::chrono::milliseconds WAIT_STEP(10);
constexpr std::int64_t NANOSECONDS_PER_SECOND = 1000000000;

Ko_1_1::Vec3d<double> widen(const Ko_1_1::Mat4d<float>& m, int firstElement) {
    return {static_cast<double>(m[firstElement]), static_cast<double>(m[firstElement + 1]),
            static_cast<double>(m[firstElement + 2])};
}

} // namespace

int PointGrabber::nextQualityLevel(int level, bool firstEye, bool moving, double seconds) {
    const double limit = moving ? 0.1 : 0.2;
    if (firstEye || moving) {
        if (seconds > limit) {
            level = std::max(1, level - 1);
        } else if (firstEye && seconds < limit / 3.0) {
            level = std::min(3, level + 1);
        }
    }
    if (!moving && level == 1) {
        level = 2;
    }
    return level;
}

PointGrabber::QuerySize PointGrabber::querySize(int level, int fullWidth, int fullHeight, int divisor,
                                                float fov) {
    QuerySize size{fullWidth, fullHeight, fov};
    if (level == 1) {
        size.width /= 2;
        size.height /= 2;
    }
    size.width /= divisor;
    size.height /= divisor;
    if (level == 3) {
        size.fov = WIDE_FOV;
        size.width *= 2;
        size.height *= 2;
    }
    return size;
}

bool PointGrabber::isMoving(const Ko_1_1::Mat4d<float>& previousEye, const Ko_1_1::Mat4d<float>& eye,
                            double threshold) {
    const Ko_1_1::Vec3d<float> delta =
        (eye.translation() + eye.column(2)) - (previousEye.translation() + previousEye.column(2));
    return static_cast<double>(delta.dot(delta)) > threshold * threshold;
}

PointGrabber::PointGrabber(PointQuery query)
    : query(std::move(query)), clock(Platform::monotonicNanoseconds) {}

void PointGrabber::setClock(Clock c) {
    if (c) {
        clock = std::move(c);
    }
}

void PointGrabber::startThread() {
    worker = std::thread(&PointGrabber::run, this);
}

void PointGrabber::stopThread() {
    stop = true;
    if (worker.joinable()) {
        worker.join();
    }
}

void PointGrabber::setCameraToWorldMatrix(Ko_1_1::Mat4d<float>& m, unsigned long long eye) {
    setCameraToWorldMatrix(m, eye, Platform::monotonicNanoseconds());
}

void PointGrabber::setCameraToWorldMatrix(Ko_1_1::Mat4d<float>& m, unsigned long long eye,
                                          std::int64_t poseTime) {
    if (eye > 1) {
        return;
    }
    std::lock_guard<std::mutex> guard(lock);
    eyeMatrices[eye] = m;
    eyePoseTimes[eye] = poseTime;
    eyeGiven[eye] = true;
}

void PointGrabber::waitForCameras() {
    std::lock_guard<std::mutex> guard(lock);
    eyeGiven[0] = false;
    eyeGiven[1] = false;
}

void PointGrabber::setRecorder(RunRecorder* r) {
    recorder = r;
}

void PointGrabber::setNumEyes(int n) {
    numEyes = n;
}

void PointGrabber::setResolution(unsigned short w, unsigned short h) {
    width = w;
    height = h;
}

void PointGrabber::setPointSize(int divisor) {
    // The divisor comes from the host; a size of 0 or less would divide by zero or turn the query around.
    pointSizeDivisor = std::max(1, divisor);
}

void PointGrabber::setPausePC2(bool p) {
    pause = p;
}

std::uint32_t PointGrabber::getMaxPointsFromPC2() const {
    return static_cast<std::uint32_t>(width.load()) * static_cast<std::uint32_t>(height.load()) * 4u;
}

void PointGrabber::searchPoints(Ko_1_1::Mat4d<float>& cameraToWorld, float queryFov, int queryWidth,
                                int queryHeight, std::vector<Point3dRGB>& out, bool peripheryOnly) {
    std::vector<Point3dRGBA> found;
    if (!query) {
        throw std::bad_function_call();
    }
    const std::int64_t asked = recorder ? clock() : 0;
    query(queryFov, static_cast<unsigned short>(queryWidth), static_cast<unsigned short>(queryHeight),
          NEAR_DISTANCE, FAR_DISTANCE, widen(cameraToWorld, 12), widen(cameraToWorld, 4),
          widen(cameraToWorld, 8), found);
    if (recorder) {
        recorder->queryAnswered(clock() - asked);
    }

    for (const Point3dRGBA& p : found) {
        // The renderer transforms points on the GPU, where a non-finite one draws anything or nothing.
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
            if (!nonFiniteReported) {
                logLine(L"Points with non-finite coordinates from the host dropped\n");
                nonFiniteReported = true;
            }
            continue;
        }
        if (peripheryOnly) {
            // k is negative in front of the camera, so this is |x| < |k| and |y| < |k|; behind the camera
            // (z >= 0) it can never hold.
            const double k = static_cast<double>(p.z) * CENTRE_CONE_SLOPE;
            if (p.x > k && p.x < -k && p.y > k && p.y < -k) {
                continue;
            }
        }
        out.push_back(Point3dRGB{p.x, p.y, p.z, p.r, p.g, p.b, 0});
    }
}

bool PointGrabber::tryProcessObjects(Consumer consume) {
    if (!ready) {
        return false;
    }
    std::lock_guard<std::mutex> guard(lock);
    consume(sharedPoints, published);
    ready = false;
    return true;
}

void PointGrabber::run() {
    Platform::setCurrentThreadPriorityLowest();

    std::vector<Point3dRGB> local;
    int level = 1;
    bool eyeToggle = true;
    // An hour in the past, so that the first iteration counts as slow.
    std::int64_t previousTime = clock() - 3600 * NANOSECONDS_PER_SECOND;
    Ko_1_1::Mat4d<float> previousEye0;
    bool havePreviousEye = false;
    // The level in force since then, pauses included, so the levels' times add up to the worker's life.
    std::int64_t levelSince = clock();

    if (stop) {
        return;
    }
    do {
        if (pause) {
            std::this_thread::sleep_for(WAIT_STEP);
            continue;
        }

        Ko_1_1::Mat4d<float> eye0;
        Ko_1_1::Mat4d<float> eye1;
        std::int64_t poseTime0 = 0;
        std::int64_t poseTime1 = 0;
        bool cameraGiven = false;
        {
            std::lock_guard<std::mutex> guard(lock);
            const int second = numEyes >= 2 ? 1 : 0;
            eye0 = eyeMatrices[0];
            eye1 = eyeMatrices[second];
            poseTime0 = eyePoseTimes[0];
            poseTime1 = eyePoseTimes[second];
            cameraGiven = eyeGiven[eyeToggle ? 0 : second];
        }
        if (!cameraGiven) {
            std::this_thread::sleep_for(WAIT_STEP);
            continue;
        }
        const bool moving = havePreviousEye && isMoving(previousEye0, eye0, movementThreshold);
        previousEye0 = eye0;
        havePreviousEye = true;

        const std::int64_t now = clock();
        const double dt =
            static_cast<double>(now - previousTime) / static_cast<double>(NANOSECONDS_PER_SECOND);
        previousTime = now;
        if (recorder) {
            recorder->qualityTime(level, now - levelSince);
        }
        levelSince = now;
        level = nextQualityLevel(level, eyeToggle, moving, dt);

        const int fullWidth = width;
        const int fullHeight = height;
        const QuerySize size = querySize(level, fullWidth, fullHeight, pointSizeDivisor, fov);
        const int queryWidth = size.width;
        const int queryHeight = size.height;
        const float queryFov = size.fov;

        Ko_1_1::Mat4d<float> camera = eyeToggle ? eye0 : eye1;
        const std::int64_t cameraPoseTime = eyeToggle ? poseTime0 : poseTime1;

        local.clear();
        std::size_t centreCount = 0;
        std::size_t peripheryCount = 0;
        try {
            searchPoints(camera, queryFov, queryWidth, queryHeight, local, false);
            centreCount = local.size();
            if (level < 3) {
                searchPoints(camera, PERIPHERY_FOV, queryWidth / 2, queryHeight / 2, local, true);
                peripheryCount = local.size() - centreCount;
            }
        } catch (const std::exception& e) {
            // A failing host must not take the viewer down; the next iteration asks again.
            reportQueryFailure(e.what(), clock());
            std::this_thread::sleep_for(WAIT_STEP);
            continue;
        } catch (...) {
            reportQueryFailure("unknown exception", clock());
            std::this_thread::sleep_for(WAIT_STEP);
            continue;
        }

        const bool firstEye = eyeToggle;
        const std::size_t maxPoints =
            static_cast<std::size_t>(fullWidth) * static_cast<std::size_t>(fullHeight) * 4;
        if (centreCount + peripheryCount > maxPoints) {
            if (!cutReported) {
                logLine(L"Point batch of %llu points cut to %llu\n",
                        static_cast<unsigned long long>(centreCount + peripheryCount),
                        static_cast<unsigned long long>(maxPoints));
                cutReported = true;
            }
            local.resize(maxPoints);
            centreCount = maxPoints;
            peripheryCount = 0;
        }

        while (ready && !stop) {
            std::this_thread::sleep_for(WAIT_STEP);
        }

        if (centreCount + peripheryCount > 0) {
            eyeToggle = !eyeToggle;
            if (recorder) {
                recorder->batchPublished(static_cast<std::int64_t>(centreCount + peripheryCount));
            }
            std::lock_guard<std::mutex> guard(lock);
            local.swap(sharedPoints);
            published.centreCount = static_cast<std::int32_t>(centreCount);
            published.peripheryCount = static_cast<std::int32_t>(peripheryCount);
            published.uploadedCount = 0;
            published.reduced = level == 1;
            published.firstEye = firstEye;
            published.cameraToWorld = camera;
            publishedPoseTime = cameraPoseTime;
            ready = true;
        }
    } while (!stop);

    if (recorder) {
        recorder->qualityTime(level, clock() - levelSince);
    }
    local.clear();
    local.shrink_to_fit();
}

void PointGrabber::reportQueryFailure(const char* what, std::int64_t now) {
    if (unreportedFailures < 0) {
        logLine(L"Exception caught: %hs\n", what);
        unreportedFailures = 0;
        lastFailureReport = now;
        return;
    }
    ++unreportedFailures;
    if (now - lastFailureReport >= NANOSECONDS_PER_SECOND) {
        logLine(L"Exception caught: %hs (%d more times)\n", what, unreportedFailures);
        unreportedFailures = 0;
        lastFailureReport = now;
    }
}

} // namespace VR
