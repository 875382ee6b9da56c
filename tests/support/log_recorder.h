#pragma once
// Records what is logged while it lives.

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kx/tal/log.h"
#include "tests/support/scratch_root.h"

namespace kx::test {

// Records what is logged while it lives, with the given log mask; restores the
// default mask (1) afterwards.
class LogRecorder {
 public:
  explicit LogRecorder(uint32_t mask) {
    tal::InitTraceLog(mask, 0, std::string(), 0);
    tal::SetLogCapture([this](uint32_t bit, const std::string& text) {
      std::lock_guard<std::mutex> guard(lock_);
      lines_.emplace_back(bit, text);
    });
  }
  ~LogRecorder() {
    tal::SetLogCapture(nullptr);
    tal::InitTraceLog(1, 0, std::string(), 0);
  }
  bool Logged(uint32_t bit, const std::string& text) {
    const std::vector<std::string> texts = Texts(bit);
    return std::find(texts.begin(), texts.end(), text) != texts.end();
  }
  // Forgets what was recorded so far.
  void Clear() {
    std::lock_guard<std::mutex> guard(lock_);
    lines_.clear();
  }
  // The texts logged under `bit`, in order.
  std::vector<std::string> Texts(uint32_t bit) {
    std::lock_guard<std::mutex> guard(lock_);
    std::vector<std::string> texts;
    for (const auto& [lineBit, text] : lines_) {
      if (lineBit == bit) texts.push_back(text);
    }
    return texts;
  }

 private:
  std::mutex lock_;
  std::vector<std::pair<uint32_t, std::string>> lines_;
};

}  // namespace kx::test
