// vorn check under limits and signals: a stopped check answers unknown with its reason and the
// next one answers right; SIGINT and SIGTERM end the tool with 128 + the signal, keeping what
// was printed. The hard problems here never finish on their own: a child that is not stopped
// dies at its CPU time limit and fails the test.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "support/cli_run.h"
#include "support/pigeonhole.h"

using vorn::test::temp_file;

namespace {

struct Child {
    int status = -1;  // exit status, -1 when not exited normally
    std::string out;
};

// `vorn check args...`, with 60 s of CPU time at most; with `signal`, sends it once the output
// holds `after`.
Child run_check(std::vector<std::string> args, int signal = 0, const std::string& after = "") {
    args.insert(args.begin(), {VORN_TOOL, "check"});
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    pid_t pid = fork();
    if (pid == 0) {
        rlimit cpu{60, 60};
        setrlimit(RLIMIT_CPU, &cpu);
        dup2(fds[1], STDOUT_FILENO);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        close(fds[0]);
        execv(VORN_TOOL, argv.data());
        _exit(127);
    }
    close(fds[1]);
    Child child;
    char buf[4096];
    bool signalled = signal == 0;
    for (ssize_t n; pid > 0 && (n = read(fds[0], buf, sizeof buf)) > 0;) {
        child.out.append(buf, static_cast<std::size_t>(n));
        if (!signalled && child.out.find(after) != std::string::npos)
            signalled = !kill(pid, signal);
    }
    close(fds[0]);
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status))
        child.status = WEXITSTATUS(status);
    return child;
}

// An easy answer, right after it a hard one, then easy ones on the state that stayed.
const std::string kHardBetweenEasy = vorn::test::pigeonhole(12, 11, false) +
                                     "(declare-const y Real)(assert (> y 1))(check-sat)"
                                     "(check-sat-assuming (php))(get-info :reason-unknown)"
                                     "(assert (< y 3))(check-sat)(assert (< y 1))(check-sat)";

}  // namespace

TEST(CliLimits, StoppedCheckAnswersUnknownAndTheNextOneRight) {
    const std::string path = vorn::test::temp_dir() + "limits.smt2";
    struct Case {
        std::vector<std::string> options;
        std::string prefix, reason, error;
    } cases[] = {
        {{"--time-limit", "0.5"}, "", "timeout", ""},
        {{}, "(set-option :timeout 300)", "timeout", ""},
        {{"--conflict-limit", "1"}, "", "\"conflict limit\"", ""},
        {{"--time-limit", "1e9"},
         "(set-option :timeout -3)(set-option :timeout 200)",
         "timeout",
         "(error \"" + path + ":1:22: expected milliseconds, a numeral of at most 12 digits\")\n"},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.prefix);
        c.options.push_back(temp_file("limits.smt2", c.prefix + kHardBetweenEasy));
        Child run = run_check(c.options);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out,
                  c.error + "sat\nunknown\n(:reason-unknown " + c.reason + ")\nsat\nunsat\n");
    }
}

TEST(CliLimits, DimacsTakesTheSameLimitsAndNamesTheReasonOnStderr) {
    auto easy = temp_file("php76.cnf", vorn::test::pigeonhole(7, 6, true)),
         hard = temp_file("php1211.cnf", vorn::test::pigeonhole(12, 11, true));
    struct {
        std::string args;
        const char *out, *err;
    } cases[] = {
        {easy, "unsat\n", ""},
        {"--conflict-limit 1 " + easy, "unknown\n", "vorn: unknown: conflict limit\n"},
        {"--time-limit 0.2 " + hard, "unknown\n", "vorn: unknown: timeout\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args);
        auto run = vorn::test::run_tool("check " + c.args);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.out, c.out);
        EXPECT_EQ(run.err, c.err);
    }
}

TEST(CliLimits, SignalEndsTheToolAfterTheRunningCheckAnswers) {
    auto path = temp_file("limits.smt2", kHardBetweenEasy);
    for (int signal : {SIGINT, SIGTERM}) {
        SCOPED_TRACE(signal);
        Child run = run_check({path}, signal, "sat\n");
        EXPECT_EQ(run.status, 128 + signal);
        EXPECT_EQ(run.out, "sat\nunknown\n");
    }
}

TEST(CliLimits, MemoryLimitAnswersMemoutAndTheScriptGoesOn) {
    // Rows x_a + k·x_b − x_c >= r, each violated where the simplex starts, over 20000 variables:
    // the problem alone holds some 24 MB.
    const unsigned seed = 20240611;
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const unsigned n = 20000;
    auto num = [&](unsigned from, unsigned count) {
        return std::to_string(from + random() % count);
    };
    std::string script;
    for (unsigned i = 0; i < n; ++i) {
        // Declarators in order: the same script from the seed with every compiler.
        std::string x = std::to_string(i), a = num(0, i + 1), k = num(2, 8), b = num(0, i + 1),
                    c = num(0, i + 1), r = num(1, 99), u = num(1, 99);
        script += "(declare-const x" + x + " Real)(assert (<= x" + x + " " + u +
                  "))(assert (>= (+ x" + a + " (* " + k + " x" + b + ") (- x" + c + ")) " + r +
                  "))\n";
    }
    script += "(check-sat)(get-info :reason-unknown)(reset)(declare-const y Int)(check-sat)";
    Child run = run_check({"--memory-limit", "16", temp_file("limits.smt2", script)});
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, "unknown\n(:reason-unknown memout)\nsat\n");
}
