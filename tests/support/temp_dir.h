#pragma once

// A temporary directory of this test process's own, so that two test runs at once (a debug and a
// sanitizer build, say) never share the files they write; it goes when the process exits.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace vorn::test {

inline const std::string& temp_dir() {
    // Never destroyed, so that the exit handler below still finds it.
    static const std::string* const dir = [] {
        auto* d =
            new std::string(::testing::TempDir() + "vorn-" + std::to_string(::getpid()) + "/");
        ::mkdir(d->c_str(), 0700);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(temp_dir(), ignored);
        });
        return d;
    }();
    return *dir;
}

// Writes `bytes` to a file of the test's temporary directory; returns its path.
inline std::string temp_file(const std::string& name, const std::string& bytes) {
    std::string path = temp_dir() + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

}  // namespace vorn::test
