#include "vorn/lra/branch_and_bound.h"

namespace vorn::lra {

// Placeholder until branching lands: the relaxation decides Unsat, an integral model is Sat,
// anything else is Unknown.
void BranchAndBound::set_integer(int var) {
    if (static_cast<std::size_t>(var) >= integer_.size()) integer_.resize(var + 1, 0);
    integer_[var] = 1;
}

bool BranchAndBound::is_integer(int var) const {
    return static_cast<std::size_t>(var) < integer_.size() && integer_[var] != 0;
}

Result BranchAndBound::check() {
    proof_.clear();
    ++stats_.nodes;
    Result result = simplex_.check();
    if (result == Result::Unsat) {
        ProofNode leaf;
        leaf.farkas = simplex_.conflict();
        proof_.push_back(std::move(leaf));
        return result;
    }
    if (result != Result::Sat) return result;
    for (std::size_t var = 1; var < integer_.size(); ++var)
        if (integer_[var] != 0 && !simplex_.value(static_cast<int>(var)).is_integer())
            return Result::Unknown;
    return Result::Sat;
}

}  // namespace vorn::lra
