#pragma once

// A model-checked run of random tableau operations, shared by the randomized test and the fuzz
// target. The reference tracks R, the span of the rows, and the equation recorded for each
// eliminated variable: entering an equation adds it (and every restored equation) to R;
// eliminating x or removing it for good intersects R with {forms without x}; pivots change
// nothing. After every step the tableau's invariants hold, its rows span exactly R (rows in
// solved form are independent, so "each row in R and as many rows as rank R" suffices), every
// stored equation is untouched, and the integrality flag says whether every recorded equation
// had integer coefficients. Each operation also checks its own contract: the order in which
// restorations are reported (latest elimination first, in blocks), the pivot row chosen for an
// elimination or removal (fewest entries, ties to the smallest basic variable), and that a
// basic variable is eliminated with its very row.
//
// `Choices` supplies the randomness: `unsigned pick(unsigned n)` in [0, n) and
// `QNumber coefficient()` (never zero).

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/row_space.h"
#include "support/tableau_checker.h"
#include "vorn/la/eliminate_greedy.h"

namespace vorn::test {

template <class Choices>
class TableauModel {
  public:
    explicit TableauModel(Choices& choices) : c_(choices) {}

    // One operation; returns a description of the first fault found, or "".
    std::string step() {
        if (!t_.initialized()) {
            if (steps_++ > 8 && c_.pick(6) == 0) {
                t_.check();
                for (Form& f : pending_)
                    reference_.add(f);
                pending_.clear();
            } else {
                add(c_.pick(2) == 0);
            }
        } else {
            unsigned op = c_.pick(100);
            if (op < 30)
                add(true);
            else if (op < 60)
                pivot();
            else if (op < 75)
                eliminate();
            else if (op < 88)
                uneliminate();
            else if (op < 96)
                remove();
            else
                (void)t_.to_str();
        }
        if (error_.empty()) verify();
        return error_;
    }

    // Restores every eliminated variable, checking after each; returns the first fault or "".
    std::string restore_everything() {
        if (!t_.initialized()) return error_;
        while (error_.empty() && !stored_.empty()) {
            uneliminate();
            if (error_.empty()) verify();
        }
        if (error_.empty()) check(t_.elim_index().empty(), "variables left eliminated");
        return error_;
    }

  private:
    void check(bool ok, const std::string& what) {
        if (!ok && error_.empty()) error_ = what;
    }

    int some_variable() {
        if (!seen_.empty() && c_.pick(3) == 0) {
            auto it = seen_.begin();
            std::advance(it, static_cast<long>(c_.pick(static_cast<unsigned>(seen_.size()))));
            return *it;
        }
        return 1 + static_cast<int>(c_.pick(14));
    }

    std::map<int, unsigned long> positions() const {
        std::map<int, unsigned long> out;
        for (const auto& [v, pos] : t_.elim_index())
            out[v] = pos;
        return out;
    }

    // The restorations entering an equation of form `f` (basic variable `basic`) must report:
    // its eliminated variables latest first, as one block, then recursively what each of their
    // stored equations needs. `still` holds the positions of the variables not restored yet.
    void expect_restorations(const Form& f, int basic, std::map<int, unsigned long>& still,
                             std::vector<int>& out) const {
        std::vector<int> block;
        for (const auto& entry : f)
            if (entry.first != basic && still.count(entry.first)) block.push_back(entry.first);
        std::sort(block.begin(), block.end(), [&](int a, int b) { return still[a] > still[b]; });
        out.insert(out.end(), block.begin(), block.end());
        for (int x : block) {
            expect_restorations(stored_.at(x), x, still, out);
            still.erase(x);
        }
    }

