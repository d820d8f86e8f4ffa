#include "vorn/io/parse_error.h"

#include "vorn/io/escape.h"

namespace vorn::io {

std::string quoted(std::string_view text) {
    constexpr std::size_t kShown = 80;
    if (text.size() <= kShown) return "'" + std::string(text) + "'";
    std::size_t cut = kShown;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut;  // not inside a UTF-8 sequence
    return "'" + std::string(text.substr(0, cut)) + "'...";
}

std::string format_error(std::string_view file, const ParseError& error) {
    return escaped(error.file().empty() ? file : error.file()) + ":" +
           std::to_string(error.pos().line) + ":" + std::to_string(error.pos().col) + ": " +
           escaped(error.message());
}

}  // namespace vorn::io
