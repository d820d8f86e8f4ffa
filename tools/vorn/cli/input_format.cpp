#include "cli/input_format.h"

#include <algorithm>
#include <cctype>

#include "cli/input_error.h"
#include "cli/lin_reader.h"
#include "cli/smt_reader.h"

namespace vorn::cli {

InputFormat input_format(const SourceText& source, std::optional<InputFormat> forced) {
    if (forced) return *forced;
    std::string name = source.name;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (name.ends_with(".smt2")) return InputFormat::Smt2;
    if (name.ends_with(".lin")) return InputFormat::Lin;
    if (source.standard_input) {
        auto first = source.text.find_first_not_of(" \t\r\n");
        bool smt =
            first != std::string::npos && (source.text[first] == '(' || source.text[first] == ';');
        return smt ? InputFormat::Smt2 : InputFormat::Lin;
    }
    throw InputError({1, 1}, "unknown input format: expected a .lin or .smt2 file, or --format-in");
}

Problem read_problem(const SourceText& source, std::optional<InputFormat> forced) {
    return input_format(source, forced) == InputFormat::Smt2 ? read_smt2(source.text)
                                                             : read_lin(source.text);
}

}  // namespace vorn::cli
