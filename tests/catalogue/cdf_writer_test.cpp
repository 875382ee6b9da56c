#include "catalogue/cdf_writer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "catalogue/cdf_package_writer.h"
#include "kx/tal/path.h"
#include "kx/tal/text_file.h"
#include "tests/catalogue/well_formed_xml.h"
#include "tests/support/scratch_root.h"

using namespace kx::catalogue;

namespace {

std::string Written(const Package& package, const cdf::PackageWriteOptions& options = {}) {
  std::string out;
  cdf::WritePackage(out, package, options);
  return out;
}

Package Minimal() {
  Package package;
  package.name = "{53426151-307C-4B0A-B5F0-888EE2B55394}";
  package.version = ParseVersion("1.0");
  package.compatibilityVersion = package.version;
  package.title = "Runtime";
  return package;
}

}  // namespace

TEST(CdfWriterTest, DocumentFrameAroundAPackageWithoutParts) {
  kx::test::ScratchRoot root;
  const Package package = Minimal();
  const std::string path = root / "/new/dir/out.cdf";
  ASSERT_EQ(WriteCdfDocument(path, {&package}), 0);
  EXPECT_EQ(kx::tal::ReadWholeFile(path),
            "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"1.5\"?>\n<DEFINITION>\n"
            "<SOFTPKG NAME=\"{53426151-307C-4B0A-B5F0-888EE2B55394}\" VERSION=\"1.0\" TYPE=\"VISIBLE\" "
            "COMPATIBILITY=\"1.0\" OLDESTCOMPATIBLEVERSION=\"\">\n\t<TITLE>Runtime</TITLE>\n\t<ABSTRACT></ABSTRACT>\n"
            "\t<IMPLEMENTATION>\n\t</IMPLEMENTATION>\n</SOFTPKG>\n</DEFINITION>\n");
  EXPECT_TRUE(kx::test::IsWellFormedXml(path));
}

TEST(CdfWriterTest, TypeWordsUrlAndDocumentVersion) {
  Package package = Minimal();
  package.sourcePath = "C:\\catalogue\\rt";
  const struct {
    int32_t type;
    const char* word;
    const char* version;
  } cases[] = {
      {0, "VISIBLE", "1.5"}, {1, "HIDDEN", "1.5"}, {2, "SYSTEM", "1.5"}, {3, "VISIBLE", "1.5"}, {4, "STARTUP", "5.0"}};
  for (const auto& c : cases) {
    package.type = static_cast<ComponentType>(c.type);
    EXPECT_NE(Written(package).find(std::string("TYPE=\"") + c.word + "\""), std::string::npos) << c.type;
    EXPECT_EQ(CdfDocumentVersion({&package}), c.version);
  }
  package.effectiveType = ComponentType::kHidden;
  EXPECT_NE(Written(package, {"", "", true}).find("TYPE=\"HIDDEN\""), std::string::npos);
  EXPECT_NE(Written(package, {"http://h/", "C:\\catalogue", false}).find(" URL=\"http://h//rt\">"), std::string::npos);
}

TEST(CdfWriterTest, FailuresGiveMinusEight) {
  kx::test::ScratchRoot root;
  Package package = Minimal();
  package.sourcePath = root / "/payload";
  package.codebases.push_back({"bin/missing", "/bin/x", "", "", "", Version{}, CodebaseType::kFile});
  const std::string path = root / "/out.cdf";
  EXPECT_EQ(WriteCdfDocument(path, {&package}), -8);
  EXPECT_FALSE(kx::tal::PathExists(path)) << "checked before the file is created";

  root.WriteFile("/payload/bin/missing", "");
  EXPECT_EQ(WriteCdfDocument(root / "/payload", {&package}), -8) << "a directory cannot be opened";
  EXPECT_EQ(WriteCdfDocument(root / "/payload/bin/missing/x.cdf", {&package}), -8) << "under a file";
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  EXPECT_EQ(WriteCdfDocument("/dev/full", {&package}), -8) << "buffered: the close fails";
  std::vector<const Package*> many(200, &package);
  EXPECT_EQ(WriteCdfDocument("/dev/full", many), -8) << "the body write comes up short";
}
