#include "catalogue/cdf_reader.h"

#include <gtest/gtest.h>

#include "catalogue/attribute_reader.h"
#include "catalogue/status.h"

using namespace kx::catalogue;

namespace {

constexpr const char* kStackName = "{899452D2-C085-430B-B76D-7FDB33BB324A}";

// What the reader adds to what the writer round trip covers: stacks, sections,
// defaults, trimmed titles, nested packages and the MERGEINI target rules.
const char* const kCatalogue = R"(<?xml version="1.0"?>
<?CDF VERSION="5.0"?>
<DEFINITION>
<STACK NAME="{899452d2-c085-430b-b76d-7fdb33bb324a}" VERSION="2.1" GROUP="base" TYPE="PREDEFINED" OPKGSYSTEM="YES">
	<TITLE> Base stack </TITLE>
	<STACKITEM NAME="{00000000-0000-0000-0000-00000000000A}" VERSION="1.0" SELECT="YES"><TITLE>Member</TITLE></STACKITEM>
	<ADDONGROUP NAME="tools">
		<ADDON NAME="{00000000-0000-0000-0000-00000000000B}" VERSION="3" HIDE="YES"/>
		<ADDONDEP NAME="{00000000-0000-0000-0000-00000000000C}" VERSION="4"/>
	</ADDONGROUP>
</STACK>
<SOFTPKG NAME="{53426151-307c-4b0a-b5f0-888ee2b55394}" VERSION="2.5" TYPE="STARTUP" URL="http://host/p">
	<TITLE>
		Runtime
	</TITLE>
	<ISADDONOFSTACK KEY="{899452d2-c085-430b-b76d-7fdb33bb324a}" GROUP="tools" SELECT="YES"/>
	<ISADDONOFSTACK KEY="base stack" GROUP="tools"/>
	<IMPLEMENTATION>
		<CODEBASE FILENAME="data/web.tar" TYPE="TAR"/>
		<CODEBASE FILENAME="rt.ini" TYPE="OPTIONAL"/>
		<MERGEINI TARGET="/etc/brenmar/share/kx-rt.ini"><![CDATA[[RT]
Start=1
]]>
		</MERGEINI>
		<MERGEINI>[X]</MERGEINI>
	</IMPLEMENTATION>
	<FEATURE SELECT="NO">
		<SOFTPKG NAME="{00000000-0000-0000-0000-00000000000E}" VERSION="2"><TITLE>Part</TITLE></SOFTPKG>
	</FEATURE>
</SOFTPKG>
<SOFTPKG NAME="Plain" VERSION="1.0" COMPATIBILITY="0.9"/>
<SECTION NAME="main" VERSION="1.2">
	<TITLE>Main</TITLE>
	<FEATURE SELECT="TARGET"><SOFTPKG NAME="Listed" VERSION="1.0"/></FEATURE>
</SECTION>
</DEFINITION>
)";

struct Read {
  int status = 0;
  PackageList packages;
  StackList stacks;
  SectionList sections;
  DynamicAddonList addons;
};

Read ReadText(std::string_view text) {
  Read read;
  read.status = ReadCdfDocument(text, read.packages, read.stacks, read.sections, read.addons);
  return read;
}

std::string WithVersion(const char* version, const char* body = "<SOFTPKG NAME=\"P\" VERSION=\"1\"/>") {
  return std::string("<?xml version=\"1.0\"?><?CDF VERSION=\"") + version + "\"?><DEFINITION>" + body + "</DEFINITION>";
}

}  // namespace

