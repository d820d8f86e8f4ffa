#include "vorn/format.h"

namespace vorn::cli {

std::string format_sum(const LinearExpr::Entries& terms, const Symbols& names) {
    std::string out;
    bool first = true;
    const QNumber* constant = nullptr;
    for (const auto& t : terms) {
        if (t.var == 0) {
            constant = &t.coeff;
            continue;
        }
        la::append_sum_term(out, t.coeff, names.name(t.var), first);
        first = false;
    }
    if (constant != nullptr) {
        la::append_sum_term(out, *constant, {}, first);
        first = false;
    }
    if (first) out = "0";
    return out;
}

}  // namespace vorn::cli
