#include "vorn/format.h"

namespace vorn::cli {

namespace {

void append_term(std::string& out, const QNumber& c, const std::string* name, bool first) {
    bool negative = c.sign() < 0;
    if (first)
        out += negative ? "-" : "";
    else
        out += negative ? " - " : " + ";
    QNumber magnitude = negative ? -c : c;
    if (name == nullptr) {
        out += magnitude.to_string();
        return;
    }
    if (!magnitude.is_one()) {
        out += magnitude.to_string();
        out += '*';
    }
    out += *name;
}

}  // namespace

std::string format_sum(const LinearExpr::Entries& terms, const Symbols& names) {
    std::string out;
    bool first = true;
    const QNumber* constant = nullptr;
    for (const auto& t : terms) {
        if (t.var == 0) {
            constant = &t.coeff;
            continue;
        }
        append_term(out, t.coeff, &names.name(t.var), first);
        first = false;
    }
    if (constant != nullptr) {
        append_term(out, *constant, nullptr, first);
        first = false;
    }
    if (first) out = "0";
    return out;
}

}  // namespace vorn::cli
