#pragma once
// Appending to the short lists of a catalogue entry (codebases, dependencies,
// processors): a list starts with room for four, as growing one from a single
// entry costs an allocation and a move per doubling, for every entry read.

#include <utility>
#include <vector>

namespace kx::catalogue {

template <class T, class Value>
void AppendToShortList(std::vector<T>& list, Value&& value) {
  if (list.capacity() == 0) list.reserve(4);
  list.push_back(std::forward<Value>(value));
}

}  // namespace kx::catalogue
