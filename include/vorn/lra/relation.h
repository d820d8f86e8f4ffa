#pragma once

// Relation: how an atom  term ⋈ constant  relates its two sides. Its own header, so that the
// layers above name a relation without taking in the whole simplex.

#include <cstdint>

namespace vorn::lra {

// The simplex asserts the first five; Distinct (n terms pairwise different) and Ne are decided
// above it, by splitting (smt::Context).
enum class Relation : std::uint8_t { Eq, Le, Lt, Ge, Gt, Distinct, Ne };

}  // namespace vorn::lra
