#include "vorn/io/escape.h"

#include <cstdint>
#include <cstdio>

namespace vorn::io {

namespace {

char32_t decode(std::string_view seq) {
    auto byte = [&seq](std::size_t i) { return static_cast<unsigned char>(seq[i]); };
    if (seq.size() == 1) return byte(0);
    char32_t cp = byte(0) & (0x7F >> seq.size());
    for (std::size_t i = 1; i < seq.size(); ++i)
        cp = (cp << 6) | (byte(i) & 0x3F);
    return cp;
}

// Code points that print as nothing, move the cursor or reorder text.
bool invisible(char32_t cp) {
    return (cp >= 0x80 && cp <= 0x9F) || cp == 0xAD || cp == 0x061C || cp == 0x180E ||
           (cp >= 0x200B && cp <= 0x200F) || (cp >= 0x2028 && cp <= 0x202E) ||
           (cp >= 0x2060 && cp <= 0x206F) || cp == 0xFEFF || (cp >= 0xFFF9 && cp <= 0xFFFB);
}

void append_hex_byte(std::string& out, unsigned char c) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "\\x%02X", c);
    out += buf;
}

}  // namespace

std::size_t utf8_sequence_length(std::string_view text) {
    if (text.empty()) return 0;
    auto c = static_cast<unsigned char>(text[0]);
    if (c < 0x80) return 1;
    std::size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 0;
    if (n == 0 || c > 0xF4 || text.size() < n) return 0;
    for (std::size_t i = 1; i < n; ++i)
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 0;
    char32_t cp = decode(text.substr(0, n));
    static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kSmallest[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    return n;
}

std::string escaped(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        auto c = static_cast<unsigned char>(text[0]);
        std::size_t n = utf8_sequence_length(text);
        if (n == 0) {
            append_hex_byte(out, c);
            text.remove_prefix(1);
            continue;
        }
        if (n > 1) {
            char32_t cp = decode(text.substr(0, n));
            if (invisible(cp)) {
                char buf[16];
                std::snprintf(buf, sizeof buf, "\\u{%04X}", static_cast<unsigned>(cp));
                out += buf;
            } else {
                out.append(text.substr(0, n));
            }
            text.remove_prefix(n);
            continue;
        }
        switch (c) {
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\0':
                out += "\\0";
                break;
            case '\\':
                out += "\\\\";
                break;
            default:
                if (c < 0x20 || c == 0x7F)
                    append_hex_byte(out, c);
                else
                    out += static_cast<char>(c);
        }
        text.remove_prefix(1);
    }
    return out;
}

}  // namespace vorn::io
