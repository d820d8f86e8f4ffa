#pragma once

// When to restart: after a Luby sequence of conflict counts (Luby, Sinclair, Zuckerman 1993), or
// when the LBDs of the recently learned clauses grow worse than the average so far (Audemard,
// Simon 2009, with an exponential moving average in place of their window of 50).
// Luby turns to the LBD rule after its first 3 000 conflicts: short searches keep Luby's
// steady restarts, long ones (bounded model checking) need fewer conflicts with the LBD rule.

#include <cstdint>

namespace vorn::sat {

enum class RestartPolicy { Luby, Glucose };

class Restarts {
  public:
    explicit Restarts(RestartPolicy policy) : policy_(policy) {}

    void on_conflict(std::uint32_t lbd);
    bool due() const;
    void restarted();

  private:
    RestartPolicy policy_;
    std::int64_t since_restart_ = 0;
    // Luby: the number of restarts so far picks the next interval.
    std::int64_t restarts_ = 0;
    // Glucose: recent and overall LBD averages.
    double fast_ = 0;
    double sum_ = 0;
    std::int64_t count_ = 0;
};

// The i-th term (from 0) of the Luby sequence 1 1 2 1 1 2 4 1 1 2 ...
std::int64_t luby(std::int64_t i);

}  // namespace vorn::sat
