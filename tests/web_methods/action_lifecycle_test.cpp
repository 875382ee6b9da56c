#include <gmock/gmock.h>
#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <iterator>
#include <filesystem>
#include <thread>

#include "actions/exchange_paths.h"
#include "ini/ini_document.h"
#include "kx/tal/path.h"
#include "platform/action_lock.h"
#include "plugin/progress_state.h"
#include "plugin/signal_daemon_thread.h"
#include "tests/web_methods/web_method_fixture.h"

namespace kx::test {
namespace {

constexpr char kInvalidArgument[] = "-2147024809";  // 0x80070057
constexpr char kNotLockHolder[] = "-2147219486";    // 0x800407E2

std::string ResultAnswer(const std::string& method, const std::string& result) {
  return std::string(kXmlDeclaration) + "<" + method + " Result=\"" + result + "\"/>";
}

Form Begin(const std::string& id, const std::string& action = "-") {
  Form form{{"ActionID", id}, {"CustomLockHolder", "host 7"}};
  if (action != "-") form.push_back({"Action", action});
  return form;
}

Form Finalize(const std::string& id, const std::string& action = "run", const std::string& options = "7") {
  return {{"ActionID", id}, {"WebMethod", "SoftwareUpdate"}, {"Action", action}, {"Options", options}};
}

std::string Cdf(const std::string& stacks) {
  return "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"5.0\"?>\n<DEFINITION>" + stacks + "</DEFINITION>\n";
}

// Run in both modes: the action exchange directory moves, the behaviour does not.
class ActionLifecycleTest : public WebMethodTest, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    WebMethodTest::SetUp();
    if (GetParam()) EnterSafeMode();
  }

  std::string ExchangeDirectory() const { return actions::ActionExchangeDirectory(); }
  std::string Mode() const { return GetParam() ? "1" : "0"; }

  // True when no action directory exists and nothing was written beside it.
  bool NothingCreated() const {
    return !std::filesystem::exists(ExchangeDirectory()) ||
           std::filesystem::is_empty(ExchangeDirectory());
  }
};

INSTANTIATE_TEST_SUITE_P(Modes, ActionLifecycleTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "SafeMode" : "RunMode"; });

TEST_P(ActionLifecycleTest, BeginFinalizeCancel) {
  const webruntime::MemoryRequest begun = Run("BeginAction", Begin("A1"));
  EXPECT_EQ(begun.status, 200);
  EXPECT_EQ(begun.mimeType, "text/xml");
  EXPECT_THAT(begun.output,
              testing::MatchesRegex("<\\?xml version=\"1\\.0\"\\?>\n"
                                    "<BeginAction Result=\"0\" Directory=\"/\\.syscfg-action/A1\" "
                                    "StartTime=\"[0-9A-F]+ [0-9A-F]+ [0-9A-F]+ 0\" Mode=\"" +
                                    Mode() + "\" />\n"));
  EXPECT_TRUE(std::filesystem::is_directory(ExchangeDirectory() + "/A1"));
  EXPECT_FALSE(plugin::RestartThread().IsRunning());

  const webruntime::MemoryRequest finalized = Run("FinalizeAction", Finalize("A1", "post [x]=1", "4294967295"));
  EXPECT_EQ(finalized.output, ResultAnswer("FinalizeAction", "0"));
  EXPECT_TRUE(plugin::RestartThread().IsRunning());  // the daemon is woken after the reply
  ini::Document postAction;
  ASSERT_EQ(postAction.Load(ExchangeDirectory() + "/A1/postaction.ini"), 0);
  int32_t retval = -1;
  uint32_t options = 0;
  std::string webMethod, action;
  EXPECT_TRUE(postAction.GetInt32("PostAction", "Retval", retval));
  EXPECT_TRUE(postAction.GetUInt32("PostAction", "Options", options));
  EXPECT_TRUE(postAction.GetText("PostAction", "WebMethod", webMethod));
  EXPECT_TRUE(postAction.GetText("PostAction", "Action", action));
  EXPECT_EQ(retval, 0);
  EXPECT_EQ(options, 4294967295u);
  EXPECT_EQ(webMethod, "SoftwareUpdate");
  EXPECT_EQ(action, "post [x]=1");

  const webruntime::MemoryRequest cancelled = Run("CancelAction", {{"ActionID", "A1"}});
  EXPECT_EQ(cancelled.status, 200);
  EXPECT_EQ(cancelled.output, ResultAnswer("CancelAction", "0"));
  EXPECT_TRUE(NothingCreated());
}

