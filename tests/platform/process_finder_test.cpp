#include "platform/process_finder.h"

#include <gtest/gtest.h>

#include "tests/platform/named_process.h"

namespace {

using kx::platform::FindProcess;

TEST(ProcessFinderTest, MatchesTheWholeCommandName) {
  kx::test::NamedProcess longer("kxsid2");
  EXPECT_EQ(FindProcess("kxsid2"), longer.Pid());
  EXPECT_NE(FindProcess("kxsid"), longer.Pid());
  EXPECT_NE(FindProcess("kxsid22"), longer.Pid());
  EXPECT_EQ(FindProcess("no such command"), 0);
}

}  // namespace
