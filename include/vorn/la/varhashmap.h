#pragma once

// VarHashMap: the hash map keyed by variable number that the tableau uses for its columns.

#include <functional>

#include "vorn/hsh/hashtable.h"

namespace vorn::la {

template <class T>
class VarHashMap : public hsh::HashMap<int, T, hsh::hash<int>, std::equal_to<int>> {};

}  // namespace vorn::la
