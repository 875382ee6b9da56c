#include <filesystem>

#include "tests/web_methods/web_method_fixture.h"

namespace kx::test {
namespace {

using InstalledComponentsTest = WebMethodTest;

TEST_F(InstalledComponentsTest, AnswersTheDocumentUpToItsFirstBlankLine) {
  const std::pair<const char*, const char*> rows[] = {
      {"<?xml version=\"1.0\"?>\r\n<DEFINITION>\n</DEFINITION>\n",
       "<?xml version=\"1.0\"?>\n<DEFINITION>\n</DEFINITION>\n"},
      {"line 1\nline 2\n\nline 4\n", "line 1\nline 2\n"},
      {"no line end", "no line end\n"},
      {"", ""},
  };
  for (const auto& [content, answer] : rows) {
    root.WriteFile("/etc/brenmar/share/config.cdf", content);
    const webruntime::MemoryRequest reply = Run("InstalledComponents");
    EXPECT_EQ(reply.output, answer) << content;
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.mimeType, "text/xml");
  }
}

// Without a readable config.cdf the result tells why: none yet, a failed
// installation, an action pending, or a file that cannot be read.
TEST_F(InstalledComponentsTest, WithoutConfigCdfTheResultTellsWhy) {
  EXPECT_EQ(Run("InstalledComponents").output, Answer("INSTALLATION", 0x41CE7));
  root.WriteFile("/etc/brenmar/share/config.old", "");
  EXPECT_EQ(Run("InstalledComponents").output, Answer("INSTALLATION", kNotLockHolder));
  Begin();
  const webruntime::MemoryRequest pending = Run("InstalledComponents");
  EXPECT_EQ(pending.output, Answer("INSTALLATION", 0x4089A));
  EXPECT_EQ(pending.status, 200);
  // A directory opens as a file but cannot be read, whoever runs the test.
  std::filesystem::create_directory(root / "/etc/brenmar/share/config.cdf");
  EXPECT_EQ(Run("InstalledComponents").output, Answer("INSTALLATION", kSaveFailed));
}

}  // namespace
}  // namespace kx::test
