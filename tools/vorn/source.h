#pragma once

// Input text with its name, and the one kind of error the tool reports: a position and a
// message, printed as "FILE:LINE:COL: message".

#include <stdexcept>
#include <string>
#include <string_view>

namespace vorn::cli {

struct SourcePos {
    int line = 1;
    int col = 1;
};

class InputError : public std::runtime_error {
  public:
    InputError(SourcePos pos, const std::string& message)
        : std::runtime_error(message), pos_(pos) {}
    SourcePos pos() const { return pos_; }

  private:
    SourcePos pos_;
};

struct SourceText {
    std::string name;  // as given on the command line; "<stdin>" for "-"
    std::string text;

    // Reads a file, or standard input for "-". Throws InputError when it cannot be read.
    static SourceText read(const std::string& path);
};

std::string format_error(const std::string& file, const InputError& error);

// Calls f(line, line_number) for every line of `text`, numbered from 1, without its line break
// (a trailing '\r' included) and without everything from `comment` on.
template <class F>
void for_each_line(std::string_view text, char comment, F&& f) {
    int line_no = 0;
    while (!text.empty()) {
        ++line_no;
        std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        if (auto mark = line.find(comment); mark != std::string_view::npos)
            line = line.substr(0, mark);
        f(line, line_no);
    }
}

}  // namespace vorn::cli
