#include <gmock/gmock.h>

#include <filesystem>

#include "tests/support/log_recorder.h"
#include "tests/web_methods/web_method_fixture.h"

namespace kx::test {
namespace {

namespace fs = std::filesystem;
using webruntime::MemoryRequest;
using webruntime::StoredUpload;
using namespace std::string_literals;

const std::string kCommand = "<WSACTIONCOMMAND NAME=\"A1\" AUTOREBOOT=\"YES\"/>";
const std::string kCatalogue = kCommand + "\n<DEFINITION><SOFTPKG NAME=\"{1}\" VERSION=\"1.0\"/></DEFINITION>\n";

class SoftwareUpdateTest : public WebMethodTest {
 protected:
  MemoryRequest Update(std::string body, bool uploadList = false, std::vector<StoredUpload> uploads = {}) const {
    return Run("SoftwareUpdate", {}, std::move(body), uploadList, std::move(uploads));
  }
  // A file stored the way the host stores an upload.
  StoredUpload Upload(const std::string& name, const std::string& content) const {
    root.WriteFile("/.kx-uploads/" + name, content);
    return {"file", name + ".cdf", root / ("/.kx-uploads/" + name), content.size()};
  }
};

TEST_F(SoftwareUpdateTest, RefusalsLeaveTheActionDirectoryAsItWas) {
  const std::string directory = Begin();
  const struct {
    const char* what;
    std::string body;
    bool uploadList;
    int uploads;
    int32_t result;
  } rows[] = {
      {"another action's ID", "<WSACTIONCOMMAND NAME=\"A2\"/>", false, 0, kNotLockHolder},
      {"no action command", "<DEFINITION/>", false, 0, kNotLockHolder},
      {"empty body", "", false, 0, kNotLockHolder},
      {"upload form without files", kCatalogue, true, 0, kInvalidArgument},
      {"two uploads", kCatalogue, true, 2, kInvalidArgument},
      {"AUTOREBOOT NO in run mode", "<WSACTIONCOMMAND NAME=\"A1\" AUTOREBOOT=\"NO\"/>", false, 0, kFail},
  };
  for (const auto& row : rows) {
    std::vector<StoredUpload> uploads;
    for (int i = 0; i < row.uploads; ++i) uploads.push_back(Upload("u" + std::to_string(i), kCatalogue));
    const MemoryRequest reply = Update(row.body, row.uploadList, uploads);
    EXPECT_EQ(reply.output, Answer("SoftwareUpdate", row.result)) << row.what;
    EXPECT_EQ(reply.status, 200) << row.what;
    EXPECT_FALSE(fs::exists(directory + "install.cdf")) << row.what;
  }
  EXPECT_EQ(HasActionLock("A1"), 1);
  EXPECT_EQ(TakeRestarts(), 0);

  // A body that is not UTF-8 text cannot be read at all: the frame's answer, with or without the lock.
  for (const std::string& body : {kCatalogue + "\xff\xfe", "<WSACTIONCOMMAND NAME=\"A2\"/>\xc3"s}) {
    const MemoryRequest reply = Update(body);
    EXPECT_EQ(reply.status, 500);
    EXPECT_EQ(reply.Header("Reason-Phrase"), "Invalid UTF8 encoding sequence");
    EXPECT_EQ(reply.output, "");
    EXPECT_FALSE(fs::exists(directory + "install.cdf"));
  }

  fs::create_directory(directory + "install.cdf");
  EXPECT_EQ(Update(kCatalogue).output, Answer("SoftwareUpdate", kSaveFailed));
  EXPECT_EQ(TakeRestarts(), 0);
}

// The real lock, but the action ends right after its first check and another
// begins: the daemon's post-action and another client's BeginAction landing
// between SoftwareUpdate's lock check and its placing of the catalogue.
struct LockTakenOverAfterTheCheck final : actions::ActionLockService {
  actions::ActionLockService& real = actions::ControllersOwnServices().actionLock;
  bool checked = false;
  int32_t Obtain(const std::string& id, const std::string& holder, std::string& path) override {
    return real.Obtain(id, holder, path);
  }
  bool IsHeldBy(const std::string& id) override {
    const bool held = real.IsHeldBy(id);
    if (!checked) {
      checked = true;
      std::string path;
      EXPECT_EQ(RemoveActionLock(id), 0);
      EXPECT_EQ(ObtainActionLock("B2", "", path), 0);
    }
    return held;
  }
  int32_t Release(const std::string& id) override { return real.Release(id); }
};

TEST_F(SoftwareUpdateTest, ACatalogueNeverLandsInTheNextAction) {
  Begin();
  LockTakenOverAfterTheCheck lock;
  actions::ControllerServices racing{lock, systemState, processes, clock};
  actions::UseServices(&racing);
  EXPECT_EQ(Update(kCommand, true, {Upload("u1", kCatalogue)}).output, Answer("SoftwareUpdate", kNotLockHolder));
  actions::UseServices(&services);
  EXPECT_EQ(HasActionLock("B2"), 1);
  EXPECT_FALSE(fs::exists(exchange::CurrentActionDirectory() + "install.cdf"));
  EXPECT_EQ(TakeRestarts(), 0);
}

// Only the host bounds the body: a catalogue larger than any fixed limit is placed whole.
TEST_F(SoftwareUpdateTest, LargeCatalogueIsPlacedWhole) {
  const std::string directory = Begin();
  const std::string body = kCatalogue + std::string(9u << 20, ' ');
  EXPECT_EQ(Update(body).output, Answer("SoftwareUpdate", 0));
  EXPECT_EQ(fs::file_size(directory + "install.cdf"), body.size());
}

// Only the exact "NO" keeps run mode from restarting; a leftover config.old does not stop an update.
TEST_F(SoftwareUpdateTest, RunModeRules) {
  root.WriteFile("/etc/brenmar/share/config.old", "");
  const std::string directory = Begin();
  EXPECT_EQ(Update("<WSACTIONCOMMAND NAME=\"A1\" AUTOREBOOT=\"no\"/>").output, Answer("SoftwareUpdate", 0));
  EXPECT_EQ(Update(kCatalogue).output, Answer("SoftwareUpdate", 0));
  EXPECT_EQ(ReadFile(directory + "install.cdf"), kCatalogue);
}

TEST_F(SoftwareUpdateTest, SafeModeSoftwareEndsTheActionAsRefused) {
  root.WriteFile("/etc/brenmar/share/config.cdf",
                 "<?CDF VERSION=\"5.0\"?><DEFINITION><SOFTPKG NAME=\"{217664c0-3392-4b49-a504-a9d4807906ca}\" "
                 "VERSION=\"1.0\"></SOFTPKG></DEFINITION>");
  Begin();
  EXPECT_EQ(Update(kCatalogue).output, Answer("SoftwareUpdate", int32_t(0x800407FBu)));
  EXPECT_THAT(ReadFile(root / "/etc/brenmar/share/lastAction.xml"),
              testing::MatchesRegex("<Last Id=\"A1\" ActionType=\"SoftwareUpdate\" StopTime=\"[^\"]+\" "
                                    "Result=\"-2147219461\"/>\n"));
  EXPECT_EQ(HasActionLock("A1"), 0);
  EXPECT_EQ(TakeRestarts(), 0);
}

TEST_F(SoftwareUpdateTest, SafeModeNeedsTheDaemonWhateverAutoReboot) {
  EnterSafeMode();
  const std::string directory = Begin();
  const std::string noReboot = "<WSACTIONCOMMAND NAME=\"A1\" AUTOREBOOT=\"NO\"/>";
  EXPECT_EQ(Update(noReboot).output, Answer("SoftwareUpdate", kFail));
  processes.daemonRunning = true;
  EXPECT_EQ(Update(noReboot).output, Answer("SoftwareUpdate", 0));
  EXPECT_EQ(ReadFile(directory + "install.cdf"), noReboot);
}

}  // namespace
}  // namespace kx::test
