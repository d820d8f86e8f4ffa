#pragma once

// Text shown inside a one-line message. Everything that could break the line or hide in it is
// written as an escape: control bytes (\n, \r, \t, \0, \xNN), backslashes (\\), bytes that are
// not UTF-8 (\xNN), and invisible or line-breaking code points such as the byte-order mark, C1
// controls, line and paragraph separators and bidirectional controls (\u{FEFF}). Printable
// UTF-8 stays as it is.

#include <cstddef>
#include <string>
#include <string_view>

namespace vorn::io {

std::string escaped(std::string_view text);

// The length of the well-formed UTF-8 sequence at the start of `text` (1 for ASCII), 0 when it
// is not one (a stray continuation byte, an overlong form, a surrogate, a cut sequence).
std::size_t utf8_sequence_length(std::string_view text);

}  // namespace vorn::io
