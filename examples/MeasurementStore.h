#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "common/MeasurementData.h"

namespace Demo {

// The host's measurements and the file that keeps them. Every change is written at once and atomically:
// the whole list goes to a temporary file in the same folder, which is flushed to the disk and then renamed
// over the old file, so a crash or kill at any moment leaves either the old or the new file, never a
// half-written one. The temporary file's name (the file's name + ".tmp") is never read back.
//
// Made on the render thread before the run; measurements() may be called from any thread (the object
// grabber asks once a second), the changes come from the render thread. One mutex guards the list and
// serialises the writes.
class MeasurementStore {
public:
    // Loads the file when it exists (a missing file is an empty list, written on the first change); throws
    // ReadError ("<path>: <problem>") when it cannot be read or is damaged, and then never touches it.
    explicit MeasurementStore(std::string path);
    MeasurementStore(const MeasurementStore&) = delete;
    MeasurementStore& operator=(const MeasurementStore&) = delete;
    ~MeasurementStore() = default;

    const std::string& path() const { return file; }
    // The viewer's coordinates are world coordinates less this origin (see ObjectFiles); set before the
    // run, it reads the file's measurements again relative to it. Throws as the constructor does.
    void setOrigin(const Ko_1_1::Vec3d<double>& origin);
    std::vector<VR::MeasurementData> measurements() const;

    // Both keep the change in memory even when the write fails, and then throw std::runtime_error
    // ("<path>: <why>"); the file keeps its previous contents.
    void add(const VR::MeasurementData& measurement);
    // False when there was nothing to remove (and nothing is written).
    bool removeLast();

    // Called between the flush of the temporary file and the rename, with the temporary file's path: lets a
    // test stop the process at the one moment where a torn write could happen.
    void setBeforeReplace(std::function<void(const std::string& temporaryPath)> callback) {
        beforeReplace = std::move(callback);
    }

private:
    void save(); // with the mutex held

    std::string file;
    Ko_1_1::Vec3d<double> origin;
    mutable std::mutex mutex;
    std::vector<VR::MeasurementData> list;
    std::function<void(const std::string&)> beforeReplace;
};

} // namespace Demo
