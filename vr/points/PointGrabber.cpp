#include "vr/points/PointGrabber.h"

#include <chrono>
#include <exception>
#include <utility>

#include "platform/Log.h"
#include "platform/Platform.h"

namespace VR {

namespace {

constexpr std::chrono::milliseconds WAIT_STEP(10);
constexpr std::int64_t NANOSECONDS_PER_SECOND = 1000000000;

Ko_1_1::Vec3d<double> widen(const Ko_1_1::Mat4d<float>& m, int firstElement) {
    return {static_cast<double>(m[firstElement]), static_cast<double>(m[firstElement + 1]),
            static_cast<double>(m[firstElement + 2])};
}

} // namespace

PointGrabber::PointGrabber(PointQuery query) : query(std::move(query)) {}

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
    std::lock_guard<std::mutex> guard(lock);
    if (eye == 0) {
        eyeMatrices[0] = m;
    } else if (eye == 1) {
        eyeMatrices[1] = m;
    }
}

void PointGrabber::setNumEyes(int n) {
    numEyes = n;
}

void PointGrabber::setResolution(unsigned short w, unsigned short h) {
    width = w;
    height = h;
}

void PointGrabber::setPointSize(int divisor) {
    pointSizeDivisor = divisor;
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
    query(queryFov, static_cast<unsigned short>(queryWidth), static_cast<unsigned short>(queryHeight),
          NEAR_DISTANCE, FAR_DISTANCE, widen(cameraToWorld, 12), widen(cameraToWorld, 4),
          widen(cameraToWorld, 8), found);

    for (const Point3dRGBA& p : found) {
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
    std::int64_t previousTime = Platform::monotonicNanoseconds() - 3600 * NANOSECONDS_PER_SECOND;
    Ko_1_1::Vec3d<float> previousReference;
    bool havePreviousReference = false;

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
        {
            std::lock_guard<std::mutex> guard(lock);
            eye0 = eyeMatrices[0];
            eye1 = numEyes >= 2 ? eyeMatrices[1] : eyeMatrices[0];
        }

        // A point one unit behind the camera moves with both translation and head rotation.
        const Ko_1_1::Vec3d<float> reference = eye0.translation() + eye0.column(2);
        if (!havePreviousReference) {
            previousReference = reference;
            havePreviousReference = true;
        }
        const Ko_1_1::Vec3d<float> delta = reference - previousReference;
        const bool moving = static_cast<double>(delta.dot(delta)) > movementThreshold * movementThreshold;
        previousReference = reference;

        const std::int64_t now = Platform::monotonicNanoseconds();
        const double dt =
            static_cast<double>(now - previousTime) / static_cast<double>(NANOSECONDS_PER_SECOND);
        previousTime = now;
        const double limit = moving ? 0.1 : 0.2;

        if (eyeToggle || moving) {
            if (dt > limit) {
                if (level > 1) {
                    --level;
                }
            } else if (eyeToggle && dt < limit / 3.0) {
                if (level < 3) {
                    ++level;
                }
            }
        }
        if (!moving && level == 1) {
            level = 2;
        }

        const int fullWidth = width;
        const int fullHeight = height;
        int queryWidth = fullWidth;
        int queryHeight = fullHeight;
        if (level == 1) {
            queryWidth /= 2;
            queryHeight /= 2;
        }
        const int divisor = pointSizeDivisor;
        queryWidth /= divisor;
        queryHeight /= divisor;
        float queryFov = fov;
        if (level == 3) {
            queryFov = WIDE_FOV;
            queryWidth *= 2;
            queryHeight *= 2;
        }

        Ko_1_1::Mat4d<float> camera = eyeToggle ? eye0 : eye1;

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
            logLine(L"Exception caught: %hs\n", e.what());
            std::this_thread::sleep_for(WAIT_STEP);
            continue;
        }

        const bool firstEye = eyeToggle;
        const std::size_t maxPoints =
            static_cast<std::size_t>(fullWidth) * static_cast<std::size_t>(fullHeight) * 4;
        if (centreCount + peripheryCount > maxPoints) {
            local.resize(maxPoints);
            centreCount = maxPoints;
            peripheryCount = 0;
        }

        while (ready && !stop) {
            std::this_thread::sleep_for(WAIT_STEP);
        }

        if (centreCount + peripheryCount > 0) {
            eyeToggle = !eyeToggle;
            std::lock_guard<std::mutex> guard(lock);
            local.swap(sharedPoints);
            published.centreCount = static_cast<std::int32_t>(centreCount);
            published.peripheryCount = static_cast<std::int32_t>(peripheryCount);
            published.uploadedCount = 0;
            published.reduced = level == 1;
            published.firstEye = firstEye;
            published.cameraToWorld = camera;
            ready = true;
        }
    } while (!stop);

    local.clear();
    local.shrink_to_fit();
}

} // namespace VR
