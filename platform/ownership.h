#pragma once
// Owner, group and mode of the files left for other processes. User and group
// IDs are looked up once per name and cached for the life of the process; the
// caches are safe to use from several threads.

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace kx::platform {

constexpr char kDefaultOwner[] = "opuser";
constexpr char kDefaultGroup[] = "kx";
constexpr char kDefaultMode[] = "rw-rw-r--";

// The numeric ID of a user or group name, or -1 when the name is empty or unknown.
[[nodiscard]] int64_t GetUserID(const std::string& name);
[[nodiscard]] int64_t GetGroupID(const std::string& name);

// chown to the named user and group. When either name is empty or unknown, the
// IDs of "opuser" and "kx" are used instead; an ID that even those leave unknown
// is not changed. 0 on success, -1 on failure.
[[nodiscard]] int32_t SetOwnerAndGroup(const std::string& path, const std::string& user, const std::string& group);

// Owner "opuser", group "kx", mode rw-rw-r--. 0 on success, -1 on failure
// (when the owner cannot be set, the mode is left as it is).
[[nodiscard]] int32_t SetToDefaultOwnerGroupAndPermissions(const std::string& path);

// Owner "opuser" and group "kx" as SetOwnerAndGroup gives them, and `mode`, set
// even when the owner cannot be. Failures are logged: the file stays usable.
void GiveToDefaultOwner(const std::string& path, mode_t mode);

// "rwxr-x---" style text to a mode (0750). Exactly nine characters, each either
// its position's letter or anything else for "not set"; -1 for another length.
[[nodiscard]] int32_t SymbolicModeToMode(std::string_view text);

}  // namespace kx::platform