TEST(AttributeReaderTest, ReadsOnlyStrictlyWrittenAttributes) {
  const struct {
    const char* attributes;
    const char* name;
    std::optional<std::string> expected;
  } cases[] = {
      {" NAME=\"x\"", "NAME", "x"},
      {"NAME=\"x\"", "NAME", "x"},  // the start counts as a blank
      {"\aNAME=\"x\"", "NAME", "x"},
      {"\rNAME=\"x\"", "NAME", std::nullopt},             // CR does not separate
      {" NAME =\"x\" NAME=\"y\"", "NAME", std::nullopt},  // blank before "=": absent at once
      {" NAME='x'", "NAME", std::nullopt},                // double quotes only
      {" NAMES=\"a\" NAME=\"b\"", "NAME", "b"},           // a longer name is passed over
      {" ADDONGROUP=\"g\"", "GROUP", std::nullopt},       // a name inside another
      {" ADDONGROUP=\"g\" GROUP=\"h\"", "GROUP", "h"},
      {" NAME=\"open", "NAME", "open"},          // no closing quote: to the end
      {" NAME=\"a&amp;b\"", "NAME", "a&amp;b"},  // not decoded
      {" NAME=\"{899452d2-c085-430b}\"", "NAME", "{899452D2-C085-430B}"},
      {" NAME=\"{abc\"", "NAME", "{abc"},  // braces on both ends only
  };
  for (const auto& c : cases) EXPECT_EQ(ReadAttribute(c.attributes, c.name), c.expected) << c.attributes;
  EXPECT_TRUE(ReadYesAttribute(" HIDE=\"YES\"", "HIDE"));
  EXPECT_FALSE(ReadYesAttribute(" HIDE=\"yes\"", "HIDE"));
}

TEST(CdfReaderTest, ReadsPackageStackAndSection) {
  Read read = ReadText(kCatalogue);
  ASSERT_EQ(read.status, status::kOk);
  ASSERT_TRUE(read.stacks.size() == 1 && read.packages.size() == 3 && read.sections.size() == 1);

  const SoftwareSet& stack = *read.stacks[0];
  EXPECT_TRUE(stack.name == kStackName && stack.versionText == "2.1" && stack.group == "base");
  EXPECT_TRUE(stack.type == StackType::kPredefined && stack.packageSystem && stack.title == "Base stack");
  ASSERT_TRUE(stack.addonGroups.size() == 1 && stack.addonGroups[0].name == "tools" && stack.items.size() == 3);
  EXPECT_TRUE(stack.items[0].kind == StackItemKind::kMember && stack.items[0].selected);
  EXPECT_TRUE(stack.items[1].kind == StackItemKind::kAddon && stack.items[1].hidden && stack.items[1].addonGroup == 0);
  EXPECT_EQ(stack.items[2].kind, StackItemKind::kAddonDependency);

  const Package& runtime = *read.packages[0];
  EXPECT_EQ(runtime.name, "{53426151-307C-4B0A-B5F0-888EE2B55394}");
  EXPECT_EQ(runtime.effectiveType, ComponentType::kStartup);
  EXPECT_EQ(runtime.compatibilityVersion.text, "2.5");  // defaults to VERSION
  EXPECT_EQ(runtime.title, "Runtime");
  EXPECT_EQ(runtime.originText, "http://host/p");
  ASSERT_TRUE(runtime.codebases.size() == 2 && runtime.mergeIni.size() == 2 && runtime.features.size() == 1);
  EXPECT_EQ(runtime.codebases[0].target, "data");  // an archive's directory
  EXPECT_EQ(runtime.codebases[1].target, "rt.ini");
  for (const MergeIni& merge : runtime.mergeIni) EXPECT_EQ(merge.target, "/kx-rt.ini");
  EXPECT_EQ(runtime.mergeIni[0].text, "[RT]\nStart=1\n");
  EXPECT_EQ(runtime.mergeIni[1].text, "[X]");
  EXPECT_TRUE(runtime.features[0].selection == FeatureSelection::kNotSelected &&
              runtime.features[0].component.title == "Part");
  EXPECT_EQ(read.packages[1]->compatibilityVersion.text, "0.9");

  // A FEATURE's SOFTPKG is a package too: elements are found at any depth.
  EXPECT_EQ(read.packages[2]->name, "Listed");
  const CdfSection& section = read.sections[0];
  EXPECT_TRUE(section.title == "Main" && section.version.text == "1.2" && section.features.size() == 1);
  EXPECT_TRUE(section.features[0].selection == FeatureSelection::kTarget &&
              section.features[0].component.name == "Listed");

  // Only a GUID key makes a dynamic add-on.
  ASSERT_EQ(read.addons.size(), 1u);
  const DynamicAddon& addon = read.addons[0];
  EXPECT_TRUE(addon.stackKey == kStackName && addon.group == "tools" && addon.selected && !addon.hidden);
  EXPECT_EQ(addon.addon->name, runtime.name);
  EXPECT_EQ(addon.addon->version.text, "2.5");
  for (const char* key : {"{00000000-0000-0000-0000-000000000000}", "{899452D2-C085-430B-B76D-7FDB33BB324G}",
                          "{899452D2C-085-430B-B76D-7FDB33BB324A}", "899452D2-C085-430B-B76D-7FDB33BB324A", ""}) {
    EXPECT_FALSE(IsValidAddonKey(key)) << key;
  }
}

