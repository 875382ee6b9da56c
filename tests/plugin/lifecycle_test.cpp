#include "plugin/lifecycle.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>
#include <vector>

#include "actions/progress_state.h"
#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "tests/support/scratch_root.h"

using namespace kx::plugin;
using kx::actions::ProgressRegion;
using kx::webruntime::MemoryRequest;
using kx::webruntime::RequestRegistration;
using kx::webruntime::WebRequest;

namespace {

int32_t Succeeds(const KeyValuePairList& form, uint32_t, std::string& output, int32_t& status, bool&) {
  status = 418;  // ignored on success
  output = "<ok/>";
  for (const KeyValuePair* pair = KeyValuePairList_GetFirst(&form); pair; pair = pair->next) {
    output += pair->name;
  }
  return 0;
}
int32_t FailsQuietly(const KeyValuePairList&, uint32_t, std::string&, int32_t& status, bool&) {
  status = 409;
  return -5;
}
int32_t FailsWithBody(const KeyValuePairList&, uint32_t, std::string& output, int32_t& status, bool&) {
  status = 400;
  output = "<bad/>";
  return -5;
}
int32_t ThrowsNotFound(const KeyValuePairList&, uint32_t, std::string&, int32_t&, bool&) {
  throw kx::tal::exception::NotFound();
}
int32_t ThrowsStandard(const KeyValuePairList&, uint32_t, std::string&, int32_t&, bool&) {
  throw std::runtime_error("disk on fire");
}
int32_t ThrowsOther(const KeyValuePairList&, uint32_t, std::string&, int32_t&, bool&) { throw 42; }

class LifecycleTest : public testing::Test {
 protected:
  void SetUp() override {
    PluginInit();
    MethodTable().Insert("Succeeds", Succeeds);
    MethodTable().Insert("FailsQuietly", FailsQuietly);
    MethodTable().Insert("FailsWithBody", FailsWithBody);
    MethodTable().Insert("ThrowsNotFound", ThrowsNotFound);
    MethodTable().Insert("ThrowsStandard", ThrowsStandard);
    MethodTable().Insert("ThrowsOther", ThrowsOther);
  }
  void TearDown() override { PluginFinalize(); }

  MemoryRequest Run(const std::string& method, std::vector<kx::webruntime::FormField> form = {}) {
    MemoryRequest request;
    request.form = std::move(form);
    RequestRegistration registration(request);
    WebRequest object("/swinstall/" + method, method);
    PluginRun(&object, registration.Handle());
    return request;
  }

  kx::test::ScratchRoot root;
};

}  // namespace

// A start fills the table with the twelve methods and creates the progress region
// once; a second start keeps it.
TEST_F(LifecycleTest, StartFillsTheTableAndCreatesTheRegionOnce) {
  auto* region = ProgressRegion();
  ASSERT_NE(region, nullptr);
  EXPECT_EQ(region->Size(), 5000u);
  PluginInit();
  EXPECT_EQ(ProgressRegion(), region);
  PluginFinalize();
  EXPECT_EQ(MethodTable().Size(), 0u);
  PluginInit();
  EXPECT_EQ(MethodTable().Size(), 12u);
}

// The region's file is for the plug-in and the daemon alone (owner "opuser",
// group "kx" where they exist, rw-rw----), also when an older one was open to all.
TEST_F(LifecycleTest, RegionFileIsForOwnerAndGroupOnly) {
  const std::string path = root / "/var/tmp/brenmar/shared/SoftwareUpdateProgressSharedMem";
  const passwd* user = getpwnam("opuser");
  const group* grp = getgrnam("kx");
  for (int start = 0; start < 2; ++start) {
    struct stat file {};
    ASSERT_EQ(stat(path.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0660u);
    if (geteuid() == 0 && user != nullptr && grp != nullptr) {
      EXPECT_EQ(std::make_pair(file.st_uid, file.st_gid), std::make_pair(user->pw_uid, grp->gr_gid));
    }
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    PluginFinalize();
    PluginInit();
  }
}

// Status, Reason-Phrase, MIME type and body of each kind of answer. A handler's
// status counts only when it fails; exceptions other than std::exception leave
// the host's default answer.
TEST_F(LifecycleTest, AnswersByHandlerOutcome) {
  const struct {
    const char* method;
    int status;
    const char* reason;
    const char* mimeType;
    const char* output;
  } cases[] = {
      {"Nothing", 501, "Unimplemented", "", ""},
      {"ping", 501, "Unimplemented", "", ""},
      {"PING", 501, "Unimplemented", "", ""},
      {"", 501, "Unimplemented", "", ""},
      {"Browse", 500, "", "", ""},
      {"Resolve", 500, "", "", ""},
      {"Succeeds", 200, "", "text/xml", "<ok/>ab"},
      {"FailsQuietly", 409, "", "", ""},
      {"FailsWithBody", 400, "", "text/xml", "<bad/>"},
      {"ThrowsNotFound", 404, "unspecified exception", "", ""},
      {"ThrowsStandard", 500, "disk on fire", "", ""},
      {"ThrowsOther", 200, "", "", ""},
      {"Pi\xFFng", 500, "Invalid UTF8 encoding sequence", "", ""},  // names beyond ASCII must be UTF-8
  };
  MethodTable().Insert(
      "Gr\xC3\xBC\xC3\x9F"
      "e",
      Succeeds);
  EXPECT_EQ(Run("Gr\xC3\xBC\xC3\x9F"
                "e")
                .output,
            "<ok/>");
  for (const auto& c : cases) {
    const MemoryRequest reply = Run(c.method, {{"a", "1"}, {"b", "2"}});
    EXPECT_EQ(reply.status, c.status) << c.method;
    EXPECT_EQ(reply.Header("Reason-Phrase"), c.reason) << c.method;
    EXPECT_EQ(reply.mimeType, c.mimeType) << c.method;
    EXPECT_EQ(reply.output, c.output) << c.method;
  }
}

TEST(LifecycleSettings, DiagnosticsFileSetsTheMaskAndStatusLogGoes) {
  kx::test::ScratchRoot root;
  root.WriteFile("/etc/brenmar/share/log/installationStatus.log", "old");
  root.WriteFile("/etc/brenmar/share/swdiag.ini", "[AllComponents]\nSeverity=48\n[orla]\nSeverity=18\nTarget=0\n");
  PluginInit();
  EXPECT_EQ(kx::tal::LogMaskValue(), 18u);  // "orla" wins over "AllComponents"
  EXPECT_FALSE(kx::tal::PathExists(root / "/etc/brenmar/share/log/installationStatus.log"));
  PluginFinalize();

  root.WriteFile("/etc/brenmar/share/log/installationStatus.log", "kept");
  root.WriteFile("/etc/brenmar/share/swdiag.ini", "[AllComponents]\nSeverity=33\nTarget=0\n");
  PluginInit();
  EXPECT_EQ(kx::tal::LogMaskValue(), 33u);
  EXPECT_TRUE(kx::tal::PathExists(root / "/etc/brenmar/share/log/installationStatus.log"));
  PluginFinalize();
  kx::tal::InitTraceLog(1, 1, "", 0);
}
