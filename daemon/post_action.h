#pragma once
// The post-action that FinalizeAction asks for ("postaction.ini", section
// "PostAction", key "Action"), compared without regard to case:
//   "Reboot"        boot mode "runtime", then the root's reboot command
//   "" or "None"    nothing more
//   anything else   reported as unknown; nothing more
// In every case the action ends: its lock is given up first, since a reboot
// ends the daemon along with everything else. "lastAction.xml" keeps the
// result of the work the action did.

#include <string>

namespace kx::daemon {

// When the lock cannot be given up, the request file is removed all the same,
// so that it is not carried out again and again.
void RunPostAction(const std::string& requestPath, const std::string& actionId);

}  // namespace kx::daemon
