#include "kx/tal/log.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "kx/tal/file_finder.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "tests/support/scratch_root.h"

using namespace kx::tal;

namespace {
class LogTest : public testing::Test {
 protected:
  void SetUp() override {
    SetLogCapture([this](uint32_t mask, const std::string& text) { logged.emplace_back(mask, text); });
  }
  void TearDown() override {
    SetLogCapture(nullptr);
    CloseTraceLog();
    InitTraceLog(1, 1, "", 0);
  }
  std::vector<std::pair<uint32_t, std::string>> logged;
  kx::test::ScratchRoot root;
};
}  // namespace

TEST_F(LogTest, MaskDropsMessagesBeforeTheyAreBuilt) {
  InitTraceLog(logmask::kError | logmask::kInfo, 0, "", 0);
  int built = 0;
  auto text = [&built] {
    ++built;
    return std::string("entry");
  };
  KX_LOG(logmask::kEntry, text());
  KX_LOG(logmask::kInfo, text());
  EXPECT_EQ(built, 1);
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0], std::make_pair(logmask::kInfo, std::string("entry")));
}

// The trace file holds each message and a thread line; none is opened when the
// disk is below the threshold, while the message is still logged.
TEST_F(LogTest, TraceFileHoldsTextAndThreadLineUnlessTheDiskIsLow) {
  const std::string dir = root / "/log", low = root / "/low";
  CreateDirectories(dir);
  CreateDirectories(low);
  InitTraceLog(logmask::kEntry, 1, dir, 0);
  Log(logmask::kEntry, "orlaRun()");
  Log(logmask::kInfo, "dropped");
  CloseTraceLog();
  InitTraceLog(logmask::kEntry, 1, low, UINT64_MAX);
  Log(logmask::kEntry, "orlaInit()");
  CloseTraceLog();
  EXPECT_TRUE(FindFiles(low, "*").empty());
  EXPECT_EQ(logged.size(), 2u);

  const auto files = FindFiles(dir, "*-vqTracer-*.log");
  ASSERT_EQ(files.size(), 1u);
  char pid[16];
  std::snprintf(pid, sizeof pid, "%08lX.log", static_cast<unsigned long>(::getpid()));
  EXPECT_NE(files[0].find(pid), std::string::npos);
  TextFileReader reader(files[0]);
  std::string line;
  ASSERT_TRUE(reader.ReadLine(line));
  EXPECT_EQ(line, "  orlaRun()");
  ASSERT_TRUE(reader.ReadLine(line));
  EXPECT_EQ(line.rfind("  Thread = 0x", 0), 0u);
  EXPECT_NE(line.find(", Time = "), std::string::npos);
  EXPECT_FALSE(reader.ReadLine(line));
}
