#pragma once
// The users kx-webhost lets in: a text file of "NAME:HASH" lines, HASH as
// password_hash.h writes it, with "#" comments and blank lines between. Only its
// owner (and group) may read or write it.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "host/password_hash.h"

namespace kx::webhost {

using Users = std::map<std::string, PasswordHash, std::less<>>;

// 1 to 64 bytes, none of them ":" or a control character.
bool IsValidUserName(std::string_view name);

// Nothing when there is no such file. Throws std::runtime_error naming the file
// when it cannot be read, is not a regular file, others may read or write it, or
// a line is malformed (then naming the line).
std::optional<Users> ReadUsersFile(const std::string& path);

// The file's text, checked as ReadUsersFile checks the file (its lines are not);
// nothing when there is no such file.
std::optional<std::string> ReadUsersFileText(const std::string& path);

// The users of a file's text; throws as ReadUsersFile for a malformed line.
Users ParseUsers(const std::string& text, const std::string& path);

// The text with `name`'s line replaced by one for `hash`, or added at the end;
// every other line (comments included) kept.
std::string WithUser(const std::string& text, const std::string& name, const PasswordHash& hash);
// The text without `name`'s line; nothing when there is none.
std::optional<std::string> WithoutUser(const std::string& text, const std::string& name);

}  // namespace kx::webhost
