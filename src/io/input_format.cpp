#include "vorn/io/input_format.h"

#include <algorithm>
#include <cctype>

#include "vorn/io/decompress.h"
#include "vorn/io/parse_error.h"

namespace vorn::io {

std::optional<InputFormat> format_named(std::string_view name) {
    if (name == "lin") return InputFormat::Lin;
    if (name == "smt2") return InputFormat::Smt2;
    if (name == "mps") return InputFormat::Mps;
    if (name == "lp") return InputFormat::Lp;
    if (name == "cnf") return InputFormat::Cnf;
    return std::nullopt;
}

InputFormat input_format(const SourceText& source, std::optional<InputFormat> forced) {
    if (forced) return *forced;
    std::string name(without_compression(source.name));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (name.ends_with(".smt2")) return InputFormat::Smt2;
    if (name.ends_with(".lin")) return InputFormat::Lin;
    if (name.ends_with(".mps")) return InputFormat::Mps;
    if (name.ends_with(".lp")) return InputFormat::Lp;
    if (name.ends_with(".cnf")) return InputFormat::Cnf;
    if (source.standard_input) {
        auto first = source.text.find_first_not_of(" \t\r\n");
        bool smt =
            first != std::string::npos && (source.text[first] == '(' || source.text[first] == ';');
        return smt ? InputFormat::Smt2 : InputFormat::Lin;
    }
    throw ParseError({1, 1},
                     "unknown input format: expected a .lin, .smt2, .mps or .lp file, or "
                     "--format-in");
}

}  // namespace vorn::io
