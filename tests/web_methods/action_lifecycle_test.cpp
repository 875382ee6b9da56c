#include <gmock/gmock.h>
#include <sys/time.h>

#include <atomic>
#include <filesystem>
#include <iterator>
#include <optional>
#include <set>
#include <thread>

#include "actions/web_methods.h"
#include "exchange/action_directory_name.h"
#include "tests/support/log_recorder.h"
#include "tests/web_methods/web_method_fixture.h"
#include "webrequest/request_helpers.h"

namespace kx::test {
namespace {

Form BeginForm(const std::string& id, const std::string& action = "-") {
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

  std::string ExchangeDirectory() const { return exchange::ActionExchangeDirectory(); }
  // As a pattern: the whole answer, up to its line end.
  std::string BeginAnswer(const char* result, const std::string& startTime) const {
    return "<\\?xml version=\"1\\.0\"\\?>\n<BeginAction Result=\"" + std::string(result) +
           "\" Directory=\"/\\.syscfg-action/A1\" StartTime=\"" + startTime + "\" Mode=\"" + (GetParam() ? "1" : "0") +
           "\" />\n";
  }
  // Every path below the root but the action exchange directory, its parents and what it holds.
  std::set<std::string> PathsOutsideTheExchange() const {
    const std::string exchange = ExchangeDirectory();
    std::set<std::string> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root.Path())) {
      const std::string path = entry.path();
      if (path.rfind(exchange, 0) != 0 && exchange.rfind(path + "/", 0) != 0) paths.insert(path);
    }
    return paths;
  }
  // True when no action directory exists and nothing was written beside it.
  bool NothingCreated() const {
    return !std::filesystem::exists(ExchangeDirectory()) || std::filesystem::is_empty(ExchangeDirectory());
  }
};

INSTANTIATE_TEST_SUITE_P(Modes, ActionLifecycleTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "SafeMode" : "RunMode"; });

// A whole action: begun, the update handed over with the body and again as an
// upload, progress read, finalized with a post-action file, cancelled.
TEST_P(ActionLifecycleTest, WholeAction) {
  const webruntime::MemoryRequest begun = Run("BeginAction", BeginForm("A1"));
  EXPECT_EQ(begun.status, 200);
  EXPECT_EQ(begun.mimeType, "text/xml");
  EXPECT_THAT(begun.output, testing::MatchesRegex(BeginAnswer("0", "[0-9A-F]+ [0-9A-F]+ [0-9A-F]+ 0")));
  const std::string directory = ExchangeDirectory() + "/A1/";
  EXPECT_TRUE(std::filesystem::is_directory(directory));
  EXPECT_EQ(TakeRestarts(), 0);
  // The holder asking again is told so (Result 1); the start time is the lock record's modification time.
  const struct timeval times[2] = {{1600000000, 0}, {1600000000, 0}};
  ASSERT_EQ(::utimes((directory + exchange::kLockRecordName).c_str(), times), 0);
  EXPECT_THAT(Run("BeginAction", BeginForm("A1")).output, testing::MatchesRegex(BeginAnswer("1", "0 0 DB83C080 0")));

  processes.daemonRunning = GetParam();  // safe mode needs it
  const std::string body = "<WSACTIONCOMMAND NAME=\"A1\"/>\n<DEFINITION/>\n";
  EXPECT_EQ(Run("SoftwareUpdate", {}, body).output, Answer("SoftwareUpdate", 0));
  EXPECT_EQ(ReadFile(directory + "install.cdf"), body);
  root.WriteFile("/.kx-uploads/u1", "<DEFINITION/>\n");
  const webruntime::StoredUpload upload{"file", "u1.cdf", root / "/.kx-uploads/u1", 14};
  EXPECT_EQ(Run("SoftwareUpdate", {}, "<WSACTIONCOMMAND NAME=\"A1\"/>", true, {upload}).output,
            Answer("SoftwareUpdate", 0));
  EXPECT_EQ(ReadFile(directory + "install.cdf"), "<DEFINITION/>\n");
  EXPECT_FALSE(std::filesystem::exists(upload.localPath));
  EXPECT_GT(TakeRestarts(), 0);
  EXPECT_EQ(Run("Progress").output, std::string(kXmlDeclaration) + "<Progress>\n<Current/>\n</Progress>");

  EXPECT_EQ(Run("FinalizeAction", Finalize("A1", "post [x]=1", "4294967295")).output, Answer("FinalizeAction", 0));
  EXPECT_GT(TakeRestarts(), 0);  // the daemon is woken after the reply
  const std::string postAction = directory + "postaction.ini";
  EXPECT_EQ(IniText(postAction, "PostAction", "Retval") + "|" + IniText(postAction, "PostAction", "Options") + "|" +
                IniText(postAction, "PostAction", "WebMethod") + "|" + IniText(postAction, "PostAction", "Action"),
            "0|4294967295|SoftwareUpdate|post [x]=1");

  const webruntime::MemoryRequest cancelled = Run("CancelAction", {{"ActionID", "A1"}});
  EXPECT_EQ(cancelled.status, 200);
  EXPECT_EQ(cancelled.output, Answer("CancelAction", 0));
  EXPECT_TRUE(NothingCreated());
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
    EXPECT_EQ(reply.output + reply.mimeType, "") << "case " << i;
  }
  EXPECT_TRUE(NothingCreated());
  EXPECT_EQ(TakeRestarts(), 0);
}

