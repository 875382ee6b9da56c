#include <gtest/gtest.h>

#include <unistd.h>

#include "catalogue/cdf_fragments.h"
#include "catalogue/cdf_package_writer.h"
#include "catalogue/cdf_write_primitives.h"
#include "catalogue/cdf_writer.h"
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

TEST(CdfWriterTest, Primitives) {
  std::string out;
  cdf::WriteAttribute(out, "NAME", "x");
  cdf::WriteTextElement(out, "TITLE", "t", 1, false);
  cdf::WriteTextElement(out, "ABSTRACT", "a", 2, true);
  cdf::WriteCdata(out, "[S]\n");
  EXPECT_EQ(out, " NAME=\"x\"\t<TITLE>t</TITLE>\n\t\t<ABSTRACT>\na\n\t\t</ABSTRACT>\n<![CDATA[[S]\n]]>");
}

TEST(CdfWriterTest, PackageWithoutPartsKeepsAnEmptyImplementation) {
  EXPECT_EQ(Written(Minimal()),
            "<SOFTPKG NAME=\"{53426151-307C-4B0A-B5F0-888EE2B55394}\" VERSION=\"1.0\" TYPE=\"VISIBLE\" "
            "COMPATIBILITY=\"1.0\" OLDESTCOMPATIBLEVERSION=\"\">\n"
            "\t<TITLE>Runtime</TITLE>\n\t<ABSTRACT></ABSTRACT>\n\t<IMPLEMENTATION>\n\t</IMPLEMENTATION>\n</SOFTPKG>\n");
}

TEST(CdfWriterTest, ImplementationChildrenInOrder) {
  Package package = Minimal();
  package.hideVersion = package.providesOs = true;
  package.processors = {"5A10"};
  package.operatingSystems = {{"Linux", ParseVersion("5.10"), ""}, {"PharLap", Version{}, ""}};
  package.codebases.push_back({"a.tar", "/opt", "0755", "root", "kx", Version{}, CodebaseType::kTar});
  package.dependencies.push_back(std::make_unique<ExactVersionDependency>("{A}", ParseVersion("2"), "Base"));
  package.dependencies.push_back(std::make_unique<LooseDependency>("B", ParseVersion("1"), "", true));
  StackItem member;
  member.component = {"{M}", ParseVersion("3"), ""};
  package.stackItems.push_back({"{S}", "", "", {member}});
  package.mergeIni.push_back({"/kx-rt.ini", "", "[A]\n"});
  EXPECT_EQ(Written(package),
            "<SOFTPKG NAME=\"{53426151-307C-4B0A-B5F0-888EE2B55394}\" VERSION=\"1.0\" TYPE=\"VISIBLE\" HIDEVERSION=\"YES\" "
            "COMPATIBILITY=\"1.0\" OLDESTCOMPATIBLEVERSION=\"\" PROVIDESOS=\"YES\">\n"
            "\t<TITLE>Runtime</TITLE>\n\t<ABSTRACT></ABSTRACT>\n\t<IMPLEMENTATION>\n"
            "\t\t<PROCESSOR VALUE=\"5A10\"/>\n"
            "\t\t<OS VALUE=\"Linux\"><OSVERSION VALUE=\"5.10\"/></OS>\n\t\t<OS VALUE=\"PharLap\"/>\n"
            "\t\t<CODEBASE FILENAME=\"a.tar\" TARGET=\"/opt\" TYPE=\"TAR\" PERMISSIONS=\"0755\" OWNER=\"root\" GROUP=\"kx\"/>\n"
            "\t\t<DEPENDENCY TYPE=\"EXACT\">\n\t\t\t<SOFTPKG NAME=\"{A}\" VERSION=\"2\">\n\t\t\t<TITLE>Base</TITLE>\n"
            "\t\t\t</SOFTPKG>\n\t\t</DEPENDENCY>\n"
            "\t\t<SOFTDEPENDENCY>\n\t\t\t<SOFTPKG NAME=\"B\" VERSION=\"1\"/>\n\t\t</SOFTDEPENDENCY>\n"
            "\t\t<DEPENDENCY TYPE=\"STACK\">\n\t\t\t<STACKDEP NAME=\"{S}\">\n"
            "\t\t\t\t<STACKITEM NAME=\"{M}\" VERSION=\"3\"/>\n\t\t\t</STACKDEP>\n\t\t</DEPENDENCY>\n"
            "\t\t<MERGEINI TARGET=\"/kx-rt.ini\"><![CDATA[[A]\n]]>\n\t\t</MERGEINI>\n"
            "\t</IMPLEMENTATION>\n</SOFTPKG>\n");
}

