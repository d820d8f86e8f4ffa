#pragma once

// The one kind of error the tool reports about its input: a position and a message, printed as
// the single line "FILE:LINE:COL: message". format_error escapes the whole line, so a message
// may quote input as it is and still cannot add a line or hide a character.

#include <stdexcept>
#include <string>
#include <string_view>

#include "vorn/io/source.h"

namespace vorn::io {

class ParseError : public std::runtime_error {
  public:
    ParseError(smt::SourcePos pos, const std::string& message)
        : std::runtime_error(message), message_(message), pos_(pos) {}
    smt::SourcePos pos() const { return pos_; }
    // The whole message: what() stops at a NUL byte that the message may quote.
    const std::string& message() const { return message_; }

  private:
    std::string message_;
    smt::SourcePos pos_;
};

// 'text' for a message; long text is cut to its first 80 bytes (at a character boundary)
// followed by "...".
std::string quoted(std::string_view text);

// "FILE:LINE:COL: message", file name and message escaped (cli/escape.h).
std::string format_error(std::string_view file, const ParseError& error);

}  // namespace vorn::io
