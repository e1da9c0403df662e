#include "examples/MeasurementStore.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <sys/stat.h>

#if defined(_WIN32)
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

#include "examples/ObjectFiles.h"
#include "examples/ReadError.h"

namespace Demo {
namespace {

std::runtime_error writeError(const std::string& path, const std::string& what) {
    return std::runtime_error(path + ": " + what + " (" + std::strerror(errno) + ")");
}

bool exists(const std::string& path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0;
}

#if defined(_WIN32)

void writeDurably(const std::string& path, const std::string& bytes) {
    const int fd = _open(path.c_str(), _O_WRONLY | _O_CREAT | _O_TRUNC | _O_BINARY, _S_IREAD | _S_IWRITE);
    if (fd < 0) {
        throw writeError(path, "cannot be created");
    }
    const bool ok =
        _write(fd, bytes.data(), static_cast<unsigned>(bytes.size())) == static_cast<int>(bytes.size()) &&
        _commit(fd) == 0;
    _close(fd);
    if (!ok) {
        throw writeError(path, "could not be written");
    }
}

bool replace(const std::string& from, const std::string& to) {
    return MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

void syncFolderOf(const std::string&) {}

#else

void writeDurably(const std::string& path, const std::string& bytes) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
        throw writeError(path, "cannot be created");
    }
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            const int saved = errno;
            ::close(fd);
            errno = saved;
            throw writeError(path, "could not be written");
        }
        done += static_cast<std::size_t>(n);
    }
    // Without the fsync the rename may reach the disk before the data, and a power cut would leave an empty
    // file under the real name.
    if (::fsync(fd) != 0) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
        throw writeError(path, "could not be flushed to the disk");
    }
    ::close(fd);
}

bool replace(const std::string& from, const std::string& to) {
    return std::rename(from.c_str(), to.c_str()) == 0;
}

// Makes the rename itself durable; a failure here loses nothing already on the disk, so it is not reported.
void syncFolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

#endif

} // namespace

MeasurementStore::MeasurementStore(std::string path) : file(std::move(path)) {
    if (exists(file)) {
        list = ObjectFiles::parseMeasurements(ObjectFiles::readFile(file), file);
    }
}

void MeasurementStore::setOrigin(const Ko_1_1::Vec3d<double>& origin_) {
    std::lock_guard<std::mutex> lock(mutex);
    origin = origin_;
    if (exists(file)) {
        list = ObjectFiles::parseMeasurements(ObjectFiles::readFile(file), file, origin);
    }
}

std::vector<VR::MeasurementData> MeasurementStore::measurements() const {
    std::lock_guard<std::mutex> lock(mutex);
    return list;
}

void MeasurementStore::add(const VR::MeasurementData& measurement) {
    std::lock_guard<std::mutex> lock(mutex);
    list.push_back(measurement);
    save();
}

bool MeasurementStore::removeLast() {
    std::lock_guard<std::mutex> lock(mutex);
    if (list.empty()) {
        return false;
    }
    list.pop_back();
    save();
    return true;
}

void MeasurementStore::save() {
    const std::string temporary = file + ".tmp";
    try {
        writeDurably(temporary, ObjectFiles::formatMeasurements(list, origin));
        if (beforeReplace) {
            beforeReplace(temporary);
        }
        if (!replace(temporary, file)) {
            throw writeError(file, "could not be replaced by " + temporary);
        }
    } catch (...) {
        std::remove(temporary.c_str());
        throw;
    }
    syncFolderOf(file);
}

} // namespace Demo
