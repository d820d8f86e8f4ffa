#pragma once

// The one kind of error the readers report about their input: the file, a position and a
// one-line message, shown as "FILE:LINE:COL: message". format_error escapes the whole line, so a
// message may quote input as it is and still cannot add a line or hide a character. The readers
// of text throw it without a file; read_problem and SourceText::read name the file.

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "vorn/io/source.h"

namespace vorn::io {

class ParseError : public std::runtime_error {
  public:
    ParseError(smt::SourcePos pos, const std::string& message)
        : std::runtime_error(message), message_(message), pos_(pos) {}
    smt::SourcePos pos() const { return pos_; }
    int line() const { return pos_.line; }
    int column() const { return pos_.col; }
    // Empty when the text was read without a file name.
    const std::string& file() const { return file_; }
    void set_file(std::string file) { file_ = std::move(file); }
    // The whole message: what() stops at a NUL byte that the message may quote.
    const std::string& message() const { return message_; }

  private:
    std::string message_;
    smt::SourcePos pos_;
    std::string file_;
};

// 'text' for a message; long text is cut to its first 80 bytes (at a character boundary)
// followed by "...".
std::string quoted(std::string_view text);

// "FILE:LINE:COL: message", file name and message escaped (escape.h); `file` stands in when the
// error names none.
std::string format_error(std::string_view file, const ParseError& error);

}  // namespace vorn::io
