#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace OrvelTest {

// A fresh, empty folder of the test's own under the system's temporary folder, removed with everything in
// it when the test ends. Tests run as parallel processes, so nothing they write may have a fixed name.
class TempFolder {
public:
    TempFolder() {
        std::random_device random;
        const std::filesystem::path base = std::filesystem::temp_directory_path();
        // create_directory reports false when the name exists, so a collision just draws another name.
        do {
            folder = base / ("orvel-test-" + std::to_string(random()) + std::to_string(random()));
        } while (!std::filesystem::create_directory(folder));
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    std::string path(const std::string& name) const { return (folder / name).string(); }

private:
    std::filesystem::path folder;
};

} // namespace OrvelTest
