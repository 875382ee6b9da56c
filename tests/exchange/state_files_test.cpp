#include "exchange/state_files.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace kx::exchange {
namespace {

class StateFilesTest : public testing::Test {
 protected:
  void SetUp() override { ::setenv("TZ", "UTC", 1); }
};

TEST_F(StateFilesTest, LinesEscapeWhatTheyAreGiven) {
  EXPECT_EQ(LastActionLine("{A&1}", "Soft\"ware\n", -2147219461, 1600000000),
            "<Last Id=\"{A&amp;1}\" ActionType=\"Soft&quot;ware \" StopTime=\"2020-09-13 12:26:40 UTC\" "
            "Result=\"-2147219461\"/>\n");
  EXPECT_EQ(CurrentActionElement("a<b", "Format", 1600000000, 140, "x>y"),
            "<Current Id=\"a&lt;b\" ActionType=\"Format\" StartTime=\"2020-09-13 12:26:40 UTC\" Percent=\"100\" "
            "Step=\"x&gt;y\"/>\n");
  EXPECT_NE(CurrentActionElement("a", "b", 0, -5, "").find("Percent=\"0\""), std::string::npos);
}

// An interrupted action's attributes are copied as written there, never escaped twice.
TEST_F(StateFilesTest, InterruptedActionKeepsItsAttributesAsWritten) {
  const std::string current = CurrentActionElement("{A&1}", "SoftwareUpdate", 0, 40, "step");
  EXPECT_EQ(LastActionLineOf(current, -2147467259, 1600000000),
            "<Last Id=\"{A&amp;1}\" ActionType=\"SoftwareUpdate\" StopTime=\"2020-09-13 12:26:40 UTC\" "
            "Result=\"-2147467259\"/>\n");
  EXPECT_EQ(AttributeValue("<Current XId=\"x\" Id=\"y\"/>", "Id"), "y");
  EXPECT_EQ(AttributeValue("<Current Id=\"open", "Id"), "");
  EXPECT_EQ(AttributeValue("<Current/>", "Id"), "");
}

}  // namespace
}  // namespace kx::exchange
