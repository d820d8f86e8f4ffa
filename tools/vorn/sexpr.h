#pragma once

// SMT-LIB 2 s-expressions with their source positions: comments, |quoted symbols|, string
// literals with "" escapes, keywords, numerals and decimals.

#include <memory>
#include <string>
#include <vector>

#include "vorn/source.h"

namespace vorn::cli {

struct SExpr {
    enum class Kind { List, Symbol, Numeral, Decimal, String, Keyword };
    Kind kind = Kind::List;
    std::string text;  // a symbol's name without bars, a literal's content
    std::vector<SExpr> items;
    SourcePos pos;

    bool is_symbol(const char* name) const { return kind == Kind::Symbol && text == name; }
    bool is_list() const { return kind == Kind::List; }
};

// Reads top-level expressions one at a time, so that a long script never has to be held as one
// tree. The text must outlive the reader.
class SExprReader {
  public:
    explicit SExprReader(const std::string& text);
    ~SExprReader();
    bool next(SExpr& out);  // false at the end of the text

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Every top-level expression of the text, in order.
std::vector<SExpr> parse_sexprs(const std::string& text);

}  // namespace vorn::cli
