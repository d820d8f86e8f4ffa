#pragma once

// Runs the vorn executable with a shell command line and collects its exit status and output.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "support/temp_dir.h"

namespace vorn::test {

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

// Runs a shell command line; stderr is that of its last command.
inline ToolRun run_command(const std::string& line) {
    std::string err_file = temp_dir() + "vorn_stderr.txt";
    std::string cmd = line + " 2>" + err_file;
    ToolRun run{};
    FILE* pipe = popen(cmd.c_str(), "r");
    std::array<char, 4096> buf{};
    std::size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0)
        run.out.append(buf.data(), n);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream err(err_file, std::ios::binary);
    std::stringstream ss;
    ss << err.rdbuf();
    run.err = ss.str();
    return run;
}

inline ToolRun run_tool(const std::string& args) {
    return run_command(std::string(VORN_TOOL) + " " + args);
}

// Writes `bytes` to a file of the test's temporary directory; returns its path.
inline std::string temp_file(const std::string& name, const std::string& bytes) {
    std::string path = temp_dir() + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

}  // namespace vorn::test
