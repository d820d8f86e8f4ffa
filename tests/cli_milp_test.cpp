// vorn optimize on files with Int columns: the integer optimum (never the relaxation's), its
// branch-and-bound certificate accepted by check_certificate.py with and without --input, and
// rejected once a leaf's multiplier is doubled.

#include <gtest/gtest.h>

#include <string>

#include "support/certificate_check.h"
#include "support/cli_run.h"

using vorn::test::certificate_checks;
using vorn::test::run_tool;

namespace {

// The certificate with the first multiplier of the first Farkas leaf of two or more bounds
// doubled (that leaf then leaves a variable); empty when there is none.
std::string spoiled(std::string out) {
    for (std::size_t at = out.find("\nnode "); at != std::string::npos;
         at = out.find("\nnode ", at + 1)) {
        std::size_t end = out.find('\n', at + 1);
        std::size_t farkas = out.find(" farkas ", at);
        if (farkas > end) continue;
        std::size_t entry_end = out.find(' ', farkas + 8);
        if (entry_end > end) continue;  // a single bound
        std::size_t colon = out.rfind(':', entry_end);
        std::string m = out.substr(colon + 1, entry_end - colon - 1);
        std::size_t slash = m.find('/');
        std::string doubled = std::to_string(2 * std::stoll(m.substr(0, slash)));
        if (slash != std::string::npos) doubled += m.substr(slash);
        return out.replace(colon + 1, m.size(), doubled);
    }
    return {};
}

}  // namespace

TEST(CliMilp, IntegerOptimaWithCheckedTrees) {
    auto lp = [](const char* name, const char* text) { return vorn::test::temp_file(name, text); };
    const std::string data = VORN_DATA_DIR "/miplib3/miplib3-";
    const std::pair<std::string, const char*> cases[] = {
        // The relaxation's optimum is 15/2 at x = 3, y = 9/4.
        {lp("knap.lp",
            "maximize\n obj: x + 2 y\nsubject to\n c: x + 4 y <= 12\n d: x <= 3\n"
            "general\n x y\nend\n"),
         "optimal\nobjective 7\nobjective ≈ 7\n"},
        // Mixed: y Real; 2x + y >= 3.5 with x Int, minimizing x + y.
        {lp("mixed.lp",
            "minimize\n obj: x + y\nsubject to\n c: 2 x + y >= 3.5\n u: x <= 1\n"
            "bounds\n y <= 10\ngeneral\n x\nend\n"),
         "optimal\nobjective 5/2\nobjective ≈ 2.5\n"},
        // Integer infeasible, the relaxation feasible: 2x = 1.
        {lp("odd.lp",
            "minimize\n obj: x\nsubject to\n c: 2 x = 1\nbounds\n x <= 5\ngeneral\n x\nend\n"),
         "infeasible\n"},
        {data + "p0033.mps.bz2", "optimal\nobjective 3089\nobjective ≈ 3089\n"},
        {data + "flugpl.mps.bz2", "optimal\nobjective 1201500\nobjective ≈ 1201500\n"},
        // Root cuts: the certificate's first Farkas leaf derives a cut.
        {data + "p0033.mps.bz2", "optimal\nobjective 3089\nobjective ≈ 3089\n"},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        const auto& [file, expected] = cases[i];
        // The last with root cuts: the certificate's first Farkas leaf then derives a cut.
        std::string options = i + 1 == std::size(cases) ? "--cut-rounds 3 " : "";
        auto run = run_tool("optimize --verify " + options + file);
        EXPECT_EQ(run.out, expected) << file << run.err;
        auto certified = run_tool("optimize --model --certificate " + options + file);
        EXPECT_TRUE(certificate_checks(certified.out)) << file;
        EXPECT_TRUE(certificate_checks(certified.out, file)) << file;
        std::string bad = spoiled(certified.out);
        if (!bad.empty()) {
            EXPECT_FALSE(certificate_checks(bad)) << file;
        }
    }
}
