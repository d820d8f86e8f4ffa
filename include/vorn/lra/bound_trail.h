#pragma once

// BoundTrail: the current lower and upper bound of every variable, with push/pop.
//
// Records. Every bound that tightens a variable's current bound is appended to `records_` and
// becomes current; a bound no tighter than the current one is not recorded at all. A record
// keeps the bound as the simplex uses it (a DeltaRational: a strict lower bound c is c + δ, a
// strict upper bound c − δ) and, for explanations, the bound as its caller asserted it: the
// reason id, whether the caller's atom was an upper bound, and the positive factor between the
// caller's atom and this bound (the caller asserted scale·x ⋈ c; see Simplex::assert_term).
// `previous` is the record that was current before this one (−1: none).
// Current bounds. `lower_[v]` and `upper_[v]` index v's current records (−1: unbounded).
// Levels. `marks_` holds the number of records at each push; pop truncates the records to the
// mark and makes each truncated record's `previous` current again, latest first. Records are
// only ever removed from the back, so a current index always points at a live record.
//
// Costs: reading a bound is two array accesses; setting one appends a record; pop is linear in
// the records it removes.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vorn/lra/delta_rational.h"

namespace vorn::lra {

// A caller-chosen id for an asserted bound, reported back in explanations.
using Reason = std::int64_t;

struct BoundRecord {
    int var = 0;
    bool upper = false;
    bool caller_upper = false;
    int previous = -1;
    Reason reason = 0;
    DeltaRational value;
    QNumber caller_scale;  // > 0
};

class BoundTrail {
  public:
    // Extends the per-variable arrays to cover variables 0..n-1, unbounded.
    void resize(std::size_t n) {
        lower_.resize(n, -1);
        upper_.resize(n, -1);
    }
    // Capacity for n variables and `records` records.
    void reserve(std::size_t n, std::size_t records) {
        lower_.reserve(n);
        upper_.reserve(n);
        records_.reserve(records);
    }

    bool has_lower(int v) const { return lower_[v] >= 0; }
    bool has_upper(int v) const { return upper_[v] >= 0; }
    // The current bounds; the variable must have one.
    const BoundRecord& lower(int v) const { return records_[lower_[v]]; }
    const BoundRecord& upper(int v) const { return records_[upper_[v]]; }
    const DeltaRational& lower_value(int v) const { return lower(v).value; }
    const DeltaRational& upper_value(int v) const { return upper(v).value; }
    bool is_boxed(int v) const { return has_lower(v) && has_upper(v); }
    bool is_fixed(int v) const { return is_boxed(v) && lower_value(v) == upper_value(v); }

    // Appends a record for var's lower or upper bound, makes it current and returns it for the
    // caller to fill in (`value`, `reason`, caller fields).
    BoundRecord& add(int var, bool upper) {
        int& current = upper ? upper_[var] : lower_[var];
        BoundRecord& r = records_.emplace_back();
        r.var = var;
        r.upper = upper;
        r.previous = current;
        current = static_cast<int>(records_.size() - 1);
        return r;
    }

    void push() { marks_.push_back(records_.size()); }
    // Undoes the last n pushes (all of them when n exceeds the level).
    void pop(std::size_t n) {
        if (n == 0 || marks_.empty()) return;
        std::size_t level = n >= marks_.size() ? 0 : marks_.size() - n;
        std::size_t keep = marks_[level];
        marks_.resize(level);
        while (records_.size() > keep) {
            const BoundRecord& r = records_.back();
            (r.upper ? upper_ : lower_)[r.var] = r.previous;
            records_.pop_back();
        }
    }
    std::size_t level() const { return marks_.size(); }
    const std::vector<BoundRecord>& records() const { return records_; }

  private:
    std::vector<int> lower_;
    std::vector<int> upper_;
    std::vector<BoundRecord> records_;
    std::vector<std::size_t> marks_;
};

}  // namespace vorn::lra
