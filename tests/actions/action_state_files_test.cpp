#include "actions/action_state_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/scratch_root.h"

namespace {

using kx::actions::CreateActionXML;
namespace fs = std::filesystem;

TEST(ActionStateFilesTest, CreateActionXmlWritesWholeIntoTheConfigurationDirectoryOnly) {
  kx::test::ScratchRoot root;
  EXPECT_FALSE(CreateActionXML("lastAction.xml", "x"));  // no configuration directory
  root.WriteFile("/etc/brenmar/share/lastAction.xml", std::string(100, 'o'));
  EXPECT_TRUE(CreateActionXML("lastAction.xml", "<Last/>\n"));
  EXPECT_EQ(kx::test::ReadFile(root / "/etc/brenmar/share/lastAction.xml"), "<Last/>\n");
  for (const char* name : {"", ".", "..", "../lastAction.xml", "log/x.xml"}) {
    EXPECT_FALSE(CreateActionXML(name, "x")) << name;
  }
  EXPECT_FALSE(fs::exists(root / "/etc/brenmar/lastAction.xml"));
}

}  // namespace
