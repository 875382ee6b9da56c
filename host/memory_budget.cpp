#include "host/memory_budget.h"

namespace kx::webhost {

bool MemoryBudget::TryTake(uint64_t bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (bytes > limit_ - taken_) return false;
  taken_ += bytes;
  return true;
}

void MemoryBudget::Give(uint64_t bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  taken_ -= bytes;
}

MemoryShare::~MemoryShare() {
  if (budget_ != nullptr && held_ != 0) budget_->Give(held_);
}

bool MemoryShare::GrowTo(uint64_t bytes) {
  if (budget_ == nullptr || bytes <= held_) return true;
  if (!budget_->TryTake(bytes - held_)) return false;
  held_ = bytes;
  return true;
}

}  // namespace kx::webhost
