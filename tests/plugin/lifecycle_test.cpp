#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/path.h"
#include "plugin/lifecycle.h"
#include "plugin/progress_state.h"
#include "tests/support/scratch_root.h"

using namespace kx::plugin;
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

TEST_F(LifecycleTest, TableHoldsTheTwelveMethods) {
  PluginFinalize();
  EXPECT_EQ(MethodTable().Size(), 0u);
  PluginInit();
  EXPECT_EQ(MethodTable().Size(), 12u);
}

TEST_F(LifecycleTest, UnknownOrMiscasedNamesGet501WithoutBody) {
  for (const char* name : {"Nothing", "ping", "PING", ""}) {
    const MemoryRequest reply = Run(name);
    EXPECT_EQ(reply.status, 501) << name;
    EXPECT_EQ(reply.Header("Reason-Phrase"), "Unimplemented");
    EXPECT_EQ(reply.output, "");
  }
}

TEST_F(LifecycleTest, StubsAnswer500WithEmptyBody) {
  for (const char* name : {"Browse", "Resolve"}) {
    const MemoryRequest reply = Run(name);
    EXPECT_EQ(reply.status, 500) << name;
    EXPECT_EQ(reply.output, "");
    EXPECT_EQ(reply.mimeType, "");
  }
}

TEST_F(LifecycleTest, SuccessIsXmlWithTheHostStatus) {
  const MemoryRequest reply = Run("Succeeds", {{"a", "1"}, {"b", "2"}});
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.mimeType, "text/xml");
  EXPECT_EQ(reply.output, "<ok/>ab");
}

TEST_F(LifecycleTest, FailureSendsItsStatusAndBodyOnlyWhenWritten) {
  MemoryRequest quiet = Run("FailsQuietly");
  EXPECT_EQ(quiet.status, 409);
  EXPECT_EQ(quiet.output, "");
  EXPECT_EQ(quiet.mimeType, "");
  MemoryRequest loud = Run("FailsWithBody");
  EXPECT_EQ(loud.status, 400);
  EXPECT_EQ(loud.output, "<bad/>");
  EXPECT_EQ(loud.mimeType, "text/xml");
}

TEST_F(LifecycleTest, MethodNamesBeyondAsciiMustBeUtf8) {
  MethodTable().Insert("Gr\xC3\xBC\xC3\x9F" "e", Succeeds);
  EXPECT_EQ(Run("Gr\xC3\xBC\xC3\x9F" "e").output, "<ok/>");
  const MemoryRequest invalid = Run("Pi\xFFng");
  EXPECT_EQ(invalid.status, 500);
  EXPECT_FALSE(invalid.Header("Reason-Phrase").empty());
  EXPECT_EQ(invalid.output, "");
}

TEST_F(LifecycleTest, ExceptionsBecomeHttpAnswers) {
  MemoryRequest notFound = Run("ThrowsNotFound");
  EXPECT_EQ(notFound.status, 404);
  EXPECT_EQ(notFound.Header("Reason-Phrase"), "unspecified exception");
  MemoryRequest standard = Run("ThrowsStandard");
  EXPECT_EQ(standard.status, 500);
  EXPECT_EQ(standard.Header("Reason-Phrase"), "disk on fire");
  MemoryRequest other = Run("ThrowsOther");
  EXPECT_EQ(other.status, 200);  // nothing written: the host default stands
  EXPECT_TRUE(other.headers.empty());
}

TEST_F(LifecycleTest, ProgressRegionIsCreatedOnce) {
  ASSERT_NE(ProgressRegion(), nullptr);
  auto* first = ProgressRegion();
  PluginInit();  // a second start keeps the region
  EXPECT_EQ(ProgressRegion(), first);
  EXPECT_EQ(first->Size(), 5000u);
}

TEST_F(LifecycleTest, ConcurrentRequestsFromEightThreads) {
  std::vector<std::thread> threads;
  std::atomic<int> good{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) {
        const MemoryRequest reply = Run(i % 2 ? "Succeeds" : "Nothing");
        if (reply.status == (i % 2 ? 200 : 501)) ++good;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(good, 8000);
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
