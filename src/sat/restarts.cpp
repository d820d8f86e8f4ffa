#include "vorn/sat/restarts.h"

namespace vorn::sat {

namespace {

// Conflicts per Luby unit, and the Glucose parameters: the weight of a new LBD in the recent
// average, the margin by which it must exceed the overall one, and the fewest conflicts
// between two restarts.
constexpr std::int64_t kLubyUnit = 100;
constexpr double kFastAlpha = 1.0 / 32;
constexpr double kMargin = 1.25;
constexpr std::int64_t kMinInterval = 50;
// Conflicts after which Luby gives way to the LBD rule. The LBD rule from the start costs the
// small bmc and linear 3-CNF files a fifth more conflicts; switching after 10 000 loses a bmc
// file that 3 000 answers (docs/performance.md).
constexpr std::int64_t kLubyConflicts = 3000;

}  // namespace

std::int64_t luby(std::int64_t i) {
    // Find the finite subsequence 1 .. 2^(k-1) that contains i, then descend into it.
    std::int64_t size = 1;
    int k = 0;
    while (size < i + 1) {
        size = 2 * size + 1;
        ++k;
    }
    while (size - 1 != i) {
        size = (size - 1) / 2;
        --k;
        i %= size;
    }
    return std::int64_t{1} << k;
}

void Restarts::on_conflict(std::uint32_t lbd) {
    ++since_restart_;
    sum_ += lbd;
    ++count_;
    fast_ = count_ == 1 ? lbd : fast_ + kFastAlpha * (lbd - fast_);
}

bool Restarts::due() const {
    if (policy_ == RestartPolicy::Luby && count_ < kLubyConflicts)
        return since_restart_ >= luby(restarts_) * kLubyUnit;
    return since_restart_ >= kMinInterval && fast_ > kMargin * (sum_ / static_cast<double>(count_));
}

void Restarts::restarted() {
    since_restart_ = 0;
    ++restarts_;
}

}  // namespace vorn::sat
