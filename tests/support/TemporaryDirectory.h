#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace camclock::test {

/// A fresh directory that is gone again, with all it holds, at the end.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        namespace fs = std::filesystem;
        // The name only has to be free: two tests that start in the same instant get different numbers.
        const auto now = std::chrono::steady_clock::now().time_since_epoch().count();
        for (auto number = now;; ++number) {
            path_ = fs::temp_directory_path() / ("camclock-test-" + std::to_string(number));
            if (fs::create_directory(path_))
                return;
        }
    }

    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& Path() const { return path_; }
    std::string Name() const { return path_.string(); }

    bool Has(const std::string& file) const { return std::filesystem::exists(path_ / file); }

    /// The text of a file; the platform's line ends come as "\n".
    std::string Read(const std::string& file) const {
        std::ifstream stream(path_ / file);
        std::stringstream text;
        text << stream.rdbuf();
        return text.str();
    }

private:
    std::filesystem::path path_;
};

}  // namespace camclock::test
