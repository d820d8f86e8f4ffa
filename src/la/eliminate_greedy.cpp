#include "vorn/la/eliminate_greedy.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace vorn::la {

namespace {

struct Candidate {
    std::uint64_t cost;
    int var;
    int pivot_row;  // the row the tableau will pivot into (0 for a basic variable)
};

// Marks indexed by variable number, cleared in O(1) by bumping the round stamp.
class Marks {
  public:
    void next_round() { ++stamp_; }
    void set(int v) {
        if (static_cast<std::size_t>(v) >= stamps_.size()) stamps_.resize(2 * v + 1, 0);
        stamps_[v] = stamp_;
    }
    bool test(int v) const {
        return static_cast<std::size_t>(v) < stamps_.size() && stamps_[v] == stamp_;
    }

  private:
    std::vector<std::uint32_t> stamps_;
    std::uint32_t stamp_ = 0;
};

std::vector<Candidate> rank(const Tableau& t, std::vector<int>& pending) {
    std::vector<Candidate> ranked;
    std::vector<int> still_pending;
    for (int x : pending) {
        if (t.rows().contains(x)) {
            ranked.push_back({0, x, 0});
            continue;
        }
        auto* node = t.cols().find(x);
        if (node == nullptr) continue;  // eliminated already, or in no row: nothing to do
        const VarSet& col = node->value.second;
        int row = t.pivot_row_in(col);
        std::uint64_t row_len = t.rows().at(row)->coeffs_.size();
        ranked.push_back({(col.size() - 1) * (row_len - 1) + 1, x, row});
    }
    std::sort(ranked.begin(), ranked.end(), [](const Candidate& a, const Candidate& b) {
        return a.cost != b.cost ? a.cost < b.cost : a.var < b.var;
    });
    for (const Candidate& c : ranked)
        still_pending.push_back(c.var);
    pending.swap(still_pending);
    return ranked;
}

// A set built from variables in any order: sorted first, so that every insertion appends.
VarSet to_set(std::vector<int>& vars) {
    std::sort(vars.begin(), vars.end());
    VarSet set;
    for (int v : vars)
        set.insert(v);
    return set;
}

// Cheapest first, every candidate whose pivot leaves the others' rows and columns alone.
VarSet independent_batch(const Tableau& t, const std::vector<Candidate>& ranked, Marks& claimed,
                         Marks& touched) {
    claimed.next_round();
    touched.next_round();
    // Collected in cost order; inserting into the sorted set in that order would shift it on
    // every insertion, quadratic in the batch size.
    std::vector<int> batch;
    for (const Candidate& c : ranked) {
        if (c.cost == 0) {
            batch.push_back(c.var);
            claimed.set(c.var);
            continue;
        }
        if (touched.test(c.var)) continue;
        const VarSet& col = t.cols().find(c.var)->value.second;
        bool clash = false;
        for (int b : col)
            clash = clash || claimed.test(b);
        if (clash) continue;
        batch.push_back(c.var);
        for (int b : col) {
            claimed.set(b);
            for (const auto& e : t.rows().at(b)->coeffs_)
                if (e.var >= 1) touched.set(e.var);
        }
    }
    return to_set(batch);
}

}  // namespace

GreedyEliminationStats eliminate_greedy(Tableau& tableau, const VarSet& vars) {
    GreedyEliminationStats stats;
    std::vector<int> pending(vars.begin(), vars.end());
    Marks claimed, touched;
    std::size_t records = tableau.elim_eqs().size();
    while (true) {
        std::vector<Candidate> ranked = rank(tableau, pending);
        if (ranked.empty()) break;
        tableau.eliminate_variables(independent_batch(tableau, ranked, claimed, touched));
        ++stats.rounds;
    }
    stats.eliminated = tableau.elim_eqs().size() - records;
    return stats;
}

}  // namespace vorn::la
