// The parts of kx-webhost's authentication, without a server: the Basic header,
// password hashes, the users file, the failure limit and the decisions.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "host/authenticator.h"
#include "host/basic_credentials.h"
#include "host/failure_limiter.h"
#include "host/gnutls_util.h"
#include "host/password_hash.h"
#include "host/users_file.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::webhost;
using Form = Authorization::Form;

std::string Basic(const std::string& userAndPassword) { return "Basic " + tls::EncodeBase64(userAndPassword); }

TEST(BasicCredentials, ParsesOnlyWellFormedHeaders) {
  const Authorization good = ParseAuthorization("  basic " + tls::EncodeBase64("alice:pass:word") + " ");
  EXPECT_EQ(good.form, Form::kBasic);
  EXPECT_EQ(good.user, "alice");
  EXPECT_EQ(good.password, "pass:word") << "the first colon ends the user name";

  EXPECT_EQ(ParseAuthorization("Bearer abc").form, Form::kOtherScheme);
  for (const std::string& header :
       {std::string(""), std::string("Basic"), std::string("Basic !!!!"), std::string("Basic YWxp Y2U6cA=="),
        std::string("Basic YWxpY2U6cA"), Basic("no colon"), Basic(std::string("a\0b:c", 5)), Basic(":password"),
        Basic("tab\tname:p"), Basic(std::string(65, 'u') + ":p"), "Basic " + std::string(100 * 1024, 'A')}) {
    EXPECT_EQ(ParseAuthorization(header).form, Form::kMalformed) << header.substr(0, 40);
  }
}

TEST(PasswordHash, RoundTripsAndChecks) {
  const PasswordHash hash = HashPassword("correct horse");
  const std::optional<PasswordHash> read = ParsePasswordHash(FormatPasswordHash(hash));
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->rounds, kPasswordRounds);
  EXPECT_TRUE(PasswordMatches(*read, "correct horse"));
  EXPECT_FALSE(PasswordMatches(*read, "correct horsE"));
  EXPECT_FALSE(PasswordMatches(*read, ""));
  EXPECT_NE(FormatPasswordHash(HashPassword("correct horse")), FormatPasswordHash(hash)) << "salted";

  const std::string salt = tls::EncodeBase64("0123456789abcdef");
  const std::string digest = tls::EncodeBase64(std::string(32, 'd'));
  EXPECT_TRUE(ParsePasswordHash("pbkdf2-sha256:200000:" + salt + ":" + digest));
  EXPECT_FALSE(ParsePasswordHash("pbkdf2-sha256:199999:" + salt + ":" + digest)) << "too few rounds";
  EXPECT_FALSE(ParsePasswordHash("pbkdf2-sha1:200000:" + salt + ":" + digest));
  EXPECT_FALSE(ParsePasswordHash("pbkdf2-sha256:200000:" + salt + ":" + tls::EncodeBase64("short")));
  EXPECT_FALSE(ParsePasswordHash("pbkdf2-sha256:200000:" + salt + ":" + digest + ":"));
  EXPECT_FALSE(ParsePasswordHash("pbkdf2-sha256:200000:" + salt));
}

class UsersFile : public testing::Test {
 protected:
  std::string Entry(const std::string& name) const { return name + ":" + FormatPasswordHash(hash); }
  const PasswordHash hash{kPasswordRounds, "0123456789abcdef", std::string(32, 'd')};
  kx::test::ScratchRoot root;
};

TEST_F(UsersFile, MalformedLinesAreNamed) {
  const std::string path = "users";
  EXPECT_EQ(ParseUsers("# admins\n\n" + Entry("alice") + "\r\n" + Entry("bob") + "\n", path).size(), 2u);
  const auto reason = [&](const std::string& text) {
    try {
      ParseUsers(text, path);
    } catch (const std::runtime_error& error) {
      return std::string(error.what());
    }
    return std::string("accepted");
  };
  EXPECT_EQ(reason(Entry("alice") + "\nbob\n").rfind("users, line 2: ", 0), 0u);
  EXPECT_EQ(reason("#\n" + Entry("alice") + "x\n").rfind("users, line 2: ", 0), 0u);
  EXPECT_NE(reason(Entry("alice") + "\n" + Entry("alice") + "\n").find("line 2: user \"alice\" is named twice"),
            std::string::npos);
}

TEST_F(UsersFile, OnlyItsOwnerAndGroupMayReadIt) {
  const std::string path = root / "/users";
  EXPECT_FALSE(ReadUsersFile(path).has_value()) << "missing: no users";
  root.WriteFile("/users", Entry("alice") + "\n");
  ::chmod(path.c_str(), 0640);
  EXPECT_EQ(ReadUsersFile(path)->count("alice"), 1u);
  ::chmod(path.c_str(), 0644);
  EXPECT_THROW(ReadUsersFile(path), std::runtime_error);
  ::chmod(path.c_str(), 0602);
  EXPECT_THROW(ReadUsersFile(path), std::runtime_error);
}

TEST_F(UsersFile, AddingAndRemovingKeepsTheOtherLines) {
  const std::string text = "# admins\n" + Entry("alice") + "\n";
  const PasswordHash other{kPasswordRounds, "fedcba9876543210", std::string(32, 'e')};
  EXPECT_EQ(WithUser(text, "bob", hash), text + Entry("bob") + "\n");
  EXPECT_EQ(WithUser(text, "alice", other), "# admins\nalice:" + FormatPasswordHash(other) + "\n");
  EXPECT_EQ(WithoutUser(text, "alice"), "# admins\n");
  EXPECT_FALSE(WithoutUser(text, "admins")) << "a comment is no user";
}

