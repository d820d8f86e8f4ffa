#pragma once

// Input text with the name it is reported under, and positions in it.

#include <string>

#include "vorn/smt/source_pos.h"

namespace vorn::io {

struct SourceText {
    std::string name;  // as given on the command line; "<stdin>" for "-"
    std::string text;
    bool standard_input = false;

    // Reads a file, or standard input for "-". A directory, an unreadable path or more than
    // kMaxInputBytes is an ParseError at 1:1.
    static SourceText read(const std::string& path);
};

}  // namespace vorn::io
