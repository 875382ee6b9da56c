#pragma once
// Where the plug-in, the web host and the daemon find the files they exchange,
// and the two controller states those files record. Every path is built anew on
// each call below the system root, from the safe-mode state at that moment.
//
//   exchange base              safe mode "<root>/mnt/userfs", run mode "<root>"
//   action exchange directory  exchange base + "/.syscfg-action"
//   configuration directory    "<root>/etc/brenmar/share", with the state files in it
//   safe-mode marker           "<root>/etc/brenmar/safemode"
//   system-state file          "<root>/tmp/kx_system_state"

#include <string>
#include <string_view>

namespace kx::exchange {

std::string SafeModeMarkerPath();
std::string SystemStatePath();

// The safe-mode marker exists, whatever its file type.
bool IsSafeMode();
// The system-state file is a regular file holding exactly "Install Mode"; a
// missing or unreadable file means false.
bool IsInstallMode();

// The user file system, the exchange base in safe mode ("/mnt/userfs" on the target).
constexpr char kUserFileSystem[] = "/mnt/userfs";
// The two directories below an exchange base: the action exchange directory and,
// beside it on the same file system (so a rename moves a file in), the web
// host's uploads.
constexpr char kExchangeDirectoryName[] = ".syscfg-action";
constexpr char kUploadDirectoryName[] = ".kx-uploads";

// `name` in the exchange base of either mode as the target names it, not below
// the system root: "/<name>" in run mode, "/mnt/userfs/<name>" in safe mode.
std::string TargetPathInExchangeBase(bool safeMode, std::string_view name);
// The exchange base; with the flag its trailing separator is kept
// ("<root>/mnt/userfs/" or "<root>/"). With root "/" in run mode the base is "".
std::string ExchangeBase(bool withTrailingSeparator);
std::string ActionExchangeDirectory();
std::string UploadDirectory();

constexpr char kCurrentActionFileName[] = "currentAction.xml";
constexpr char kLastActionFileName[] = "lastAction.xml";

std::string ConfigurationDirectory();
std::string CurrentActionFilePath();         // currentAction.xml
std::string LastActionFilePath();            // lastAction.xml
std::string InstalledConfigurationPath();    // config.cdf
std::string FailedInstallationMarkerPath();  // config.old
std::string InstallationStatusLogPath();     // log/installationStatus.log

// The directory of the pending action: the first entry, in sorted order, of the
// action exchange directory, as a full path ending in "/". Empty when there is
// no such entry or it cannot be listed.
std::string CurrentActionDirectory();

// `name` inside the current action directory; empty when there is none, so that
// nothing is ever written relative to the working directory.
std::string RequestFilePath(const std::string& name);

// The current action directory as the remote host sees it:
// "/.syscfg-action/<last component>", or empty when there is none.
std::string RelativeActionDirectory();

// A path sent back by the remote host turned into a local path. A path that
// begins with "/.syscfg-action" gets the exchange base in front; any other
// absolute path gets the system root in front (and stays as it is when the root
// is "/"); a relative path is used as it is. Absolute paths are cleaned of "."
// and ".." first, so the result never lies above the root. Then exactly one
// trailing "/" is removed or added, as asked.
std::string HostPathToLocalPath(const std::string& hostPath, bool wantTrailingSeparator);

}  // namespace kx::exchange
