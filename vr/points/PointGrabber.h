#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "common/Mat4d.h"
#include "common/Point3dRGB.h"
#include "common/Point3dRGBA.h"
#include "common/SVec2d.h"
#include "common/Vec3d.h"
#include "platform/Export.h"

namespace VR {

class RunRecorder;

// Streams points from the host: a worker thread asks the host's point query for what a camera at the
// viewer's head sees, adapting resolution and field of view to how long the host takes and how fast the
// head moves, and publishes each finished batch for the point renderer. Owned by the VR renderer; the
// setters and tryProcessObjects are called from the render thread, the host query runs on the worker.
// Call stopThread before destroying it.
class ORVEL_VR_EXPORT PointGrabber {
public:
    // One published batch: centre points first, periphery points behind them, both in the camera frame
    // given by cameraToWorld.
    struct BufferData {
        std::int32_t centreCount = 0;
        std::int32_t peripheryCount = 0;
        // Always 0 when published; the point renderer counts its upload progress in its own copy.
        std::int32_t uploadedCount = 0;
        // Taken at half resolution, so drawn with double point size.
        bool reduced = false;
        // Taken with eye 0's camera (true) or eye 1's (false).
        bool firstEye = false;
        Ko_1_1::Mat4d<float> cameraToWorld;
    };

    // fov (radians), width, height, near, far, camera position, up axis, back axis, points (appended to,
    // in camera coordinates).
    using PointQuery =
        std::function<void(float, unsigned short, unsigned short, float, float, Ko_1_1::Vec3d<double>,
                           Ko_1_1::Vec3d<double>, Ko_1_1::Vec3d<double>, std::vector<Point3dRGBA>&)>;
    using Consumer = std::function<void(std::vector<Point3dRGB>&, const BufferData&)>;
    // Monotonic time in nanoseconds; only differences count.
    using Clock = std::function<std::int64_t()>;

    // What one iteration asks the host for.
    struct QuerySize {
        int width;
        int height;
        float fov;
    };

    static constexpr float NEAR_DISTANCE = 0.02f;
    static constexpr float FAR_DISTANCE = 1000.0f;
    static constexpr float PERIPHERY_FOV = 2.4f;
    static constexpr float WIDE_FOV = 2.0f;
    // Tangent of the half-angle of the cone the centre pass covers; the periphery pass skips it.
    static constexpr double CENTRE_CONE_SLOPE = 0.68;

    // The quality level (1 to 3) after an iteration that took `seconds` since the previous one. Only
    // iterations of the first eye raise it; either eye lowers it while the head moves; a head at rest never
    // stays at level 1.
    static int nextQualityLevel(int level, bool firstEye, bool moving, double seconds);
    // Level 1 halves the resolution, level 3 doubles it with the wide field of view (else `fov`); the point
    // size divides it at every level.
    static QuerySize querySize(int level, int width, int height, int pointSizeDivisor, float fov);
    // Whether the head moved between two iterations: the point one unit behind eye 0's camera moved
    // further than the threshold, so turning the head counts as much as walking.
    static bool isMoving(const Ko_1_1::Mat4d<float>& previousEye, const Ko_1_1::Mat4d<float>& eye,
                         double threshold);

    explicit PointGrabber(PointQuery query);
    ~PointGrabber() = default;
    PointGrabber(const PointGrabber&) = delete;
    PointGrabber& operator=(const PointGrabber&) = delete;

    // Call once; the worker runs until stopThread.
    void startThread();
    // Sets the stop flag and joins the worker; harmless when no worker was started.
    void stopThread();

    // Eye 0 or 1; other values are ignored. poseTime (monotonic nanoseconds) is when the head pose the
    // matrix comes from was taken; without it, the call's own time stands for it.
    void setCameraToWorldMatrix(Ko_1_1::Mat4d<float>& m, unsigned long long eye);
    void setCameraToWorldMatrix(Ko_1_1::Mat4d<float>& m, unsigned long long eye, std::int64_t poseTime);
    void setNumEyes(int numEyes);
    void setResolution(unsigned short width, unsigned short height);
    // Divides the query resolution; anything below 1 counts as 1.
    void setPointSize(int divisor);
    // Until it has been given the camera it is to ask with, the worker idles as while paused; call before
    // startThread. Without it, a camera never set is the identity.
    void waitForCameras();
    // Replaces the clock the worker measures its iterations with; call before startThread.
    void setClock(Clock clock);
    void setPausePC2(bool pause);
    // Receives query times, batch sizes and time at each quality level; null records nothing. Call before
    // startThread; the recorder must outlive the worker.
    void setRecorder(RunRecorder* recorder);

    float getHorizontalFov() const { return fov; }
    Ko_1_1::SVec2d<int> getResolution() const { return {width.load(), height.load()}; }
    bool getPausePC2() const { return pause.load(); }
    // The most points one batch may hold.
    std::uint32_t getMaxPointsFromPC2() const;

    // One host query; appends what it returns to out, without the points inside the centre cone when
    // peripheryOnly is set and without points whose coordinates are not finite. Throws
    // std::bad_function_call without a query.
    void searchPoints(Ko_1_1::Mat4d<float>& cameraToWorld, float fov, int width, int height,
                      std::vector<Point3dRGB>& out, bool peripheryOnly);

    // Never waits for a batch: false when none is ready. Otherwise calls consume under the lock; the
    // consumer may swap the vector with its own. Throws std::bad_function_call for an empty consumer.
    bool tryProcessObjects(Consumer consume);
    // The pose time of the camera the published batch was queried with. Only meaningful inside a consumer,
    // where the lock is held.
    std::int64_t getPublishedPoseTime() const { return publishedPoseTime; }

private:
    void run();
    // A host query that keeps failing is logged on its first failure and then at most once a second.
    void reportQueryFailure(const char* what, std::int64_t now);

    std::atomic<int> numEyes{2};
    std::atomic<bool> pause{false};
    double movementThreshold = 0.2;
    std::atomic<int> width{0};
    std::atomic<int> height{0};
    float fov = 1.2f;
    std::mutex lock;
    std::atomic<bool> ready{false};
    std::vector<Point3dRGB> sharedPoints;
    Ko_1_1::Mat4d<float> eyeMatrices[2];
    std::int64_t eyePoseTimes[2] = {0, 0};
    bool eyeGiven[2] = {true, true};
    BufferData published;
    // Kept beside the published record, whose layout the host shares.
    std::int64_t publishedPoseTime = 0;
    PointQuery query;
    std::atomic<bool> stop{false};
    std::atomic<int> pointSizeDivisor{1};
    std::thread worker;
    Clock clock;
    std::int64_t lastFailureReport = 0;
    int unreportedFailures = -1;
    // Host answers the worker repairs are logged once for the grabber's life.
    bool nonFiniteReported = false;
    bool cutReported = false;
    RunRecorder* recorder = nullptr;
};

} // namespace VR
