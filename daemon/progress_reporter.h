#pragma once
// What the daemon publishes about its work, for the Progress web method:
// while an action runs, "currentAction.xml" and the progress region hold
//   <Current Id="…" ActionType="…" StartTime="…" Percent="0..100" Step="…"/>
// and when it ends "lastAction.xml" holds the one-line <Last …/> with its result
// and the other two are cleared. Every change is made under the progress mutex
// and replaces a file whole. A failure to publish is logged, never thrown: it
// must not break the action itself.

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

#include "kx/tal/osdep/named_mutex.h"
#include "kx/tal/osdep/simple_shared_memory.h"

namespace kx::daemon {

class ProgressReporter {
 public:
  // Opens the progress mutex and region (a region that cannot be opened is
  // logged and left out). Throws when the mutex cannot be opened.
  ProgressReporter();

  void Start(const std::string& actionId, const std::string& actionType);
  void Update(int percent, const std::string& step);
  // Writes the <Last …/> line and clears the current action.
  void Finish(int32_t result);
  // Takes and gives back the progress mutex. The plug-in writes its request
  // files under it, so a request file seen before is complete afterwards.
  void AwaitRequestWriters();

  // Start and Finish at once, for a request answered without work.
  void Record(const std::string& actionId, const std::string& actionType, int32_t result);

 private:
  void Publish(const std::string& element);

  tal::osdep::NamedMutex mutex_;
  std::unique_ptr<tal::osdep::SimpleSharedMemory> region_;
  std::string actionId_;
  std::string actionType_;
  std::time_t startTime_ = 0;
};

}  // namespace kx::daemon
