#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "common/AnnotationData.h"
#include "common/MeasurementData.h"
#include "platform/Export.h"

// Fetches the host's measurements and annotations about once a second on a worker thread and keeps the
// latest answer for the render thread, so the frame loop never waits for the host. Owned by the VR
// renderer; tryProcessObjects is called from the render thread, the host query runs on the worker. Call
// stopThread before destroying it.
class ORVEL_VR_EXPORT Object3dGrabber {
public:
    using ObjectQuery =
        std::function<void(std::vector<VR::MeasurementData>&, std::vector<VR::AnnotationData>&)>;
    // Waits for the given time; the worker's naps go through it so tests can run the cycle in virtual time.
    using Sleep = std::function<void(std::chrono::milliseconds)>;

    // The worker naps this often between two host queries, testing the stop flag before each nap.
    static constexpr int NAPS_PER_CYCLE = 10;
    static constexpr std::chrono::milliseconds NAP{100};

    explicit Object3dGrabber(ObjectQuery query);
    ~Object3dGrabber() = default;
    Object3dGrabber(const Object3dGrabber&) = delete;
    Object3dGrabber& operator=(const Object3dGrabber&) = delete;

    // Call once; the worker runs until stopThread.
    void startThread();
    // Sets the stop flag and joins the worker; harmless when no worker was started.
    void stopThread();
    // Replaces std::this_thread::sleep_for for the worker's naps; call before startThread.
    void setSleep(Sleep sleep);

    // Never waits: false when no new answer is ready. Otherwise calls both callbacks under the lock with
    // the published vectors, measurements first, and marks the answer taken. Throws
    // std::bad_function_call for an empty callback.
    bool tryProcessObjects(std::function<void(const std::vector<VR::MeasurementData>&)> onMeasurements,
                           std::function<void(const std::vector<VR::AnnotationData>&)> onAnnotations);

private:
    void run();
    // A host query that keeps failing is logged on its first failure and then at most once per
    // NAPS_PER_CYCLE cycles, with the number of failures in between.
    void reportQueryFailure(const char* what);

    ObjectQuery query;
    std::atomic<bool> stop{false};
    std::thread worker;
    std::mutex lock;
    std::atomic<bool> ready{false};
    std::vector<VR::MeasurementData> measurements;
    std::vector<VR::AnnotationData> annotations;
    Sleep sleep;
    // Worker-only bookkeeping of failed queries.
    long long cycle = 0;
    long long lastFailureReport = 0;
    int unreportedFailures = -1;
};
