#pragma once

// Wall-clock phase times for --stats.

#include <chrono>

namespace vorn::smt {

using Clock = std::chrono::steady_clock;

inline double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

}  // namespace vorn::smt