// Action IDs are the remote host's own text. Each runs a whole action in one
// directory directly inside the action exchange directory.
TEST_P(ActionLifecycleTest, AnyActionIdRunsAWholeActionInsideTheExchange) {
  processes.daemonRunning = GetParam();  // safe mode needs it
  ASSERT_EQ(HasActionLock("none"), 0);   // makes the service's own lock file
  const std::set<std::string> before = PathsOutsideTheExchange();
  const std::string ids[] = {"{6F1C5A2E-9D3B-4C1A-8E2F-0123456789AB}",
                             "blank id",
                             "host:7",
                             "\xc3\xa4ktion \xe2\x82\xac",
                             "a/b",
                             "..",
                             "../../etc/passwd",
                             std::string(4096, 'x')};
  for (const std::string& id : ids) {
    const std::string name = exchange::ActionDirectoryName(id);
    const std::string directory = ExchangeDirectory() + "/" + name + "/";
    EXPECT_THAT(Run("BeginAction", BeginForm(id)).output,
                testing::HasSubstr("Result=\"0\" Directory=\"/.syscfg-action/" + name + "\" StartTime="));
    const std::string body = "<WSACTIONCOMMAND NAME=\"" + id + "\"/>\n<DEFINITION/>\n";
    EXPECT_EQ(Run("SoftwareUpdate", {}, body).output, Answer("SoftwareUpdate", 0)) << id;
    EXPECT_EQ(ReadFile(directory + "install.cdf"), body);
    EXPECT_THAT(Run("GetSystemImage", {{"ActionID", id}, {"Blacklist", ""}, {"Options", "0"}}).output,
                testing::HasSubstr("Result=\"0\" ImageFileURL=\".syscfg-action/" + name + "/SystemImage.tgz\""));
    EXPECT_EQ(IniText(directory + "getimage.ini", "GetImage", "ImagePath"), directory + "SystemImage.tgz");
    EXPECT_EQ(Run("FinalizeAction", Finalize(id)).output, Answer("FinalizeAction", 0)) << id;
    EXPECT_EQ(IniText(directory + "postaction.ini", "PostAction", "Action"), "run");
    EXPECT_EQ(Run("CancelAction", {{"ActionID", id}}).output, Answer("CancelAction", 0)) << id;
    EXPECT_TRUE(NothingCreated()) << id;
  }
  EXPECT_EQ(PathsOutsideTheExchange(), before);
}

