#pragma once

// Interrupted: what the readers and the script interpreter throw once util::Stop::interrupt()
// was called (in the tool: SIGINT or SIGTERM). The readers look at the stop once a line or a
// statement, the interpreter once a command and after a check-sat that the interrupt stopped
// (its `unknown` already written). Everything written before stays; nothing after it runs.

#include <stdexcept>

#include "vorn/util/stop.h"

namespace vorn::io {

class Interrupted : public std::runtime_error {
  public:
    Interrupted() : std::runtime_error("interrupted") {}
};

// A relaxed load: cheap enough for every line. `stop` may be null.
inline void throw_if_interrupted(const util::Stop* stop) {
    if (stop != nullptr && stop->reason() == util::StopReason::Interrupted) throw Interrupted();
}

}  // namespace vorn::io
