#include "vorn/source.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
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
    source.text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) throw InputError({1, 1}, "cannot read file");
    return source;
}

std::string format_error(const std::string& file, const InputError& error) {
    return file + ":" + std::to_string(error.pos().line) + ":" + std::to_string(error.pos().col) +
           ": " + error.what();
}

}  // namespace vorn::cli