TEST(CdfReaderTest, VersionIsCheckedAfterReading) {
  const struct {
    const char* version;
    int status;
  } cases[] = {{"7.9", 0}, {"8", 0}, {"", 0}, {"8.0", -11}, {"8.0.1", -11}, {"10", -11}, {"8.", -11}};
  for (const auto& c : cases) {
    Read read = ReadText(WithVersion(c.version));
    EXPECT_EQ(read.status, c.status) << c.version;
    EXPECT_EQ(read.packages.size(), 1u) << c.version;  // filled even when rejected
  }
  EXPECT_EQ(ReadText("").status, status::kNothingRead);
  EXPECT_EQ(ReadText(WithVersion("9.0", "")).status, status::kUnsupportedCdfVersion);
}

TEST(CdfReaderTest, DropsPackagesItCannotIdentify) {
  const char* const bodies[] = {
      "<SOFTPKG NAME =\"{53426151-307C-4B0A-B5F0-888EE2B55394}\" VERSION=\"1\"/>",  // blank before "="
      "<SOFTPKG NAME=\"A\"/>",
      "<SOFTPKG VERSION=\"1\"/>",
      "<SOFTPKG NAME=\"A\" VERSION=\"1\" TYPE=\"INVISIBLE\"/>",
      "<!-- <SOFTPKG NAME=\"A\" VERSION=\"1\"/> -->",
      "<MERGEINI><![CDATA[<SOFTPKG NAME=\"A\" VERSION=\"1\"/>]]></MERGEINI>",
  };
  for (const char* body : bodies) EXPECT_EQ(ReadText(WithVersion("1.0", body)).status, status::kNothingRead) << body;
}