TEST_P(ActionLifecycleTest, StartTimeIsTheLockRecordsModificationTime) {
  ASSERT_EQ(Run("BeginAction", Begin("A1")).status, 200);
  const struct timeval times[2] = {{1600000000, 0}, {1600000000, 0}};
  ASSERT_EQ(::utimes((ExchangeDirectory() + "/A1/" + platform::kActionLockRecordName).c_str(), times), 0);
  // The holder asking again is told so (Result 1) and gets the same answer.
  EXPECT_EQ(Run("BeginAction", Begin("A1")).output,
            std::string(kXmlDeclaration) +
                "<BeginAction Result=\"1\" Directory=\"/.syscfg-action/A1\" StartTime=\"0 0 DB83C080 0\" Mode=\"" +
                Mode() + "\" />\n");
}

TEST_P(ActionLifecycleTest, MalformedRequestsGet400WithoutBody) {
  const struct {
    const char* method;
    Form form;
  } cases[] = {
      {"BeginAction", {{"CustomLockHolder", "h"}}},
      {"BeginAction", {{"ActionID", "A1"}}},
      {"BeginAction", {{"ActionID", "A1"}, {"CustomLockHolder", "h"}, {"Action", "\xC3("}}},
      {"BeginAction", {{"ActionID", "\xFF"}, {"CustomLockHolder", "h"}}},
      {"FinalizeAction", {{"WebMethod", "w"}, {"Action", "a"}, {"Options", "0"}}},
      {"FinalizeAction", {{"ActionID", "A1"}, {"Action", "a"}, {"Options", "0"}}},
      {"FinalizeAction", {{"ActionID", "A1"}, {"WebMethod", "w"}, {"Options", "0"}}},
      {"FinalizeAction", {{"ActionID", "A1"}, {"WebMethod", "w"}, {"Action", "a"}}},
      {"FinalizeAction", Finalize("A1", "a", "12abc")},
      {"FinalizeAction", Finalize("A1", "a", "-1")},
      {"FinalizeAction", Finalize("A1", "a", "4294967296")},
      {"CancelAction", {{"actionid", "A1"}}},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    const webruntime::MemoryRequest reply = Run(cases[i].method, cases[i].form);
    EXPECT_EQ(reply.status, 400) << "case " << i;
    EXPECT_EQ(reply.output, "");
    EXPECT_EQ(reply.mimeType, "");
  }
  EXPECT_TRUE(NothingCreated());
  EXPECT_FALSE(plugin::RestartThread().IsRunning());
}

TEST_P(ActionLifecycleTest, RefusedActionIdsCreateNothing) {
  const std::vector<std::string> ids{"", ".", "..", "../A1", "a/b", "/A1", "A\x01", "A\nB", "A B",
                                     std::string(129, 'a')};
  for (const std::string& id : ids) {
    EXPECT_EQ(Run("BeginAction", Begin(id)).output, ResultAnswer("BeginAction", kInvalidArgument)) << id;
    EXPECT_EQ(Run("CancelAction", {{"ActionID", id}}).output, ResultAnswer("CancelAction", kInvalidArgument));
  }
  EXPECT_TRUE(NothingCreated());
  EXPECT_FALSE(std::filesystem::exists(root / "/A1"));
  EXPECT_FALSE(std::filesystem::exists(root / "/mnt/userfs/A1"));
}

TEST_P(ActionLifecycleTest, LockHeldByAnotherAction) {
  ASSERT_EQ(Run("BeginAction", Begin(std::string(128, 'a'))).status, 200);
  const webruntime::MemoryRequest other = Run("BeginAction", Begin("B"));
  EXPECT_EQ(other.status, 200);  // the handler leaves the status; the body says why
  EXPECT_EQ(other.output, ResultAnswer("BeginAction", kNotLockHolder));
  EXPECT_EQ(Run("CancelAction", {{"ActionID", "B"}}).output, ResultAnswer("CancelAction", kNotLockHolder));

  EXPECT_EQ(Run("FinalizeAction", Finalize("B")).output, ResultAnswer("FinalizeAction", kInvalidArgument));
  EXPECT_FALSE(plugin::RestartThread().IsRunning());
  EXPECT_FALSE(std::filesystem::exists(ExchangeDirectory() + "/" + std::string(128, 'a') + "/postaction.ini"));
  EXPECT_FALSE(std::filesystem::exists(ExchangeDirectory() + "/B"));
}

