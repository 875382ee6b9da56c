#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <future>

#include "actions/progress_state.h"
#include "exchange/ipc_names.h"
#include "kx/tal/osdep/named_mutex.h"
#include "kx/tal/osdep/simple_shared_memory.h"
#include "tests/kx/tal/osdep/child_process.h"
#include "tests/web_methods/web_method_fixture.h"

namespace kx::test {
namespace {

constexpr char kCurrentFile[] = "/etc/brenmar/share/currentAction.xml";
constexpr char kLastFile[] = "/etc/brenmar/share/lastAction.xml";
constexpr char kCurrent[] = "<Current Id=\"A1\" ActionType=\"SoftwareUpdate\" Percent=\"40\" Step=\"copy\"/>";
constexpr char kLast[] = "<Last Id=\"A0\" ActionType=\"Format\" StopTime=\"t\" Result=\"0\"/>";

// The whole answer, without a line end after the last line.
std::string ProgressAnswer(const std::string& inner) {
  return std::string(kXmlDeclaration) + "<Progress>\n" + inner + "</Progress>";
}

// Writes the region as the daemon does: from another process, with its own
// objects for the region and its mutex.
void WriteRegionFromChild(const std::string& text) {
  ASSERT_EQ(0, RunInChild([&text] {
              tal::osdep::NamedMutex mutex(kx::exchange::kProgressMutexName);
              tal::osdep::SimpleSharedMemory(kx::exchange::kProgressRegionName, kx::exchange::kProgressRegionSize,
                                             &mutex)
                  .WriteText(text);
              return 0;
            }));
}

class ProgressTest : public WebMethodTest, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    WebMethodTest::SetUp();
    if (GetParam()) EnterSafeMode();
  }
};

INSTANTIATE_TEST_SUITE_P(Modes, ProgressTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "SafeMode" : "RunMode"; });

TEST_P(ProgressTest, PingReportsVersionAndMode) {
  const webruntime::MemoryRequest reply = Run("Ping");
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.mimeType, "text/xml");
  const auto ping = [](const char* mode) {
    return std::string(kXmlDeclaration) + "<Ping Result=\"0\" Version=\"20.0.0\" Mode=\"" + mode + "\" />\n";
  };
  EXPECT_EQ(reply.output, ping(GetParam() ? "1" : "0"));
  systemState.safeOrInstallMode = true;
  EXPECT_EQ(Run("Ping").output, ping("1"));
}

// The current action comes from currentAction.xml, or else from the region the
// daemon writes; the last action is appended from lastAction.xml.
TEST_P(ProgressTest, CurrentActionFromTheFileOrElseTheRegion) {
  const webruntime::MemoryRequest reply = Run("Progress");
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.mimeType, "text/xml");
  EXPECT_EQ(reply.output, ProgressAnswer("<Current/>\n"));

  WriteRegionFromChild(std::string(kCurrent) + " \n");
  EXPECT_EQ(Run("Progress").output, ProgressAnswer(kCurrent));
  root.WriteFile(kCurrentFile, " \n\t\n");  // white space only counts as empty
  root.WriteFile(kLastFile, kLast);
  EXPECT_EQ(Run("Progress").output, ProgressAnswer(std::string(kCurrent) + kLast));

  WriteRegionFromChild("<Current Id=\"stale\"/>");
  root.WriteFile(kCurrentFile, std::string(kCurrent) + "\n \t\r\n");
  root.WriteFile(kLastFile, std::string(kLast) + "\n");
  EXPECT_EQ(Run("Progress").output, ProgressAnswer(std::string(kCurrent) + kLast));

  std::filesystem::remove(root / kCurrentFile);
  actions::SetProgressRegion(nullptr);
  EXPECT_EQ(Run("Progress").output, ProgressAnswer(std::string("<Current/>\n") + kLast));
}

TEST_P(ProgressTest, UnreadableSourcesFailWithResultAnswer) {
  // A length word that does not match the region's size.
  FILE* file = std::fopen((root / "/var/tmp/brenmar/shared/SoftwareUpdateProgressSharedMem").c_str(), "r+b");
  ASSERT_NE(file, nullptr);
  const uint32_t wrongLength = 4999;
  ASSERT_EQ(std::fwrite(&wrongLength, sizeof wrongLength, 1, file), 1u);
  std::fclose(file);
  const webruntime::MemoryRequest reply = Run("Progress");
  EXPECT_EQ(reply.status, 200);
  EXPECT_EQ(reply.output, Answer("Progress", kSaveFailed));
  // A current action file that cannot be read is not skipped.
  std::filesystem::create_directories(root / kCurrentFile);
  EXPECT_EQ(Run("Progress").output, Answer("Progress", kSaveFailed));
}

// Progress holds the progress mutex while it reads: a FIFO in place of a state
// file must not keep it, and with it every action method, waiting.
TEST_P(ProgressTest, StateFilesThatAreNoRegularFilesFailWithoutWaiting) {
  for (const char* file : {kCurrentFile, kLastFile}) {
    const std::string fifo = root / file;
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    auto progress = std::async(std::launch::async, [this] { return Run("Progress"); });
    if (progress.wait_for(std::chrono::seconds(10)) == std::future_status::timeout) {
      ADD_FAILURE() << "Progress waits on " << file;
      close(open(fifo.c_str(), O_WRONLY | O_NONBLOCK));  // a writer that leaves at once lets it go
    }
    EXPECT_EQ(progress.get().output, Answer("Progress", kSaveFailed)) << file;
    EXPECT_NE(Run("BeginAction", {{"ActionID", "A1"}, {"CustomLockHolder", "h"}}).output.find("Result=\"0\""),
              std::string::npos)
        << file;
    EXPECT_EQ(Run("CancelAction", {{"ActionID", "A1"}}).output, Answer("CancelAction", 0)) << file;
    std::filesystem::remove(fifo);
  }
}

// Another process may cut the region's file short at any time: it is then
// corrupt, never the end of the process reading it.
TEST_P(ProgressTest, RegionFileCutShortIsCorrupt) {
  const std::string region = root / "/var/tmp/brenmar/shared/SoftwareUpdateProgressSharedMem";
  WriteRegionFromChild(kCurrent);
  for (const off_t size : {off_t{4999}, off_t{4}, off_t{0}}) {
    ASSERT_EQ(truncate(region.c_str(), size), 0);
    EXPECT_EQ(Run("Progress").output, Answer("Progress", kSaveFailed)) << size;
  }
}

}  // namespace
}  // namespace kx::test