    // Checks a call that entered `f` against the restorations it reported (null: none asked)
    // and takes the restored equations back into the reference.
    void absorb_restorations(const Form& f, int basic, std::map<int, unsigned long> before,
                             const std::vector<int>* reported) {
        std::vector<int> expected;
        expect_restorations(f, basic, before, expected);
        if (reported != nullptr) check(*reported == expected, "restorations reported wrongly");
        for (int v : expected) {
            check(t_.rows().contains(v), "a restored variable is not basic");
            reference_.add(stored_.at(v));
            stored_.erase(v);
        }
    }

    void add(bool enter_now) {
        ++steps_;
        int basic = next_slack_++;
        std::vector<la::Equation::VarCoeff> entries{{basic, c_.coefficient()}};
        if (c_.pick(3) == 0) entries.push_back({0, c_.coefficient()});
        int n = 1 + static_cast<int>(c_.pick(4));
        for (int i = 0; i < n; ++i) {
            // Before check(), only structural variables: pending equations must not mention
            // each other's basic variables.
            int v = t_.initialized() ? some_variable() : 1 + static_cast<int>(c_.pick(14));
            entries.push_back({v, c_.coefficient()});
        }
        la::Equation eq(basic, std::move(entries));
        if (eq.coeff_of(basic) == nullptr) return;
        for (const auto& e : eq.coeffs_)
            if (e.var >= 1) seen_.insert(e.var);
        std::vector<int> out{-1};  // what was there before is kept
        bool record = c_.pick(4) != 0;
        std::map<int, unsigned long> before = positions();
        t_.add_equation(eq, enter_now, record ? &out : nullptr);
        if (!enter_now) {
            pending_.push_back(form_of(eq));
            return;
        }
        check(out.front() == -1, "the caller's list lost its contents");
        out.erase(out.begin());
        if (!t_.initialized()) {
            check(out.empty(), "restoration reported before check");
        } else {
            absorb_restorations(form_of(eq), basic, before, record ? &out : nullptr);
        }
        reference_.add(form_of(eq));
    }

    void pivot() {
        ++steps_;
        std::vector<int> basics;
        for (auto it = t_.rows().begin(); it != t_.rows().end(); ++it)
            basics.push_back(it.index());
        if (basics.empty()) return;
        int leaving = basics[c_.pick(static_cast<unsigned>(basics.size()))];
        std::vector<int> candidates;
        for (const auto& e : t_.rows().at(leaving)->coeffs_)
            if (e.var >= 1 && e.var != leaving) candidates.push_back(e.var);
        if (candidates.empty()) return;
        t_.pivot(leaving, candidates[c_.pick(static_cast<unsigned>(candidates.size()))]);
    }

    // The row a non-basic x is pivoted into: fewest entries, ties to the smallest basic variable.
    const la::Equation* expected_pivot_row(int x) const {
        const auto* column = t_.cols().find(x);
        if (column == nullptr) return nullptr;
        const la::Equation* best = nullptr;
        for (int b : column->value.second) {
            const la::Equation* row = t_.rows().at(b);
            if (best == nullptr || row->coeffs_.size() < best->coeffs_.size()) best = row;
        }
        return best;
    }

    void eliminate() {
        ++steps_;
        la::VarSet vars;
        int n = c_.pick(2) == 0 ? 1 : 1 + static_cast<int>(c_.pick(5));
        for (int i = 0; i < n; ++i)
            vars.insert(some_variable());
        std::map<int, unsigned long> before = positions();
        std::size_t records = t_.elim_eqs().size();
        // With one variable its row is known in advance: its own, or the pivot row.
        const la::Equation* row = nullptr;
        if (n == 1) {
            int x = *vars.begin();
            row = t_.rows().contains(x) ? t_.rows().at(x) : expected_pivot_row(x);
        }
        if (c_.pick(3) == 0)
            la::eliminate_greedy(t_, vars);
        else
            t_.eliminate_variables(vars);
        // Newly eliminated variables, in the order they were eliminated.
        std::vector<std::pair<unsigned long, int>> fresh;
        for (int x : vars)
            if (!before.count(x) && t_.elim_index().find(x) != nullptr)
                fresh.push_back({t_.elim_index().find(x)->value.second, x});
        std::sort(fresh.begin(), fresh.end());
        check(fresh.size() == t_.elim_eqs().size() - records, "records without an elimination");
        for (auto [position, x] : fresh) {
            const la::Equation* stored = t_.get_eliminated_equation(x);
            check(stored != nullptr && stored->get_basic_var() == x,
                  "stored equation has another basic variable");
            check(position >= records, "position not fresh");
            check(row == nullptr || stored == row, "eliminated through the wrong row");
            if (!error_.empty()) return;
            Form f = form_of(*stored);
            check(reference_.contains(f), "stored equation not implied by the rows");
            if (n == 1)
                for (const auto& [v, coeff] : f)
                    check(v == x || !t_.rows().contains(v),
                          "stored equation mentions a basic variable");
            integral_ = integral_ && std::all_of(f.begin(), f.end(), [](const auto& e) {
                            return e.second.get_den() == 1;
                        });
            stored_[x] = f;
            reference_.intersect_without(x);
        }
    }

