#include "host/authenticator.h"

#include <gnutls/crypto.h>

#include <cstdio>

#include "host/basic_credentials.h"
#include "host/gnutls_util.h"

namespace kx::webhost {
namespace {

constexpr std::chrono::minutes kVerifiedLifetime{5};
constexpr size_t kMaxVerified = 256;

constexpr char kNoUsersText[] =
    "No user may call from the network yet. On the controller, add one with\n"
    "    kx-webhost --add-user NAME\n"
    "(it reads the password from standard input), then call over HTTPS as that user.\n";
constexpr char kPlainHttpText[] = "Credentials are not accepted over plain HTTP from the network: use HTTPS.\n";

AccessDecision Refusal(unsigned status, std::string reason, std::string body, std::string user = {}) {
  AccessDecision decision;
  decision.status = status;
  decision.reason = std::move(reason);
  decision.body = std::move(body);
  decision.user = std::move(user);
  return decision;
}

AccessDecision Allowed(std::string user) {
  AccessDecision decision;
  decision.user = std::move(user);
  return decision;
}

}  // namespace

RouteAccess AccessOfWebMethod(const std::string& methodName) {
  if (methodName == "Ping") return RouteAccess::kOpen;
  if (methodName == "Progress" || methodName == "InstalledComponents") return RouteAccess::kRead;
  return RouteAccess::kProtected;
}

bool Authenticator::FileStamp::operator==(const FileStamp& other) const {
  return exists == other.exists && device == other.device && inode == other.inode && size == other.size &&
         modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
}

Authenticator::Authenticator(AuthSettings settings)
    : settings_(std::move(settings)), clock_([] { return FailureLimiter::Clock::now(); }), cacheKey_(32, '\0') {
  stamp_ = StampOf(settings_.usersPath);
  std::optional<Users> users = ReadUsersFile(settings_.usersPath);
  if (!users && settings_.usersFileRequired) {
    throw std::runtime_error("the users file " + settings_.usersPath + " does not exist");
  }
  if (users) users_ = std::move(*users);
  tls::Check(gnutls_rnd(GNUTLS_RND_KEY, cacheKey_.data(), cacheKey_.size()), "random key");
}

Authenticator::FileStamp Authenticator::StampOf(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return {};
  return {true, info.st_dev, info.st_ino, info.st_size, info.st_mtim};
}

// A users file that cannot be read any more keeps the users read before, so
// that a mistake while editing it locks nobody out and lets nobody new in.
void Authenticator::ReloadIfChanged() {
  const FileStamp stamp = StampOf(settings_.usersPath);
  if (stamp == stamp_) return;
  stamp_ = stamp;
  try {
    users_ = ReadUsersFile(settings_.usersPath).value_or(Users());
    verified_.clear();
    ++generation_;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "kx-webhost: %s (the users read before stay)\n", error.what());
  }
}

AccessDecision Authenticator::Decide(RouteAccess access, const Caller& caller) {
  if (IsOpen(access)) return {};
  bool noUsers = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ReloadIfChanged();
    noUsers = users_.empty();
  }
  if (noUsers && !settings_.clientCertificates) {
    if (caller.loopback) return Allowed("(loopback)");
    return Refusal(403, "no user is set up", kNoUsersText);
  }
  if (!caller.tls && !caller.loopback) return Refusal(403, "plain HTTP from the network", kPlainHttpText);
  if (caller.certificateUser) return Allowed(*caller.certificateUser);

  if (caller.authorization == nullptr) return Refusal(401, "no credentials", "Authentication required.\n");
  const Authorization authorization = ParseAuthorization(caller.authorization);
  if (const unsigned wait = limiter_.SecondsLockedOut(caller.limiterKey, clock_())) {
    AccessDecision decision =
        Refusal(429, "too many failures", "Too many failed authentications from this address.\n", authorization.user);
    decision.retryAfter = wait;
    return decision;
  }
  AccessDecision decision;
  if (authorization.form == Authorization::Form::kMalformed) {
    decision = Refusal(400, "malformed credentials", "Malformed Authorization header.\n");
  } else if (authorization.form == Authorization::Form::kOtherScheme) {
    decision = Refusal(401, "not Basic authentication", "Authentication required.\n");
  } else if (Verified(authorization.user, authorization.password)) {
    return Allowed(authorization.user);
  } else {
    decision = Refusal(401, "wrong user name or password", "Authentication required.\n", authorization.user);
  }
  limiter_.RecordFailure(caller.limiterKey, clock_());
  return decision;
}

bool Authenticator::Verified(const std::string& user, const std::string& password) {
  const std::string credentials = user + '\0' + password;
  std::string key(32, '\0');
  tls::Check(gnutls_hmac_fast(GNUTLS_MAC_SHA256, cacheKey_.data(), cacheKey_.size(), credentials.data(),
                              credentials.size(), key.data()),
             "HMAC");
  const FailureLimiter::Clock::time_point now = clock_();
  std::optional<PasswordHash> hash;
  unsigned generation = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto cached = verified_.find(key);
    if (cached != verified_.end() && now - cached->second < kVerifiedLifetime) return true;
    const auto found = users_.find(user);
    if (found != users_.end()) hash = found->second;
    generation = generation_;
  }
  // The slow part runs unlocked; an unknown user costs the same time.
  if (!hash) {
    SpendPasswordCheckTime(password);
    return false;
  }
  if (!PasswordMatches(*hash, password)) return false;
  const std::lock_guard<std::mutex> lock(mutex_);
  if (generation != generation_) return true;
  if (verified_.size() >= kMaxVerified) verified_.clear();
  verified_[key] = now;
  return true;
}

}  // namespace kx::webhost