TEST(FailureLimiter, LocksOutForTheRestOfTheMinute) {
  FailureLimiter limiter;
  const FailureLimiter::Clock::time_point start{};
  for (unsigned i = 0; i < FailureLimiter::kAllowedFailures; ++i) {
    EXPECT_EQ(limiter.SecondsLockedOut("192.0.2.1", start), 0u);
    limiter.RecordFailure("192.0.2.1", start + std::chrono::seconds(i));
  }
  EXPECT_EQ(limiter.SecondsLockedOut("192.0.2.1", start + std::chrono::milliseconds(20500)), 40u);
  EXPECT_EQ(limiter.SecondsLockedOut("192.0.2.2", start), 0u) << "another address";
  EXPECT_EQ(limiter.SecondsLockedOut("192.0.2.1", start + std::chrono::seconds(60)), 0u);
  limiter.RecordFailure("192.0.2.1", start + std::chrono::seconds(61));
  EXPECT_EQ(limiter.SecondsLockedOut("192.0.2.1", start + std::chrono::seconds(61)), 0u) << "a new minute";
}

class AuthenticatorDecisions : public testing::Test {
 protected:
  AuthenticatorDecisions() {
    root.WriteFile("/users", "");
    ::chmod(usersPath.c_str(), 0600);
  }

  Authenticator Make(bool anonymousRead = false, bool clientCertificates = false) {
    return Authenticator({usersPath, true, anonymousRead, clientCertificates});
  }
  static Caller Network(const char* authorization = nullptr, bool tls = true) {
    return {"192.0.2.7", "192.0.2.7", false, tls, std::nullopt, authorization};
  }
  void AddAlice() {
    kx::test::WriteFile(usersPath, "alice:" + FormatPasswordHash(HashPassword("secret")) + "\n");
    ::chmod(usersPath.c_str(), 0600);
  }

  kx::test::ScratchRoot root;
  const std::string usersPath = root / "/users";
  const std::string alice = "Basic " + tls::EncodeBase64("alice:secret");
  const std::string wrong = "Basic " + tls::EncodeBase64("alice:guess");
};

TEST_F(AuthenticatorDecisions, WithoutUsersOnlyLoopbackMayCall) {
  Authenticator authenticator = Make();
  Caller loopback = Network();
  loopback.loopback = true;
  EXPECT_EQ(authenticator.Decide(RouteAccess::kProtected, loopback).status, 0u);
  const AccessDecision refused = authenticator.Decide(RouteAccess::kProtected, Network(alice.c_str()));
  EXPECT_EQ(refused.status, 403u);
  EXPECT_NE(refused.body.find("kx-webhost --add-user NAME"), std::string::npos);
  EXPECT_EQ(authenticator.Decide(RouteAccess::kOpen, Network()).status, 0u);

  AddAlice();  // read again without a restart
  EXPECT_EQ(authenticator.Decide(RouteAccess::kProtected, Network(alice.c_str())).user, "alice");
  EXPECT_EQ(authenticator.Decide(RouteAccess::kProtected, loopback).status, 401u) << "users exist: loopback too";
}

TEST_F(AuthenticatorDecisions, CredentialsAndTheirRefusals) {
  AddAlice();
  Authenticator authenticator = Make(true, true);
  EXPECT_EQ(authenticator.Decide(RouteAccess::kRead, Network()).status, 0u) << "anonymous read";
  EXPECT_EQ(authenticator.Decide(RouteAccess::kProtected, Network()).status, 401u);
  EXPECT_EQ(authenticator.Decide(RouteAccess::kProtected, Network(alice.c_str(), false)).status, 403u)
      << "plain HTTP from the network";
  Caller certified = Network();
  certified.certificateUser = "fleet-tool";
  EXPECT_EQ(authenticator.Decide(RouteAccess::kProtected, certified).user, "fleet-tool");

  const std::string unknown = "Basic " + tls::EncodeBase64("mallory:secret");
  const AccessDecision wrongPassword = authenticator.Decide(RouteAccess::kProtected, Network(wrong.c_str()));
  const AccessDecision unknownUser = authenticator.Decide(RouteAccess::kProtected, Network(unknown.c_str()));
  EXPECT_EQ(wrongPassword.status, 401u);
  EXPECT_EQ(unknownUser.status, 401u);
  EXPECT_EQ(unknownUser.body, wrongPassword.body) << "no answer tells whether the user exists";
}

TEST_F(AuthenticatorDecisions, TooManyFailuresLockTheAddressOut) {
  AddAlice();
  Authenticator authenticator = Make();
  FailureLimiter::Clock::time_point now{};
  authenticator.SetClock([&] { return now; });
  const std::string malformed = "Basic !!!!";
  for (unsigned i = 0; i < FailureLimiter::kAllowedFailures; ++i) {
    const std::string& header = i % 2 == 0 ? wrong : malformed;
    EXPECT_EQ(authenticator.Decide(RouteAccess::kProtected, Network(header.c_str())).status, i % 2 == 0 ? 401u : 400u);
  }
  const AccessDecision locked = authenticator.Decide(RouteAccess::kProtected, Network(alice.c_str()));
  EXPECT_EQ(locked.status, 429u) << "even the right password";
  EXPECT_EQ(locked.retryAfter, 60u);
  now += std::chrono::seconds(60);
  EXPECT_EQ(authenticator.Decide(RouteAccess::kProtected, Network(alice.c_str())).status, 0u);
}

}  // namespace
