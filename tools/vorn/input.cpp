#include "vorn/input.h"

#include "vorn/lin_parser.h"
#include "vorn/smt_parser.h"

namespace vorn::cli {

namespace {

bool ends_with(const std::string& s, const std::string& suffix) {
    return s.size() >= suffix.size() &&
           s.compare(s.size() - suffix.size(), suffix.size(), suffix) == 0;
}

}  // namespace

Problem parse_input(const SourceText& source) {
    if (ends_with(source.name, ".smt2")) return parse_smt2(source.text);
    if (ends_with(source.name, ".lin")) return parse_lin(source.text);
    if (source.name == "<stdin>") {
        auto first = source.text.find_first_not_of(" \t\r\n");
        bool smt =
            first != std::string::npos && (source.text[first] == '(' || source.text[first] == ';');
        return smt ? parse_smt2(source.text) : parse_lin(source.text);
    }
    throw InputError({1, 1}, "unknown input format: expected a .lin or .smt2 file");
}

}  // namespace vorn::cli