TEST_P(ActionLifecycleTest, RefusedActionIdsAndAnotherHolderChangeNothing) {
  for (const std::string& id : {std::string(), std::string(4097, 'a')}) {
    EXPECT_EQ(Run("BeginAction", BeginForm(id)).output, Answer("BeginAction", kInvalidArgument)) << id;
    EXPECT_EQ(Run("CancelAction", {{"ActionID", id}}).output, Answer("CancelAction", kNotLockHolder));
  }
  EXPECT_TRUE(NothingCreated());

  const std::string holder(4096, 'a');
  ASSERT_EQ(Run("BeginAction", BeginForm(holder)).status, 200);
  const webruntime::MemoryRequest other = Run("BeginAction", BeginForm("B"));
  EXPECT_EQ(other.status, 200);  // the handler leaves the status; the body says why
  EXPECT_EQ(other.output, Answer("BeginAction", kNotLockHolder));
  EXPECT_EQ(Run("CancelAction", {{"ActionID", "B"}}).output, Answer("CancelAction", kNotLockHolder));
  EXPECT_EQ(Run("CancelAction", {{"ActionID", holder + "a"}}).output, Answer("CancelAction", kNotLockHolder));
  EXPECT_EQ(Run("FinalizeAction", Finalize("B")).output, Answer("FinalizeAction", kInvalidArgument));
  EXPECT_EQ(TakeRestarts(), 0);
  const std::string directory = ExchangeDirectory() + "/" + exchange::ActionDirectoryName(holder);
  EXPECT_FALSE(std::filesystem::exists(directory + "/postaction.ini"));
  EXPECT_FALSE(std::filesystem::exists(ExchangeDirectory() + "/B"));
}

// Values are written as given; one the file cannot carry (a line end in it,
// which would add keys) is refused and nothing is written.
TEST_P(ActionLifecycleTest, PostActionFile) {
  ASSERT_EQ(Run("BeginAction", BeginForm("A1")).status, 200);
  // A directory in the file's place cannot be replaced.
  const std::string file = ExchangeDirectory() + "/A1/postaction.ini";
  std::filesystem::create_directory(file);
  EXPECT_EQ(Run("FinalizeAction", Finalize("A1")).output, Answer("FinalizeAction", kSaveFailed));
  EXPECT_EQ(TakeRestarts(), 0);
  std::filesystem::remove(file);
  EXPECT_EQ(Run("FinalizeAction", Finalize("A1", "a\nRetval=1\r\nOptions=2")).output,
            Answer("FinalizeAction", kValueFailed));
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_EQ(TakeRestarts(), 0);
  EXPECT_EQ(Run("FinalizeAction", Finalize("A1", "a=[b]")).output, Answer("FinalizeAction", 0));
  EXPECT_EQ(IniText(file, "PostAction", "Retval") + "|" + IniText(file, "PostAction", "Options") + "|" +
                IniText(file, "PostAction", "Action"),
            "0|7|a=[b]");
}

TEST_P(ActionLifecycleTest, SoftwareUpdatePreCheck) {
  const std::string config = "/etc/brenmar/share/config.cdf";
  // No installed configuration: the load status is the answer.
  EXPECT_EQ(Run("BeginAction", BeginForm("A1", "SoftwareUpdate")).output, Answer("BeginAction", -8));
  root.WriteFile(config, Cdf("<STACK NAME=\"S1\" OPKGSYSTEM=\"YES\"/><STACK NAME=\"S2\"/>"));
  EXPECT_EQ(Run("BeginAction", BeginForm("A1", "SoftwareUpdate")).output, Answer("BeginAction", int32_t(0x800407C9u)));
  EXPECT_TRUE(NothingCreated());

  // The comparison is exact; other actions take the lock without looking. Only
  // the first stack decides; an empty catalogue lets the update through.
  const std::pair<const char*, const char*> accepted[] = {
      {"softwareupdate", nullptr},
      {"", nullptr},
      {"SoftwareUpdate ", nullptr},
      {"SoftwareUpdate", "<STACK NAME=\"S2\"/><STACK NAME=\"S1\" OPKGSYSTEM=\"YES\"/>"},
      {"SoftwareUpdate", ""}};
  for (const auto& [action, stacks] : accepted) {
    if (stacks != nullptr) root.WriteFile(config, Cdf(stacks));
    EXPECT_THAT(Run("BeginAction", BeginForm("A1", action)).output, testing::HasSubstr("Result=\"0\"")) << action;
    ASSERT_EQ(Run("CancelAction", {{"ActionID", "A1"}}).status, 200);
  }
}

TEST_P(ActionLifecycleTest, ExactlyOneOfEightRacingBeginsWins) {
  std::atomic<int> won{0}, refused{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      const std::string output = Run("BeginAction", BeginForm("R" + std::to_string(t))).output;
      won += output.find("Result=\"0\"") != std::string::npos;
      refused += output == Answer("BeginAction", kNotLockHolder);
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(won, 1);
  EXPECT_EQ(refused, 7);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(ExchangeDirectory()), {}), 1);
}

}  // namespace
}  // namespace kx::test
