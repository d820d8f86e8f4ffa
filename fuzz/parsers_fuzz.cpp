// The tool's readers on arbitrary text: every input gives a result or an InputError, never a
// crash, a hang or a sanitizer report. The first byte picks the reader.

#include <cstdint>
#include <string>

#include "vorn/lin_parser.h"
#include "vorn/replay.h"
#include "vorn/smt_parser.h"
#include "vorn/solve.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0 || size > 4096) return 0;
    std::string text(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    try {
        switch (bytes[0] % 3) {
            case 0: {
                auto problem = vorn::cli::parse_lin(text);
                if (problem.atoms.size() <= 64) (void)vorn::cli::solve(problem, {});
                break;
            }
            case 1: {
                auto problem = vorn::cli::parse_smt2(text);
                if (problem.atoms.size() <= 64) {
                    try {
                        (void)vorn::cli::solve(problem, {});
                    } catch (const vorn::cli::InputError&) {
                    }
                }
                break;
            }
            default:
                (void)vorn::cli::replay(text);
        }
    } catch (const vorn::cli::InputError&) {
    }
    return 0;
}