TEST(CdfReaderTest, OrdersDependenciesExactAndStrictFirst) {
  // Exact, strict and soft ones in that order, loose ones after; a name counts once.
  Read read = ReadText(WithVersion("1.0", R"(<SOFTPKG NAME="P" VERSION="1"><IMPLEMENTATION>
    <SOFTDEPENDENCY TYPE="EXACT"><SOFTPKG NAME="SE" VERSION="1"/></SOFTDEPENDENCY>
    <DEPENDENCY><SOFTPKG NAME="L1" VERSION="1"><TITLE> Loose one </TITLE></SOFTPKG></DEPENDENCY>
    <DEPENDENCY TYPE="EXACT"><SOFTPKG NAME="E1" VERSION="2.0"/></DEPENDENCY>
    <DEPENDENCY TYPE="STRICT"><SOFTPKG NAME="S1" VERSION="3"/></DEPENDENCY>
    <DEPENDENCY TYPE="OTHER"><SOFTPKG NAME="L2" VERSION="4"/></DEPENDENCY>
    <DEPENDENCY TYPE="STRICT"><SOFTPKG NAME="e1" VERSION="9"/></DEPENDENCY><DEPENDENCY TYPE="EXACT"></DEPENDENCY>
    <SOFTDEPENDENCY><SOFTPKG NAME="L1" VERSION="5"/></SOFTDEPENDENCY>
    <DEPENDENCY TYPE="STACK"><STACKDEP NAME="{899452d2-c085-430b-b76d-7fdb33bb324a}" VERSION="2.1">
      <STACKITEM NAME="B" VERSION="3"/></STACKDEP></DEPENDENCY>
  </IMPLEMENTATION></SOFTPKG>)"));
  ASSERT_EQ(read.packages.size(), 1u);
  const Package& package = *read.packages[0];
  std::string order;
  for (const auto& d : package.dependencies) {
    const std::type_info& kind = typeid(*d);
    order += d->name + (kind == typeid(ExactVersionDependency) ? "="
                        : kind == typeid(StrictDependency)     ? ">"
                        : kind == typeid(LooseDependency)      ? "~"
                                                               : "?");
    order += std::string(d->isSoft ? "s" : "") + (d->requestFlag ? "!" : "") + " ";
  }
  EXPECT_EQ(order, "E1= S1> SE=s L1~ L2~ L1~s ");
  EXPECT_EQ(package.dependencies[3]->title, "Loose one");
  EXPECT_EQ(package.dependencies[0]->version.text, "2.0");
  ASSERT_TRUE(package.stack);
  EXPECT_EQ(package.stack->name, kStackName);
  EXPECT_EQ(package.stack->items.size(), 1u);
  EXPECT_EQ(CdfFormatVersion(package), "5.0");
}

TEST(CdfReaderTest, ManyDependenciesCountEachNameOnce) {
  // Enough names that the reader looks them up in a set rather than the list.
  std::string body = "<SOFTPKG NAME=\"P\" VERSION=\"1\"><IMPLEMENTATION>";
  for (int round = 0; round < 2; ++round) {
    for (int i = 0; i < 40; ++i) {
      const std::string name = (round == 0 ? "n" : "N") + std::to_string(i);
      body += "<DEPENDENCY><SOFTPKG NAME=\"" + name + "\" VERSION=\"1\"/></DEPENDENCY>";
      body += "<SOFTDEPENDENCY><SOFTPKG NAME=\"" + name + "\" VERSION=\"1\"/></SOFTDEPENDENCY>";
    }
  }
  body += "</IMPLEMENTATION></SOFTPKG>";
  Read read = ReadText(WithVersion("1.0", body.c_str()));
  ASSERT_EQ(read.packages.size(), 1u);
  const DependencyList& dependencies = read.packages[0]->dependencies;
  ASSERT_EQ(dependencies.size(), 40u + 80u);
  for (int i = 0; i < 40; ++i) EXPECT_EQ(dependencies[i]->name, "n" + std::to_string(i));
  for (size_t i = 0; i < dependencies.size(); ++i) EXPECT_EQ(dependencies[i]->isSoft, i >= 40) << i;
}

TEST(CdfReaderTest, HostileDocumentsFinish) {
  std::string unclosed = "<?CDF VERSION=\"1.0\"?>";
  for (int i = 0; i < 50000; ++i) unclosed += "<SOFTPKG NAME=\"A\" VERSION=\"1\"><IMPLEMENTATION><DEPENDENCY>";
  Read read = ReadText(unclosed);
  EXPECT_EQ(read.status, status::kOk);
  EXPECT_EQ(read.packages.size(), 1u);

  std::string manyKeys = "<SOFTPKG NAME=\"" + std::string(100000, 'n') + "\" VERSION=\"1\">";
  for (int i = 0; i < 20000; ++i) manyKeys += "<ISADDONOFSTACK KEY=\"{899452D2-C085-430B-B76D-7FDB33BB324A}\"/>";
  read = ReadText(manyKeys);
  ASSERT_EQ(read.addons.size(), 20000u);
  EXPECT_EQ(read.addons.front().addon, read.addons.back().addon);  // one shared identity
}