TEST(CdfWriterTest, TypeWordsUrlAndDocumentVersion) {
  Package package = Minimal();
  package.sourcePath = "C:\\catalogue\\rt";
  const struct { int32_t type; const char* word; const char* version; } cases[] = {
      {0, "VISIBLE", "1.5"}, {1, "HIDDEN", "1.5"}, {2, "SYSTEM", "1.5"}, {3, "VISIBLE", "1.5"}, {4, "STARTUP", "5.0"}};
  for (const auto& c : cases) {
    package.type = static_cast<ComponentType>(c.type);
    EXPECT_NE(Written(package).find(std::string("TYPE=\"") + c.word + "\""), std::string::npos) << c.type;
    EXPECT_EQ(CdfDocumentVersion({&package}), c.version);
  }
  package.effectiveType = ComponentType::kHidden;
  EXPECT_NE(Written(package, {"", "", true}).find("TYPE=\"HIDDEN\""), std::string::npos);
  EXPECT_EQ(Written(package).find("URL="), std::string::npos);
  EXPECT_NE(Written(package, {"http://h/", "C:\\catalogue", false}).find(" URL=\"http://h//rt\">"), std::string::npos);
}

TEST(CdfWriterTest, DocumentFrame) {
  kx::test::ScratchRoot root;
  const Package package = Minimal();
  const std::string path = root / "/new/dir/out.cdf";
  ASSERT_EQ(WriteCdfDocument(path, {&package}), 0);
  EXPECT_EQ(kx::tal::ReadWholeFile(path),
            "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"1.5\"?>\n<DEFINITION>\n" + Written(package) + "</DEFINITION>\n");
  EXPECT_TRUE(kx::test::IsWellFormedXml(path));
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

TEST(CdfWriterTest, Fragments) {
  Package component = Minimal();
  component.abstract = "The runtime.";
  std::string out;
  cdf::WriteDependencyList(out, {{{"{A}", ParseVersion("1"), "A"}, {"{B}", ParseVersion("2"), "B"}}});
  cdf::WriteFeatureList(out, {{&component, true}, {&component, false}});
  cdf::WriteImageResponse(out, -8);
  EXPECT_EQ(out,
            "\t\t<DEPENDENCY>\n\t\t\t<DEPENDER NAME=\"{A}\" VERSION=\"1\" TITLE=\"A\"/>\n"
            "\t\t\t<DEPENDEE NAME=\"{B}\" VERSION=\"2\" TITLE=\"B\"/>\n\t\t</DEPENDENCY>\n"
            "<FEATURE TARGET=\"{53426151-307C-4B0A-B5F0-888EE2B55394}\" VERSION=\"1.0\" TITLE=\"Runtime\" "
            "ABSTRACT=\"The runtime.\" SELECT=\"YES\" />\n"
            "<FEATURE TARGET=\"{53426151-307C-4B0A-B5F0-888EE2B55394}\" VERSION=\"1.0\" TITLE=\"Runtime\" "
            "ABSTRACT=\"The runtime.\" SELECT=\"NO\" />\n"
            "<RTIMAGESRESPONSE RESULT=\"-8\"/>\n");
  kx::test::ScratchRoot root;
  root.WriteFile("/fragments.xml", "<FRAGMENTS>\n" + out + "</FRAGMENTS>\n");
  EXPECT_TRUE(kx::test::IsWellFormedXml(root / "/fragments.xml"));
}
