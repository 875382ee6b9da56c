#pragma once
// Paths: joining, clean-up, tests, and the system root under which every fixed
// path of the controller lies.

#include <string>
#include <string_view>

namespace kx::tal {

// "dir" + "/" + "name", with exactly one separator between them. An empty part
// yields the other unchanged.
std::string JoinPath(std::string_view dir, std::string_view name);

// The directory part of a path: everything before the last "/" ("/" for a path
// directly under the root, "" when there is no "/").
std::string DirectoryPart(std::string_view path);

// The last component of a path (text after the last "/"; a trailing "/" is ignored).
std::string LastComponent(std::string_view path);

// Collapses repeated separators and "." components, and resolves ".." against
// the preceding component. A ".." that would climb above the start of an
// absolute path stays at the root; in a relative path it is kept. The result
// never ends in "/" unless it is "/" itself.
std::string CleanPath(std::string_view path);

bool PathExists(const std::string& path);
bool IsDirectory(const std::string& path);

// The system root: the directory named by KX_SYSTEM_ROOT, or "/" when unset or
// empty. Read on every call.
std::string SystemRoot();

// A target-absolute path placed below the system root ("/etc/x" → "<root>/etc/x").
// Throws InvalidArgument (with its source location) for a relative path.
std::string RootedPath(std::string_view targetAbsolutePath);

// "/etc" below the system root.
std::string SystemConfigDirectory();

// Temporary and shared files: KXTALTMPSHAREDFILEDIR when set, else
// "/var/tmp/brenmar/shared" below the system root.
std::string SharedFileDirectory();

// Read-only data of the foundation library: "/usr/share/brenmar" below the system root.
std::string SharedDataDirectory();

// Creates a directory and its missing parents with the given mode. Throws
// PosixError when a component cannot be created.
void CreateDirectories(const std::string& path, unsigned mode = 0775);

}  // namespace kx::tal
