#pragma once
// The memory that the bodies of all requests may hold at once. A request takes
// its share as its body grows (all of a declared length at once, before the
// body is read) and gives it back when it goes; what would go over the budget
// is refused, so that many unfinished bodies cannot grow the server without
// bound.

#include <cstdint>
#include <mutex>

namespace kx::webhost {

class MemoryBudget {
 public:
  explicit MemoryBudget(uint64_t limit) : limit_(limit) {}
  bool TryTake(uint64_t bytes);
  void Give(uint64_t bytes);

 private:
  const uint64_t limit_;
  std::mutex mutex_;
  uint64_t taken_ = 0;
};

// One request's share; given back when it goes.
class MemoryShare {
 public:
  explicit MemoryShare(MemoryBudget* budget) : budget_(budget) {}  // no budget: no limit
  ~MemoryShare();
  MemoryShare(const MemoryShare&) = delete;
  MemoryShare& operator=(const MemoryShare&) = delete;

  // Takes what the share lacks of `bytes`; false (nothing taken) when the budget cannot.
  bool GrowTo(uint64_t bytes);

 private:
  MemoryBudget* const budget_;
  uint64_t held_ = 0;
};

}  // namespace kx::webhost
