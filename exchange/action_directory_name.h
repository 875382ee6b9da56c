#pragma once
// The name of an action's directory inside the action exchange directory,
// derived from its action ID. Plug-in, web host and daemon all name the
// directory through this one function.
//
// An action ID is opaque text of the remote host's choosing (braced GUIDs,
// blanks, ":", "/", UTF-8 all occur). A plain ID of 1 to 128 characters of
// A-Z a-z 0-9 . _ -, neither "." nor holding "..", is its own directory name.
// Any other ID is named "~" + up to 64 of its letters, digits, "_" and "-" +
// "." + 16 lower-case hexadecimal digits of a 64-bit FNV-1a hash of the whole
// ID. So every name is one path component of URL-safe characters, the same on
// every machine, and no encoded name equals a plain one. Two IDs may share an
// encoded name; the lock record, which keeps the whole ID, tells them apart.

#include <cstddef>
#include <string>
#include <string_view>

namespace kx::exchange {

// Longest action ID the action-lock service accepts, in bytes.
constexpr size_t kMaxActionIdLength = 4096;

// Non-empty and at most kMaxActionIdLength bytes.
bool IsAcceptableActionId(std::string_view actionId);

// The directory name for an acceptable action ID.
std::string ActionDirectoryName(std::string_view actionId);

// True for every name ActionDirectoryName can give, false for anything else
// ("", ".", "..", names with "/", ...).
bool IsActionDirectoryName(std::string_view name);

}  // namespace kx::exchange
