#include "vorn/io/smt_values.h"

#include <ostream>

#include <vector>

#include "vorn/io/escape.h"
#include "vorn/smt/problem_text.h"

namespace vorn::io {

namespace {

void append_magnitude(std::string& out, std::string_view digits, bool negative, bool real) {
    if (negative) out += "(- ";
    out += digits;
    if (real) out += ".0";
    if (negative) out += ')';
}

}  // namespace

void append_value(std::string& out, const QNumber& value, smt::Sort sort) {
    std::string text = value.to_string();
    bool negative = !text.empty() && text[0] == '-';
    std::string_view magnitude = std::string_view(text).substr(negative ? 1 : 0);
    std::size_t slash = magnitude.find('/');
    if (slash == std::string_view::npos)
        return append_magnitude(out, magnitude, negative, sort == smt::Sort::Real);
    out += "(/ ";
    append_magnitude(out, magnitude.substr(0, slash), negative, false);
    out += ' ';
    out += magnitude.substr(slash + 1);
    out += ')';
}

namespace {

bool is_syntax(std::string_view word) {
    for (std::string_view w : {"let", "!", "_", "as", "forall", "exists", "match", "par"})
        if (word == w) return true;
    return false;
}

}  // namespace

void append_sexpr(std::string& out, const SExprTree& tree, SExprTree::Id id,
                  const smt::NameTable& symbols) {
    std::vector<SExprTree::Id> open;  // ends of the lists not closed yet
    SExprTree::Id end = tree.next(id);
    for (SExprTree::Id i = id; i != end; ++i) {
        while (!open.empty() && open.back() == i) {
            out += ')';
            open.pop_back();
        }
        if (i != id && out.back() != '(') out += ' ';
        const SNode& n = tree[i];
        switch (n.kind) {
            case SNode::Kind::List:
                out += '(';
                open.push_back(n.end);
                break;
            case SNode::Kind::Symbol:
                // As written where a list starts with syntax (let, !, _, as, ...), not a symbol.
                if (i != id && tree[i - 1].kind == SNode::Kind::List &&
                    is_syntax(symbols.name(n.symbol)))
                    out += symbols.name(n.symbol);
                else
                    smt::append_symbol(out, symbols.name(n.symbol));
                break;
            case SNode::Kind::Keyword:
                out += symbols.name(n.symbol);
                break;
            case SNode::Kind::String:
                out += '"';
                out += tree.text(n);  // as written, its quotes still doubled
                out += '"';
                break;
            default:
                out += tree.text(n);
        }
    }
    out.append(open.size(), ')');
}

void write_model(std::ostream& out, const smt::Variables& vars, const std::vector<QNumber>& model,
                 std::span<const int> shown) {
    std::string text = "(\n";
    for (int v : shown) {
        smt::Sort sort = vars.sort(v);
        text += "(define-fun ";
        smt::append_name(text, vars, v);
        QNumber value = static_cast<std::size_t>(v) < model.size() ? model[v] : QNumber();
        if (sort == smt::Sort::Bool)
            text += value.is_zero() ? " () Bool false" : " () Bool true";
        else
            text += sort == smt::Sort::Int ? " () Int " : " () Real ";
        if (sort != smt::Sort::Bool) append_value(text, value, sort);
        text += ")\n";
        if (text.size() > (1 << 16)) {
            out << text;
            text.clear();
        }
    }
    out << text << ")\n";
}

std::string smt_string(std::string_view text) {
    std::string out = "\"";
    for (char c : escaped(text))
        out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + '"';
}

std::string error_response(std::string_view message) {
    return "(error " + smt_string(message) + ")";
}

}  // namespace vorn::io
