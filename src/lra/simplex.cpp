// Simplex lifecycle: variables, terms and their rows, levels.

#include "vorn/lra/simplex.h"

#include <algorithm>

#include <cassert>

namespace vorn::lra {

Simplex::Simplex(SimplexOptions options)
    : options_(options), tableau_(std::make_unique<la::Tableau>(0)) {
    add_variable();  // variable 0, the constant of the equations, is never used
}

Simplex::Simplex(Simplex&&) noexcept = default;
Simplex& Simplex::operator=(Simplex&&) noexcept = default;
Simplex::~Simplex() = default;

void Simplex::reset() {
    *this = Simplex(options_);
}

int Simplex::add_variable() {
    int v = static_cast<int>(values_.size());
    values_.emplace_back();
    term_of_.push_back(-1);
    queued_.push_back(0);
    priority_.push_back(static_cast<std::uint32_t>(v));
    leaves_.push_back(0);
    bounds_.resize(values_.size());
    return v;
}

int Simplex::new_variable() {
    sat_ = false;
    return add_variable();
}

void Simplex::reserve(int n, std::size_t bounds) {
    auto size = static_cast<std::size_t>(n) + 1;
    bounds_.reserve(size, bounds);
    values_.reserve(size);
    term_of_.reserve(size);
    queued_.reserve(size);
    priority_.reserve(size);
    leaves_.reserve(size);
}

TermVar Simplex::term_variable(const TermEntries& entries) {
    TermEntries normal(entries);
    QNumber scale = normalize_term(normal);
    assert(!normal.empty() && "term_variable: the term has no variable");
    for ([[maybe_unused]] const auto& e : normal)
        assert(e.var >= 1 && e.var <= num_variables() && !is_slack(e.var) &&
               "term_variable: entries must be structural variables");
    if (normal.size() == 1) return {normal.front().var, scale};
    auto [index, fresh] = terms_.intern(normal);
    if (!fresh) return {slack_of_[index], scale};

    sat_ = false;
    int slack = add_variable();
    term_of_[slack] = index;
    slack_of_.push_back(slack);
    normal.push_back({slack, QNumber(-1)});  // the row  slack = term
    la::Equation row(slack, std::move(normal));
    if (!initialized_) {
        tableau_->add_equation(row, false, nullptr);
        return {slack, scale};
    }
    restored_.clear();
    tableau_->add_equation(row, true, &restored_);
    absorb_restored();
    compute_row_value(slack);  // unbounded yet: never violated
    return {slack, scale};
}

void Simplex::absorb_restored() {
    stats_.restored += restored_.size();
    for (int v : restored_) {
        compute_row_value(v);
        queue_if_violated(v);
    }
}

void Simplex::push() {
    bounds_.push();
    term_marks_.push_back(terms_.size());
}

void Simplex::pop(std::size_t n) {
    sat_ = false;
    std::size_t target = bounds_.level() - std::min(n, bounds_.level());
    bounds_.pop(n);
    if (in_conflict() && bounds_.level() < conflict_level_) conflict_level_ = kNoConflict;
    if (target < term_marks_.size()) {
        std::size_t keep = term_marks_[target];
        term_marks_.resize(target);
        if (initialized_) reclaim_slacks(std::max(keep, terms_at_first_check_));
    }
}

void Simplex::reclaim_slacks(std::size_t keep) {
    if (keep >= terms_.size()) return;
    for (std::size_t index = terms_.size(); index-- > keep;) {
        int slack = slack_of_[index];
        const auto* column = tableau_->cols().find(slack);
        int basic = 0;  // the row a non-basic slack is pivoted into, whose variable leaves
        if (!tableau_->rows().contains(slack) && column != nullptr && !column->value.second.empty())
            basic = tableau_->pivot_row_in(column->value.second);
        tableau_->remove_variable(slack);
        term_of_[slack] = -1;
        values_[slack].set_zero();
        // Non-basic now, so within its bounds: the row it left held at any value of it.
        if (basic != 0) {
            if (bounds_.has_lower(basic) && values_[basic] < bounds_.lower_value(basic))
                update_non_basic(basic, bounds_.lower_value(basic));
            else if (bounds_.has_upper(basic) && values_[basic] > bounds_.upper_value(basic))
                update_non_basic(basic, bounds_.upper_value(basic));
        }
    }
    terms_.truncate(keep);
    slack_of_.resize(keep);
}

}  // namespace vorn::lra
