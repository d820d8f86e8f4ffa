#include "vorn/util/stop.h"

namespace vorn::util {

namespace {

std::atomic<std::int64_t> counted{0};

}  // namespace

std::string_view to_string(StopReason reason) {
    switch (reason) {
        case StopReason::Timeout:
            return "timeout";
        case StopReason::Memout:
            return "memout";
        case StopReason::Interrupted:
            return "interrupted";
        case StopReason::None:
            break;
    }
    return "";
}

void count_allocation(std::ptrdiff_t bytes) noexcept {
    counted.fetch_add(bytes, std::memory_order_relaxed);
}

std::int64_t counted_bytes() noexcept {
    return counted.load(std::memory_order_relaxed);
}

void Stop::start(std::chrono::milliseconds limit) {
    StopReason r = reason_.load(std::memory_order_relaxed);
    // Only an interrupt outlives the end of the check before; compare_exchange keeps one that
    // arrives meanwhile.
    if (r != StopReason::Interrupted) reason_.compare_exchange_strong(r, StopReason::None);
    timed_ = limit.count() > 0;
    if (timed_) deadline_ = Clock::now() + limit;
    polls_ = 0;
}

void Stop::finish(bool stopped) noexcept {
    timed_ = false;
    StopReason r = reason_.load(std::memory_order_relaxed);
    if (r != StopReason::Interrupted || stopped)
        reason_.compare_exchange_strong(r, StopReason::None);
}

void Stop::interrupt() noexcept {
    reason_.store(StopReason::Interrupted, std::memory_order_relaxed);
}

bool Stop::poll_clock_and_memory() noexcept {
    StopReason r = StopReason::None;
    if (memory_limit_ > 0 && counted_bytes() > memory_limit_)
        r = StopReason::Memout;
    else if (timed_ && Clock::now() >= deadline_)
        r = StopReason::Timeout;
    if (r == StopReason::None) return false;
    StopReason none = StopReason::None;
    reason_.compare_exchange_strong(none, r);
    return true;
}

}  // namespace vorn::util
