#pragma once
// Where a path of the controller named by a package lies on this machine.
//
// The path comes from a catalogue document, perhaps one sent over the network,
// so it is cleaned first ("..", repeated "/", backslashes) and every symbolic
// link on the way to its directory is followed as the controller would follow
// it: an absolute link starts again at the system root, and ".." never climbs
// above it. Whatever the path and the links say, the result lies below the root.
// The last component is not followed: it names the entry to create or replace.

#include <string>
#include <string_view>

namespace kx::daemon {

struct ResolvedTarget {
  std::string targetPath;  // the path as the controller sees it, links resolved
  std::string hostPath;    // the same below the system root
};

// Throws std::invalid_argument for an empty path, one holding a control
// character, or one that names the root itself; std::system_error when a link
// cannot be read or links nest too deeply.
ResolvedTarget ResolveTarget(std::string_view targetPath);

}  // namespace kx::daemon
