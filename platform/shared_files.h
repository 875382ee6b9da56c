#pragma once
// Handling of the files the controller's processes share: default ownership and
// removal of a directory tree.

#include <sys/types.h>

#include <string>

namespace kx::platform {

// Owner "opuser", group "kx" (when both exist) and the given mode. False when
// the owner or the mode could not be set.
bool GiveToDefaultOwner(const std::string& path, mode_t mode);

// Removes a file, a link or a directory tree (links are never followed). False
// when something could not be removed; the rest is removed regardless.
bool RemoveTree(const std::string& path);

}  // namespace kx::platform
