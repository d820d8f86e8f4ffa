#pragma once

// Stop: the one flag that every long loop of a check looks at (the SAT search, the simplex's
// pivots, branch and bound, the readers). It is raised by interrupt() from any thread or signal
// handler, by a deadline, or by the counted memory passing a limit. No thread and no signal is
// used inside the library: the loops poll.
//
// requested() is cheap enough for inner loops: one relaxed atomic load, and every 16th call a
// look at the clock and at the memory count. run_checked() is the one way a check uses it.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string_view>

namespace vorn::util {

enum class StopReason : std::uint8_t { None, Timeout, Memout, Interrupted };

// "timeout", "memout", "interrupted"; "" for None.
std::string_view to_string(StopReason reason);

// Bytes held by the allocations that the program counts: the vorn tool counts its operator new
// and GMP's allocations with count_allocation(); an embedding program may do the same. Zero when
// nobody counts.
void count_allocation(std::ptrdiff_t bytes) noexcept;
std::int64_t counted_bytes() noexcept;

class Stop {
  public:
    using Clock = std::chrono::steady_clock;

    // Starts a check: a deadline `limit` from now (zero: none). An interrupt that came before
    // stays raised, so that the check it was meant for stops; other reasons are cleared.
    void start(std::chrono::milliseconds limit);
    // Ends a check: the deadline goes; an interrupt is consumed when it stopped the check
    // (`stopped`), and otherwise stays for the next one.
    void finish(bool stopped) noexcept;
    // Any thread, and async-signal-safe (a lock-free atomic store).
    void interrupt() noexcept;
    // Counted bytes above which requested() answers memout (zero: no limit).
    void set_memory_limit(std::int64_t bytes) noexcept { memory_limit_ = bytes; }

    bool requested() noexcept {
        if (reason_.load(std::memory_order_relaxed) != StopReason::None) return true;
        if ((++polls_ & 15u) != 0) return false;
        return poll_clock_and_memory();
    }
    StopReason reason() const noexcept { return reason_.load(std::memory_order_relaxed); }

  private:
    bool poll_clock_and_memory() noexcept;

    std::atomic<StopReason> reason_{StopReason::None};
    static_assert(std::atomic<StopReason>::is_always_lock_free);
    bool timed_ = false;
    Clock::time_point deadline_{};
    std::int64_t memory_limit_ = 0;
    std::uint32_t polls_ = 0;
};

// One check under `stop`: started with `limit`, check() run, then finished, so that everything
// the check runs shares one deadline. Running out of memory inside check() (std::bad_alloc)
// answers on_memout() instead. An interrupt is consumed when it stopped the check: the answer is
// unknown (`is_unknown(answer)`) and the stop is raised.
template <typename Check, typename OnMemout, typename IsUnknown>
auto run_checked(Stop& stop, std::chrono::milliseconds limit, Check&& check, OnMemout&& on_memout,
                 IsUnknown&& is_unknown) {
    stop.start(limit);
    decltype(check()) answer;
    try {
        answer = check();
    } catch (const std::bad_alloc&) {
        answer = on_memout();
    }
    stop.finish(is_unknown(answer) && stop.reason() != StopReason::None);
    return answer;
}

}  // namespace vorn::util
