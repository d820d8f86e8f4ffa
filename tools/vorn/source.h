#pragma once

// Input text with its name, and the one kind of error the tool reports: a position and a
// message, printed as "FILE:LINE:COL: message".

#include <stdexcept>
#include <string>

namespace vorn::cli {

struct SourcePos {
    int line = 1;
    int col = 1;
};

class InputError : public std::runtime_error {
  public:
    InputError(SourcePos pos, const std::string& message)
        : std::runtime_error(message), pos_(pos) {}
    SourcePos pos() const { return pos_; }

  private:
    SourcePos pos_;
};

struct SourceText {
    std::string name;  // as given on the command line; "<stdin>" for "-"
    std::string text;

    // Reads a file, or standard input for "-". Throws InputError when it cannot be read.
    static SourceText read(const std::string& path);
};

std::string format_error(const std::string& file, const InputError& error);

}  // namespace vorn::cli
