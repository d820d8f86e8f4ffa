#pragma once

// Ends CLP's iterations once the check is to stop (a time limit, an interrupt, memory), for every
// floating-point solve: the first basis (float_basis.cpp) and the node relaxations of branch and
// bound (milp_float.cpp). A stopped solve proves nothing, so its caller falls back to the exact
// simplex, which sees the same stop and answers unknown.

#include <ClpEventHandler.hpp>

#include "vorn/util/stop.h"

namespace vorn::smt {

class ClpStop : public ClpEventHandler {
  public:
    explicit ClpStop(util::Stop* stop) : stop_(stop) {}
    int event(Event) override { return stop_ != nullptr && stop_->requested() ? 0 : -1; }
    ClpEventHandler* clone() const override { return new ClpStop(*this); }

  private:
    util::Stop* stop_;
};

}  // namespace vorn::smt
