#include "vorn/io/dimacs_reader.h"

#include <charconv>
#include <limits>

#include "vorn/io/interrupted.h"
#include "vorn/io/parse_error.h"

namespace vorn::io {

namespace {

// Variables beyond this are refused: literals must stay ints, and 2·variables too.
constexpr long long kMaxVariables = std::numeric_limits<int>::max() / 2;

bool blank(char c) {
    return c == ' ' || c == '\t' || c == '\r';
}

// Walks the text token by token, keeping the position of the current one.
class DimacsParser {
  public:
    DimacsParser(std::string_view text, const util::Stop* stop) : text_(text), stop_(stop) {}

    Cnf read() {
        Cnf cnf;
        bool header = false;
        long long declared = 0;
        std::vector<int> clause;
        smt::SourcePos clause_start;
        while (next_token()) {
            if (token_.front() == 'c' && at_line_start_) {
                skip_line();
            } else if (token_ == "%" && at_line_start_) {
                break;
            } else if (token_.front() == 'p' && at_line_start_) {
                if (header) fail(token_pos_, "a second 'p' line");
                if (!cnf.clauses.empty() || !clause.empty())
                    fail(token_pos_, "the 'p' line must come before the clauses");
                if (token_ != "p") fail(token_pos_, "expected 'p cnf VARIABLES CLAUSES'");
                if (!next_token() || at_line_start_ || token_ != "cnf")
                    fail(token_pos_, "expected 'cnf' after 'p'");
                cnf.variables = static_cast<int>(count("variables", kMaxVariables));
                declared = count("clauses", std::numeric_limits<int>::max());
                header = true;
            } else {
                if (!header) fail(token_pos_, "expected the 'p cnf' line before the clauses");
                long long lit = integer();
                if (lit < -cnf.variables || lit > cnf.variables)
                    fail(token_pos_, "literal " + std::string(token_) +
                                         " names a variable beyond " +
                                         std::to_string(cnf.variables));
                if (clause.empty()) clause_start = token_pos_;
                if (lit != 0) {
                    clause.push_back(static_cast<int>(lit));
                    continue;
                }
                if (static_cast<long long>(cnf.clauses.size()) == declared)
                    fail(clause_start,
                         "more clauses than the " + std::to_string(declared) + " declared");
                cnf.clauses.push_back(std::move(clause));
                clause.clear();
                throw_if_interrupted(stop_);
            }
        }
        if (!header) fail(pos_here(), "missing 'p cnf' line");
        if (!clause.empty()) fail(clause_start, "clause not ended by 0");
        if (static_cast<long long>(cnf.clauses.size()) != declared)
            fail(pos_here(), "expected " + std::to_string(declared) + " clauses, found " +
                                 std::to_string(cnf.clauses.size()));
        return cnf;
    }

  private:
    [[noreturn]] static void fail(smt::SourcePos pos, const std::string& message) {
        throw ParseError(pos, message);
    }

    smt::SourcePos pos_here() const { return {line_, static_cast<int>(pos_ - line_begin_) + 1}; }

    // Moves to the next blank-separated token; false at the end of the text.
    bool next_token() {
        int previous_line = line_;
        bool first = pos_ == 0;
        while (pos_ < text_.size() && (blank(text_[pos_]) || text_[pos_] == '\n')) {
            if (text_[pos_] == '\n') {
                ++line_;
                line_begin_ = pos_ + 1;
            }
            ++pos_;
        }
        if (pos_ == text_.size()) return false;
        at_line_start_ = first || line_ != previous_line;
        token_pos_ = pos_here();
        std::size_t start = pos_;
        while (pos_ < text_.size() && !blank(text_[pos_]) && text_[pos_] != '\n')
            ++pos_;
        token_ = text_.substr(start, pos_ - start);
        return true;
    }

    void skip_line() {
        while (pos_ < text_.size() && text_[pos_] != '\n')
            ++pos_;
    }

    long long integer() {
        long long value = 0;
        auto [end, error] = std::from_chars(token_.data(), token_.data() + token_.size(), value);
        if (error == std::errc::result_out_of_range)
            fail(token_pos_, "number " + quoted(token_) + " out of range");
        if (error != std::errc() || end != token_.data() + token_.size())
            fail(token_pos_, "expected an integer, found " + quoted(token_));
        return value;
    }

    // A header count on the 'p' line.
    long long count(const char* what, long long max) {
        smt::SourcePos line_pos = pos_here();
        if (!next_token() || at_line_start_)
            fail(line_pos, std::string("expected the number of ") + what + " on the 'p' line");
        long long value = integer();
        if (value < 0 || value > max)
            fail(token_pos_,
                 std::string("number of ") + what + " " + std::string(token_) + " out of range");
        return value;
    }

    std::string_view text_;
    std::size_t pos_ = 0;
    int line_ = 1;
    std::size_t line_begin_ = 0;
    std::string_view token_;
    smt::SourcePos token_pos_;
    bool at_line_start_ = false;
    const util::Stop* stop_;
};

}  // namespace

Cnf read_dimacs(std::string_view text, const util::Stop* stop) {
    return DimacsParser(text, stop).read();
}

}  // namespace vorn::io
