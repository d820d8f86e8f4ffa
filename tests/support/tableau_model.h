#pragma once

// A model-checked run of random tableau operations, shared by the randomized test and the fuzz
// target. The reference tracks R, the span of the rows, and the equation recorded for each
// eliminated variable: entering an equation adds it (and every restored equation) to R;
// eliminating x or removing it for good intersects R with {forms without x}; pivots change
// nothing. After every step the tableau's invariants hold, its rows span exactly R (rows in
// solved form are independent, so "each row in R and as many rows as rank R" suffices), and
// every stored equation is untouched.
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

    std::size_t operations() const { return steps_; }

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

    std::set<int> eliminated() const {
        std::set<int> out;
        for (const auto& [v, pos] : t_.elim_index())
            out.insert(v);
        return out;
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
        std::vector<int> out;
        std::set<int> before = eliminated();
        t_.add_equation(eq, enter_now, &out);
        if (!enter_now) {
            pending_.push_back(form_of(eq));
            return;
        }
        if (!t_.initialized()) {
            check(out.empty(), "restoration reported before check");
            reference_.add(form_of(eq));
            return;
        }
        absorb_restored(out, before);
        reference_.add(form_of(eq));
    }

    void absorb_restored(const std::vector<int>& out, const std::set<int>& before) {
        check(std::set<int>(out.begin(), out.end()).size() == out.size(),
              "a variable restored twice");
        for (int v : out) {
            check(before.count(v) == 1, "restored a variable that was not eliminated");
            check(t_.rows().contains(v), "a restored variable is not basic");
            if (!stored_.count(v)) continue;
            reference_.add(stored_[v]);
            stored_.erase(v);
        }
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

    void eliminate() {
        ++steps_;
        la::VarSet vars;
        int n = c_.pick(2) == 0 ? 1 : 1 + static_cast<int>(c_.pick(5));
        for (int i = 0; i < n; ++i)
            vars.insert(some_variable());
        std::set<int> before = eliminated();
        std::size_t positions = t_.elim_eqs().size();
        t_.eliminate_variables(vars);
        for (int x : vars) {
            if (before.count(x) || t_.elim_index().find(x) == nullptr) continue;
            const la::Equation* stored = t_.get_eliminated_equation(x);
            check(stored != nullptr && stored->get_basic_var() == x,
                  "stored equation has another basic variable");
            if (!error_.empty()) return;
            check(t_.elim_index().find(x)->value.second >= positions, "position not fresh");
            Form f = form_of(*stored);
            check(reference_.contains(f), "stored equation not implied by the rows");
            if (vars.size() == 1)
                for (const auto& [v, coeff] : f)
                    check(v == x || !t_.rows().contains(v),
                          "stored equation mentions a basic variable");
            stored_[x] = f;
            reference_.intersect_without(x);
        }
    }

    void uneliminate() {
        ++steps_;
        std::set<int> before = eliminated();
        if (before.empty()) return;
        auto it = before.begin();
        std::advance(it, static_cast<long>(c_.pick(static_cast<unsigned>(before.size()))));
        int x = *it;
        std::vector<int> out;
        bool record = c_.pick(4) != 0;
        t_.uneliminate(x, record ? &out : nullptr);
        check(std::count(out.begin(), out.end(), x) == 0,
              "the restored variable itself was reported");
        std::set<int> after = eliminated();
        check(!after.count(x), "uneliminate left the variable eliminated");
        reference_.add(stored_[x]);
        stored_.erase(x);
        for (int v : before)
            if (v != x && !after.count(v)) {
                check(!record || std::count(out.begin(), out.end(), v) == 1,
                      "a restoration was not reported");
                reference_.add(stored_[v]);
                stored_.erase(v);
            }
    }

    void remove() {
        ++steps_;
        int x = some_variable();
        bool in_tableau = t_.rows().contains(x) || t_.cols().find(x) != nullptr;
        std::size_t equations = t_.equations().size();
        t_.remove_variable(x);
        check(t_.equations().size() == equations - (in_tableau ? 1 : 0),
              "remove_variable kept the equation");
        if (in_tableau) reference_.intersect_without(x);
        check(!t_.rows().contains(x) && t_.cols().find(x) == nullptr,
              "removed variable still present");
    }

    void verify() {
        auto valid = tableau_is_valid(t_);
        if (!valid) return check(false, std::string("invariant: ") + valid.message());
        std::size_t rows = 0;
        for (auto it = t_.rows().begin(); it != t_.rows().end(); ++it, ++rows)
            if (!reference_.contains(form_of(*it.value())))
                return check(false, "row " + std::to_string(it.index()) +
                                        " not implied: " + it.value()->to_str(false));
        check(rows == reference_.rank(), "rows do not span the reference");
        check(eliminated().size() == stored_.size(), "eliminated set differs from the model");
        for (const auto& [v, f] : stored_) {
            const la::Equation* eq = t_.get_eliminated_equation(v);
            check(eq != nullptr && form_of(*eq) == f, "stored equation changed");
        }
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
    int next_slack_ = 20;
    std::size_t steps_ = 0;
    std::string error_;
};

}  // namespace vorn::test
