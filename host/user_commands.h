#pragma once
// kx-webhost --add-user NAME and --remove-user NAME: change the users file
// (users_file.h) and serve nothing. Two such commands at once take turns.

#include <string>

namespace kx::webhost {

// The password is one line of `passwordInput` (standard input). On a terminal
// it is asked for twice, without echo. Adding a user that exists changes its
// password. Both return the exit status, having said what they did on stdout or
// why not on stderr.
int AddUser(const std::string& usersPath, const std::string& name, int passwordInput);
int RemoveUser(const std::string& usersPath, const std::string& name);

}  // namespace kx::webhost
