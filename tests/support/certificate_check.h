#pragma once

// Runs scripts/check_certificate.py, a checker that shares no code with vorn, on the certificates
// of an output. The test binaries that include this define VORN_SOURCE_DIR.

#include <cstdlib>
#include <string>

#include "support/temp_dir.h"

namespace vorn::test {

// Whether the checker accepts every certificate of `out`, against the input file `input` when
// one is named.
inline bool certificate_checks(const std::string& out, const std::string& input = "") {
    std::string path = temp_file("certificate_check.out", out);
    std::string against = input.empty() ? "" : " --input " + input;
    return std::system(("python3 " VORN_SOURCE_DIR "/scripts/check_certificate.py" + against + " " +
                        path + " >/dev/null")
                           .c_str()) == 0;
}

}  // namespace vorn::test
