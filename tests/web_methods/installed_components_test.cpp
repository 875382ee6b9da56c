#include <filesystem>

#include "platform/action_lock.h"
#include "tests/web_methods/web_method_fixture.h"

namespace kx::test {
namespace {

std::string Installation(int32_t result) {
  return std::string(kXmlDeclaration) + "<INSTALLATION Result=\"" + std::to_string(result) + "\"/>";
}

using InstalledComponentsTest = WebMethodTest;

TEST_F(InstalledComponentsTest, AnswersTheDocumentUpToItsFirstBlankLine) {
  const struct {
    const char* content;
    const char* answer;
  } rows[] = {
      {"<?xml version=\"1.0\"?>\r\n<DEFINITION>\n</DEFINITION>\n", "<?xml version=\"1.0\"?>\n<DEFINITION>\n</DEFINITION>\n"},
      {"line 1\nline 2\n\nline 4\n", "line 1\nline 2\n"},
      {"no line end", "no line end\n"},
      {"", ""},
  };
  for (const auto& row : rows) {
    root.WriteFile("/etc/brenmar/share/config.cdf", row.content);
    const webruntime::MemoryRequest reply = Run("InstalledComponents");
    EXPECT_EQ(reply.output, row.answer) << row.content;
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.mimeType, "text/xml");
  }
}

TEST_F(InstalledComponentsTest, WithoutConfigCdfTheResultTellsWhy) {
  EXPECT_EQ(Run("InstalledComponents").output, Installation(0x41CE7));
  root.WriteFile("/etc/brenmar/share/config.old", "");
  EXPECT_EQ(Run("InstalledComponents").output, Installation(int32_t(0x800407E2u)));
  std::string record;
  ASSERT_EQ(ObtainActionLock("A1", "", record), 0);
  const webruntime::MemoryRequest pending = Run("InstalledComponents");
  EXPECT_EQ(pending.output, Installation(0x4089A));
  EXPECT_EQ(pending.status, 200);
}

TEST_F(InstalledComponentsTest, UnreadableConfigCdfAnswers0x80041CF0) {
  // A directory opens as a file but cannot be read, whoever runs the test.
  std::filesystem::create_directory(root / "/etc/brenmar/share/config.cdf");
  EXPECT_EQ(Run("InstalledComponents").output, Installation(int32_t(0x80041CF0u)));
}

}  // namespace
}  // namespace kx::test
