#pragma once
// Who may call: for each request to a route that is not open, decides whether it
// goes on and as which user, or which refusal it gets.
//
// With no user and no client CA, only the controller itself (loopback) may call.
// Otherwise a caller is a verified client certificate's common name, or a user of
// the users file by HTTP Basic over TLS or on loopback. Credentials sent in the
// clear from the network are refused unchecked. Wrong ones count against the
// caller's address (failure_limiter.h).

#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "host/failure_limiter.h"
#include "host/users_file.h"

namespace kx::webhost {

enum class RouteAccess { kOpen, kRead, kProtected };

// Ping is open; Progress and InstalledComponents only read; every other name
// (unknown ones included) is protected, as are the file routes.
RouteAccess AccessOfWebMethod(const std::string& methodName);

struct Caller {
  std::string address;     // the client's address as text
  std::string limiterKey;  // what failures are counted by (an IPv6 client's /64)
  bool loopback = false;   // 127.0.0.1 or ::1
  bool tls = false;
  std::optional<std::string> certificateUser;  // a verified client certificate's common name
  const char* authorization = nullptr;         // the header, when sent
};

struct AccessDecision {
  unsigned status = 0;      // 0: allowed; else the HTTP status of the refusal
  std::string user;         // who is let in, or the user name a refused caller gave
  std::string reason;       // for the audit trail when refused
  std::string body;         // the refusal's text
  unsigned retryAfter = 0;  // seconds, with 429
};

struct AuthSettings {
  std::string usersPath;
  bool usersFileRequired = false;  // named on the command line: it must exist
  bool anonymousRead = false;      // kRead routes are open
  bool clientCertificates = false;
};

class Authenticator {
 public:
  // Reads the users file; throws std::runtime_error as ReadUsersFile does.
  explicit Authenticator(AuthSettings settings);

  // True for routes anyone may call: then the caller need not be identified.
  bool IsOpen(RouteAccess access) const {
    return access == RouteAccess::kOpen || (access == RouteAccess::kRead && settings_.anonymousRead);
  }
  // Thread-safe. The users file is read again when it has changed since.
  AccessDecision Decide(RouteAccess access, const Caller& caller);

  // The clock the failure limit runs on; tests move it.
  void SetClock(std::function<FailureLimiter::Clock::time_point()> clock) { clock_ = std::move(clock); }

 private:
  struct FileStamp {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    bool operator==(const FileStamp& other) const;
  };
  static FileStamp StampOf(const std::string& path);
  void ReloadIfChanged();
  AccessDecision CheckPassword(const Caller& caller);
  bool Verified(const std::string& user, const std::string& password);

  const AuthSettings settings_;
  std::function<FailureLimiter::Clock::time_point()> clock_;
  FailureLimiter limiter_;
  std::mutex mutex_;  // guards what follows
  Users users_;
  FileStamp stamp_;
  unsigned generation_ = 0;  // counts the users read, so that a check begun before is not cached after
  // Credentials checked lately, by a keyed digest, so that a client sending
  // them with every request does not pay the slow hash each time.
  std::string cacheKey_;
  std::map<std::string, FailureLimiter::Clock::time_point> verified_;
};

}  // namespace kx::webhost
