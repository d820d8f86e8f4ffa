#include "vorn/source.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

namespace vorn::cli {

SourceText SourceText::read(const std::string& path) {
    SourceText source;
    if (path == "-") {
        source.name = "<stdin>";
        std::ostringstream buffer;
        buffer << std::cin.rdbuf();
        source.text = buffer.str();
        return source;
    }
    source.name = path;
    std::ifstream in(path, std::ios::binary);
    if (!in) throw InputError({1, 1}, std::string("cannot open file: ") + std::strerror(errno));
    std::ostringstream buffer;
    buffer << in.rdbuf();  // one bulk copy, not a character at a time
    if (in.bad()) throw InputError({1, 1}, "cannot read file");
    source.text = std::move(buffer).str();
    return source;
}

std::string format_error(const std::string& file, const InputError& error) {
    return file + ":" + std::to_string(error.pos().line) + ":" + std::to_string(error.pos().col) +
           ": " + error.what();
}

}  // namespace vorn::cli