    void uneliminate() {
        ++steps_;
        std::map<int, unsigned long> before = positions();
        if (before.empty()) return;
        auto it = before.begin();
        std::advance(it, static_cast<long>(c_.pick(static_cast<unsigned>(before.size()))));
        int x = it->first;
        std::vector<int> out;
        bool record = c_.pick(4) != 0;
        t_.uneliminate(x, record ? &out : nullptr);
        check(t_.elim_index().find(x) == nullptr, "uneliminate left the variable eliminated");
        check(t_.rows().contains(x), "the restored variable is not basic");
        Form f = stored_.at(x);
        stored_.erase(x);
        before.erase(x);
        absorb_restorations(f, x, before, record ? &out : nullptr);
        reference_.add(f);
    }

    void remove() {
        ++steps_;
        int x = some_variable();
        bool basic = t_.rows().contains(x);
        const la::Equation* row = basic ? t_.rows().at(x) : expected_pivot_row(x);
        int row_basic = row == nullptr ? 0 : row->get_basic_var();
        std::size_t equations = t_.equations().size();
        t_.remove_variable(x);
        check(t_.equations().size() == equations - (row != nullptr ? 1 : 0),
              "remove_variable kept the equation");
        check(row == nullptr || !t_.rows().contains(row_basic), "removed through the wrong row");
        if (row != nullptr) reference_.intersect_without(x);
        check(!t_.rows().contains(x) && t_.cols().find(x) == nullptr,
              "removed variable still present");
    }

    void verify() {
        if (std::string fault = tableau_fault(t_); !fault.empty())
            return check(false, "invariant: " + fault);
        std::size_t rows = 0;
        for (auto it = t_.rows().begin(); it != t_.rows().end(); ++it, ++rows)
            if (!reference_.contains(form_of(*it.value())))
                return check(false, "row " + std::to_string(it.index()) +
                                        " not implied: " + it.value()->to_str(false));
        check(rows == reference_.rank(), "rows do not span the reference");
        check(t_.elim_index().size() == stored_.size(), "eliminated set differs from the model");
        for (const auto& [v, f] : stored_) {
            const la::Equation* eq = t_.get_eliminated_equation(v);
            check(eq != nullptr && form_of(*eq) == f, "stored equation changed");
        }
        check(t_.elim_integral() == integral_, "integrality flag differs from the records");
        std::vector<int> all = t_.get_all_variables();
        check(all.size() == t_.get_num_variables(), "get_all_variables size");
        check(std::set<int>(all.begin(), all.end()).size() == all.size(),
              "a variable listed twice");
    }

    Choices& c_;
    la::Tableau t_{0};
    RowSpace reference_;
    std::vector<Form> pending_;
    std::map<int, Form> stored_;
    std::set<int> seen_;
    bool integral_ = true;
    int next_slack_ = 20;
    std::size_t steps_ = 0;
    std::string error_;
};

}  // namespace vorn::test
