// Merging a package's INI text into one of the controller's INI files.

#include <gtest/gtest.h>

#include "ini/ini_codes.h"
#include "ini/ini_merge.h"

namespace kx::ini {
namespace {

TEST(IniMergeTest, KeepsEveryKeyAndTheTargetsLayout) {
  const std::string target =
      "\xEF\xBB\xBF; controller settings\n\nMode=run\n\n; network\n[Net]\nDhcp=1\n\nProxy=\"none\"\n"
      "; Gateway=10.0.0.1\n[Startup]\nMainExe=/old\n\n# end\n";
  const std::string merge =
      "Top=1\n[Startup]\nMainExe=/kx-rt/system/flashupd.exe\n[Net]\n; "
      "dropped\nProxy=proxy:8080\nNtp=on\n[New]\nA='1'\n";
  // The blank line before "; Gateway" is the one the writer puts between sections.
  const std::string expected =
      "\xEF\xBB\xBF; controller settings\n\nMode=run\nTop=1\n\n; network\n[Net]\nDhcp=1\n\nProxy=proxy:8080\nNtp=on\n"
      "\n; Gateway=10.0.0.1\n[Startup]\nMainExe=/kx-rt/system/flashupd.exe\n\n[New]\nA='1'\n\n# end\n";
  std::string merged;
  ASSERT_EQ(MergeText(target, merge, merged), kOk);
  EXPECT_EQ(merged, expected);
  std::string again;
  ASSERT_EQ(MergeText(merged, merge, again), kOk);
  EXPECT_EQ(again, expected);
}

// Text pasted from a file with a byte-order mark and CR LF line ends.
TEST(IniMergeTest, PastedTextKeepsItsSections) {
  std::string merged;
  ASSERT_EQ(MergeText("", "\r\n\xEF\xBB\xBF[Hello]\r\nGreeting=Hi\r\n", merged), kOk);
  EXPECT_EQ(merged, "[Hello]\nGreeting=Hi\n");
}

}  // namespace
}  // namespace kx::ini
