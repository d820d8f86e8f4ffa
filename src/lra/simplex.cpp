// Simplex lifecycle: variables, terms and their rows, levels.

#include "vorn/lra/simplex.h"

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
}

void Simplex::pop(std::size_t n) {
    sat_ = false;
    bounds_.pop(n);
    if (in_conflict() && bounds_.level() < conflict_level_) conflict_level_ = kNoConflict;
}

}  // namespace vorn::lra