TEST_P(ActionLifecycleTest, PostActionFileThatCannotBeWritten) {
  ASSERT_EQ(Run("BeginAction", Begin("A1")).status, 200);
  // A value that would add a line to the file cannot be carried.
  EXPECT_EQ(Run("FinalizeAction", Finalize("A1", "a\nRetval=1")).output,
            ResultAnswer("FinalizeAction", "-2147024882"));
  // A directory in the file's place cannot be replaced.
  std::filesystem::create_directory(ExchangeDirectory() + "/A1/postaction.ini");
  EXPECT_EQ(Run("FinalizeAction", Finalize("A1")).output, ResultAnswer("FinalizeAction", "-2147214096"));
  EXPECT_FALSE(plugin::RestartThread().IsRunning());
}

TEST_P(ActionLifecycleTest, SoftwareUpdatePreCheck) {
  const std::string config = "/etc/brenmar/share/config.cdf";
  // No installed configuration: the load status is the answer.
  EXPECT_EQ(Run("BeginAction", Begin("A1", "SoftwareUpdate")).output, ResultAnswer("BeginAction", "-8"));
  root.WriteFile(config, Cdf("<STACK NAME=\"S1\" OPKGSYSTEM=\"YES\"/><STACK NAME=\"S2\"/>"));
  EXPECT_EQ(Run("BeginAction", Begin("A1", "SoftwareUpdate")).output, ResultAnswer("BeginAction", "-2147219511"));
  EXPECT_TRUE(NothingCreated());

  // The comparison is exact; other actions take the lock without looking.
  for (const char* action : {"softwareupdate", "", "SoftwareUpdate "}) {
    EXPECT_THAT(Run("BeginAction", Begin("A1", action)).output, testing::HasSubstr("Result=\"0\"")) << action;
    ASSERT_EQ(Run("CancelAction", {{"ActionID", "A1"}}).status, 200);
  }
  // Only the first stack decides; an empty catalogue lets the update through.
  for (const char* stacks : {"<STACK NAME=\"S2\"/><STACK NAME=\"S1\" OPKGSYSTEM=\"YES\"/>", ""}) {
    root.WriteFile(config, Cdf(stacks));
    EXPECT_THAT(Run("BeginAction", Begin("A1", "SoftwareUpdate")).output, testing::HasSubstr("Result=\"0\""));
    ASSERT_EQ(Run("CancelAction", {{"ActionID", "A1"}}).status, 200);
  }
}

TEST_P(ActionLifecycleTest, ExactlyOneOfEightRacingBeginsWins) {
  std::atomic<int> won{0}, refused{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      const std::string output = Run("BeginAction", Begin("R" + std::to_string(t))).output;
      if (output.find("Result=\"0\"") != std::string::npos) ++won;
      if (output == ResultAnswer("BeginAction", kNotLockHolder)) ++refused;
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(won, 1);
  EXPECT_EQ(refused, 7);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(ExchangeDirectory()), {}), 1);
}

// While another thread holds the progress mutex, every method but Ping waits.
TEST_F(WebMethodTest, MethodsWaitForTheProgressMutex) {
  const struct {
    const char* method;
    Form form;
    bool waits;
  } cases[] = {
      {"BeginAction", Begin("A1"), true},        {"FinalizeAction", Finalize("A1"), true},
      {"CancelAction", {{"ActionID", "A1"}}, true}, {"Progress", {}, true},
      {"BeginAction", {}, true},  // refused, but only after taking the mutex
      {"Ping", {}, false},
  };
  for (const auto& c : cases) {
    std::atomic<bool> done{false};
    std::thread request;
    {
      tal::osdep::NamedMutexLock held(plugin::ProgressMutex());
      request = std::thread([&] {
        Run(c.method, c.form);
        done = true;
      });
      std::this_thread::sleep_for(std::chrono::milliseconds(c.waits ? 100 : 0));
      if (c.waits) {
        EXPECT_FALSE(done) << c.method;
      }
    }
    request.join();
    EXPECT_TRUE(done);
  }
}

}  // namespace
}  // namespace kx::test
