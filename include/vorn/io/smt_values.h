#pragma once

// SMT-LIB text of the answers of `vorn check`: values, models, terms echoed by get-value and
// the error response. Where z3 and cvc5 print differently, this follows cvc5, which follows the
// standard's grammar: an integral Real is a decimal "5.0", a negative one "(- 5.0)", a fraction
// "(/ 1 3)" and a negative fraction "(/ (- 1) 3)"; an Int is "5" or "(- 5)"; a model is "(" and
// ")" on lines of their own with one define-fun per line between.

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "vorn/io/sexpr.h"
#include "vorn/numbers/qnumber.h"
#include "vorn/smt/name_table.h"
#include "vorn/smt/variables.h"

namespace vorn::io {

void append_value(std::string& out, const QNumber& value, smt::Sort sort);
// "(" and ")" on lines of their own, one define-fun per variable of `shown` between them, its
// value from `model` (by variable; past its end 0). Written in pieces, so a large model is not
// held as one string.
void write_model(std::ostream& out, const smt::Variables& vars, const std::vector<QNumber>& model,
                 std::span<const int> shown);

// The expression `id` of `tree` as it reads back: symbols through `symbols`, numbers and strings
// as written, one space between the items of a list. Iterative, like the reader.
void append_sexpr(std::string& out, const SExprTree& tree, SExprTree::Id id,
                  const smt::NameTable& symbols);

// A string literal: the text escaped to one line (io/escape.h), its quotes doubled.
std::string smt_string(std::string_view text);
// (error "message").
std::string error_response(std::string_view message);

}  // namespace vorn::io
