#pragma once
// The requests the plug-in leaves in the current action directory, and what
// the daemon does with each:
//   install.cdf      the software update (software_update.h)
//   getimage.ini     the system image backup (system_image_requests.h)
//   setimage.ini     the system image restore (system_image_requests.h)
//   format.ini       emptying the user file system (format_request.h)
//   postaction.ini   the post-action (post_action.h), which ends the action
// The lock stays after each request until the post-action.
// They are taken in that order, so a post-action never overtakes the work it
// finishes. A request that has been carried out is renamed "<name>.done", so a
// restart does not carry it out again.

#include <string>

#include "daemon/progress_reporter.h"

namespace kx::daemon {

class RequestHandler {
 public:
  explicit RequestHandler(ProgressReporter& progress) : progress_(progress) {}

  // At start-up, before anything else: rolls back a software update or image
  // restore that was interrupted (its request then counts as carried out and
  // failed), and removes what finished ones left behind.
  void RecoverInterruptedWork();

  // Carries out every request waiting in the current action directory. Never
  // throws: a request that fails is reported and counts as carried out.
  void HandlePendingRequests();

 private:
  // False when no request waits.
  bool HandleNextRequest();

  ProgressReporter& progress_;
};

}  // namespace kx::daemon
