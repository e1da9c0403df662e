#include "vr/objects/Object3dGrabber.h"

#include <exception>
#include <utility>

#include "platform/Log.h"
#include "platform/Platform.h"

namespace {

constexpr long long CYCLES_BETWEEN_FAILURE_REPORTS = 10;

void sleepFor(std::chrono::milliseconds duration) {
    std::this_thread::sleep_for(duration);
}

} // namespace

Object3dGrabber::Object3dGrabber(ObjectQuery query) : query(std::move(query)), sleep(sleepFor) {}

void Object3dGrabber::setSleep(Sleep s) {
    if (s) {
        sleep = std::move(s);
    }
}

void Object3dGrabber::startThread() {
    worker = std::thread(&Object3dGrabber::run, this);
}

void Object3dGrabber::stopThread() {
    stop = true;
    if (worker.joinable()) {
        worker.join();
    }
}

bool Object3dGrabber::tryProcessObjects(
    std::function<void(const std::vector<VR::MeasurementData>&)> onMeasurements,
    std::function<void(const std::vector<VR::AnnotationData>&)> onAnnotations) {
    if (!ready) {
        return false;
    }
    std::lock_guard<std::mutex> guard(lock);
    onMeasurements(measurements);
    onAnnotations(annotations);
    ready = false;
    return true;
}

void Object3dGrabber::run() {
    Platform::setCurrentThreadPriorityLowest();

    std::vector<VR::MeasurementData> localMeasurements;
    std::vector<VR::AnnotationData> localAnnotations;

    if (stop) {
        return;
    }
    for (;;) {
        localMeasurements.clear();
        localAnnotations.clear();
        bool answered = false;
        try {
            query(localMeasurements, localAnnotations);
            answered = true;
        } catch (const std::exception& e) {
            // A failing host must not take the viewer down; the next cycle asks again.
            reportQueryFailure(e.what());
        } catch (...) {
            reportQueryFailure("unknown exception");
        }

        if (answered) {
            // An answer the render thread has not taken yet is simply replaced: only the newest counts.
            std::lock_guard<std::mutex> guard(lock);
            localMeasurements.swap(measurements);
            localAnnotations.swap(annotations);
            ready = true;
        }
        ++cycle;

        // Short naps rather than one long sleep, so a stop request waits at most one nap.
        for (int i = 0; i < NAPS_PER_CYCLE; ++i) {
            if (stop) {
                return;
            }
            sleep(NAP);
        }
    }
}

void Object3dGrabber::reportQueryFailure(const char* what) {
    if (unreportedFailures < 0) {
        VR::logLine(L"Exception caught: %hs\n", what);
        unreportedFailures = 0;
        lastFailureReport = cycle;
        return;
    }
    ++unreportedFailures;
    if (cycle - lastFailureReport >= CYCLES_BETWEEN_FAILURE_REPORTS) {
        VR::logLine(L"Exception caught: %hs (%d more times)\n", what, unreportedFailures);
        unreportedFailures = 0;
        lastFailureReport = cycle;
    }
}
