#pragma once

// UsageError: a command line or option that the tool cannot act on (an unknown name to
// eliminate, an --objective-bound without an objective, an input of the wrong kind for the
// command). main() reports it as bad input.

#include <stdexcept>

namespace vorn::cli {

class UsageError : public std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

}  // namespace vorn::cli
