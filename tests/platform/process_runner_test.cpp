#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/no_window_external_application.h"
#include "tests/support/log_recorder.h"
#include "tests/support/scratch_root.h"

namespace {

using kx::platform::NoWindowExternalApplication;
using kx::tal::logmask::kError2;
using kx::tal::logmask::kInfo;
namespace fs = std::filesystem;

const char kRecorder[] = KX_ARGV_RECORDER;

std::wstring Wide(const std::string& narrow) { return std::wstring(narrow.begin(), narrow.end()); }

std::vector<std::string> SplitAtNul(const std::string& text) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t end; (end = text.find('\0', start)) != std::string::npos; start = end + 1) {
    parts.push_back(text.substr(start, end - start));
  }
  return parts;
}

class ProcessRunnerTest : public ::testing::Test {
 protected:
  kx::test::ScratchRoot root_;
};

TEST_F(ProcessRunnerTest, EveryArgumentArrivesWholeAndNothingElseRuns) {
  const std::string trap = root_ / "/ran";
  const std::vector<std::string> arguments = {"-t",
                                              "-rf",
                                              "/path with blanks/image.tgz",
                                              "it's \"quoted\"",
                                              "a; touch " + trap,
                                              "$(touch " + trap + ")",
                                              "`touch " + trap + "`",
                                              "x | touch " + trap,
                                              "",
                                              "*",
                                              "\\n"};
  const std::string output = root_ / "/argv";
  NoWindowExternalApplication runner(Wide(output), L"", "");
  EXPECT_EQ(runner.startAndComplete(kRecorder, arguments), 0);
  EXPECT_EQ(SplitAtNul(kx::test::ReadFile(output)), arguments);
  EXPECT_FALSE(fs::exists(trap));
  // Exit status, or -1 when nothing could be started.
  EXPECT_EQ(runner.startAndComplete("false", {}), 1);
  EXPECT_EQ(runner.startAndComplete(root_ / "/no-such-program", {}), -1);
  EXPECT_EQ(runner.startAndComplete("", {}), -1);
  EXPECT_EQ(runner.startAndComplete("true", {std::string("a\0b", 3)}), -1);
}

// One path for both streams opens the file once (cleaned up as a path, so these
// two spellings are one file); different paths get one stream each. Both append.
TEST_F(ProcessRunnerTest, StreamsShareAnOpenFileOnlyForTheSamePath) {
  for (int run = 1; run <= 2; ++run) {
    NoWindowExternalApplication shared(Wide(root_ / "//both.log"), Wide(root_ / "/./both.log"), "");
    EXPECT_EQ(shared.startAndComplete(kRecorder, {"--probe-streams"}), 0);
    NoWindowExternalApplication separate(Wide(root_ / "/out.log"), Wide(root_ / "/err.log"), "");
    EXPECT_EQ(separate.startAndComplete(kRecorder, {"--probe-streams"}), 0);
  }
  EXPECT_EQ(kx::test::ReadFile(root_ / "/both.log"), "out\nshared\nout\nshared\n");
  EXPECT_EQ(kx::test::ReadFile(root_ / "/out.log"), "out\nout\n");
  EXPECT_EQ(kx::test::ReadFile(root_ / "/err.log"), "separate\nseparate\n");
}

TEST_F(ProcessRunnerTest, ChrootOnlyInSafeMode) {
  if (geteuid() != 0) GTEST_SKIP() << "changing the root needs root";
  // An empty jail: a program found outside it cannot be run inside it.
  const std::string jail = root_ / "/jail";
  fs::create_directories(jail);
  kx::test::LogRecorder log(kInfo | kError2);
  NoWindowExternalApplication runner(L"", L"", jail);
  EXPECT_EQ(runner.startAndComplete("true", {}), 0);
  root_.WriteFile("/etc/brenmar/safemode", "");
  EXPECT_EQ(runner.startAndComplete("true", {}), -1);
  EXPECT_TRUE(log.Logged(kInfo, "NoWindowExternalApplication::setup - chroot " + jail));
  NoWindowExternalApplication missingJail(L"", L"", root_ / "/no-jail");
  EXPECT_EQ(missingJail.startAndComplete("true", {}), 0);
  EXPECT_TRUE(log.Logged(kError2, "Failed to chroot"));
}

}  // namespace
