#pragma once

// Runs the vorn executable with a shell command line and collects its exit status and output.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <span>
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

// A script and the exact output of `vorn check --verify` on it, read from a file s.smt2 whose
// directory the expected text leaves out.
struct ScriptCase {
    const char* name;
    const char* script;
    const char* expected;
};

inline void expect_scripts_answer(std::span<const ScriptCase> cases) {
    for (const ScriptCase& c : cases) {
        auto run = run_tool("check --verify " + temp_file("s.smt2", c.script));
        for (std::size_t at; (at = run.out.find(temp_dir())) != std::string::npos;)
            run.out.erase(at, temp_dir().size());
        EXPECT_EQ(run.out, c.expected) << c.name << "\n" << run.err;
        EXPECT_EQ(run.status, 0) << c.name;
    }
}

}  // namespace vorn::test
