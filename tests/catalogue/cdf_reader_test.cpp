#include <gtest/gtest.h>

#include "catalogue/cdf_reader.h"
#include "catalogue/status.h"
#include "kx/tal/log.h"

using namespace kx::catalogue;

namespace {

constexpr const char* kStackName = "{899452D2-C085-430B-B76D-7FDB33BB324A}";

const char* const kCatalogue = R"(<?xml version="1.0"?>
<?CDF VERSION="5.0"?>
<DEFINITION>
<STACK NAME="{899452d2-c085-430b-b76d-7fdb33bb324a}" VERSION="2.1" GROUP="base" TYPE="PREDEFINED" OPKGSYSTEM="YES">
	<TITLE> Base stack </TITLE>
	<INTENT>Everything a controller needs</INTENT>
	<PROCESSOR VALUE="P100"/>
	<STACKITEM NAME="{00000000-0000-0000-0000-00000000000A}" VERSION="1.0" SELECT="YES"><TITLE>Member</TITLE></STACKITEM>
	<ADDONGROUP NAME="tools">
		<ADDON NAME="{00000000-0000-0000-0000-00000000000B}" VERSION="3" HIDE="YES"/>
		<ADDONDEP NAME="{00000000-0000-0000-0000-00000000000C}" VERSION="4"/>
	</ADDONGROUP>
</STACK>
<SOFTPKG NAME="{53426151-307c-4b0a-b5f0-888ee2b55394}" VERSION="2.5" TYPE="STARTUP" HIDEVERSION="YES"
         OLDESTCOMPATIBLEVERSION="2.0" URL="http://host/p" PROVIDESOS="YES">
	<TITLE>
		Runtime
	</TITLE>
	<ABSTRACT>The runtime.</ABSTRACT>
	<ISADDONOFSTACK KEY="{899452d2-c085-430b-b76d-7fdb33bb324a}" GROUP="tools" SELECT="YES"/>
	<ISADDONOFSTACK KEY="base stack" GROUP="tools"/>
	<IMPLEMENTATION TARGET="rt">
		<OS VALUE="PharLap"><OSVERSION VALUE="13.1"/></OS>
		<PROCESSOR VALUE="P100"/>
		<PROCESSOR VALUE="P200"/>
		<EXCEPTPROCESSOR VALUE="P300"/>
		<DEVICECLASS VALUE="D1"/>
		<CODEBASE FILENAME="bin/rt.so" TARGET="/usr/lib/rt.so" PERMISSIONS="0755" OWNER="root" GROUP="kx"/>
		<CODEBASE FILENAME="data/web.tar" TYPE="TAR"/>
		<CODEBASE FILENAME="rt.ini" TYPE="OPTIONAL"/>
		<SYMLINK SOURCE="/usr/lib/rt.so" LINK="/usr/lib/rt.so.2" OWNER="root"/>
		<MERGEINI TARGET="/etc/brenmar/share/kx-rt.ini"><![CDATA[[RT]
Start=1
]]>
		</MERGEINI>
		<MERGEINI>[X]</MERGEINI>
	</IMPLEMENTATION>
	<FEATURE NAME="{00000000-0000-0000-0000-00000000000D}" VERSION="1" TITLE="Web" SELECT="YESDEPS"/>
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
  return std::string("<?xml version=\"1.0\"?><?CDF VERSION=\"") + version + "\"?><DEFINITION>" + body +
         "</DEFINITION>";
}

}  // namespace

TEST(CdfReaderTest, ReadsPackageStackAndSection) {
  Read read = ReadText(kCatalogue);
  ASSERT_EQ(read.status, status::kOk);
  ASSERT_EQ(read.stacks.size(), 1u);
  ASSERT_EQ(read.packages.size(), 3u);
  ASSERT_EQ(read.sections.size(), 1u);

  const SoftwareSet& stack = *read.stacks[0];
  EXPECT_EQ(stack.name, kStackName);
  EXPECT_EQ(stack.versionText, "2.1");
  EXPECT_EQ(stack.group, "base");
  EXPECT_EQ(stack.type, StackType::kPredefined);
  EXPECT_TRUE(stack.packageSystem);
  EXPECT_EQ(stack.title, "Base stack");
  EXPECT_EQ(stack.intent, "Everything a controller needs");
  EXPECT_EQ(stack.processors, std::vector<std::string>{"P100"});
  ASSERT_EQ(stack.addonGroups.size(), 1u);
  EXPECT_EQ(stack.addonGroups[0].name, "tools");
  EXPECT_EQ(stack.addonGroups[0].oldestCompatibleVersion, "0");
  ASSERT_EQ(stack.items.size(), 3u);
  EXPECT_EQ(stack.items[0].kind, StackItemKind::kMember);
  EXPECT_EQ(stack.items[0].component.title, "Member");
  EXPECT_TRUE(stack.items[0].selected);
  EXPECT_EQ(stack.items[1].kind, StackItemKind::kAddon);
  EXPECT_TRUE(stack.items[1].hidden);
  EXPECT_EQ(stack.items[1].addonGroup, 0u);
  EXPECT_EQ(stack.items[2].kind, StackItemKind::kAddonDependency);

  const Package& runtime = *read.packages[0];
  EXPECT_EQ(runtime.name, "{53426151-307C-4B0A-B5F0-888EE2B55394}");
  EXPECT_EQ(runtime.type, ComponentType::kStartup);
  EXPECT_EQ(runtime.effectiveType, ComponentType::kStartup);
  EXPECT_TRUE(runtime.hideVersion && runtime.providesOs);
  EXPECT_EQ(runtime.compatibilityVersion.text, "2.5");  // defaults to VERSION
  EXPECT_EQ(runtime.oldestCompatibleVersion.parts, (std::vector<uint32_t>{2}));
  EXPECT_EQ(runtime.originText, "http://host/p");
  EXPECT_EQ(runtime.extraText, "rt");
  EXPECT_EQ(runtime.title, "Runtime");
  EXPECT_EQ(runtime.abstract, "The runtime.");
  ASSERT_EQ(runtime.operatingSystems.size(), 1u);
  EXPECT_EQ(runtime.operatingSystems[0].name, "PharLap");
  EXPECT_EQ(runtime.operatingSystems[0].version.text, "13.1");
  EXPECT_EQ(runtime.processors, (std::vector<std::string>{"P100", "P200"}));
  EXPECT_EQ(runtime.exceptProcessors, std::vector<std::string>{"P300"});
  EXPECT_EQ(runtime.deviceClasses, std::vector<std::string>{"D1"});

  ASSERT_EQ(runtime.codebases.size(), 3u);
  EXPECT_EQ(runtime.codebases[0].target, "/usr/lib/rt.so");
  EXPECT_EQ(runtime.codebases[0].permissions, "0755");
  EXPECT_EQ(runtime.codebases[0].group, "kx");
  EXPECT_EQ(runtime.codebases[1].type, CodebaseType::kTar);
  EXPECT_EQ(runtime.codebases[1].target, "data");  // an archive's directory
  EXPECT_EQ(runtime.codebases[2].type, CodebaseType::kOptional);
  EXPECT_EQ(runtime.codebases[2].target, "rt.ini");
  ASSERT_EQ(runtime.symlinks.size(), 1u);
  EXPECT_EQ(runtime.symlinks[0].link, "/usr/lib/rt.so.2");
  ASSERT_EQ(runtime.mergeIni.size(), 2u);
  EXPECT_EQ(runtime.mergeIni[0].target, "/kx-rt.ini");
  EXPECT_EQ(runtime.mergeIni[0].text, "[RT]\nStart=1\n");
  EXPECT_EQ(runtime.mergeIni[1].target, "/kx-rt.ini");
  EXPECT_EQ(runtime.mergeIni[1].text, "[X]");

  ASSERT_EQ(runtime.features.size(), 2u);
  EXPECT_EQ(runtime.features[0].selection, FeatureSelection::kSelectedWithDependencies);
  EXPECT_EQ(runtime.features[0].component.title, "Web");
  EXPECT_EQ(runtime.features[1].selection, FeatureSelection::kNotSelected);
  EXPECT_EQ(runtime.features[1].component.title, "Part");

  EXPECT_EQ(read.packages[1]->name, "Plain");
  EXPECT_EQ(read.packages[1]->compatibilityVersion.text, "0.9");
  // A FEATURE's SOFTPKG is a package too: elements are found at any depth.
  EXPECT_EQ(read.packages[2]->name, "Listed");
  const CdfSection& section = read.sections[0];
  EXPECT_EQ(section.title, "Main");
  EXPECT_EQ(section.version.parts, (std::vector<uint32_t>{1, 2}));
  ASSERT_EQ(section.features.size(), 1u);
  EXPECT_EQ(section.features[0].selection, FeatureSelection::kTarget);
  EXPECT_EQ(section.features[0].component.name, "Listed");
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
  EXPECT_EQ(ReadText("<?CDF VERSION=\"1.0\"?><DEFINITION></DEFINITION>").status, status::kNothingRead);
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
  Read read = ReadText(WithVersion("1.0", R"(<SOFTPKG NAME="P" VERSION="1"><IMPLEMENTATION>
    <SOFTDEPENDENCY TYPE="EXACT"><SOFTPKG NAME="SE" VERSION="1"/></SOFTDEPENDENCY>
    <DEPENDENCY><SOFTPKG NAME="L1" VERSION="1"><TITLE> Loose one </TITLE></SOFTPKG></DEPENDENCY>
    <DEPENDENCY TYPE="EXACT"><SOFTPKG NAME="E1" VERSION="2.0"/></DEPENDENCY>
    <DEPENDENCY TYPE="STRICT"><SOFTPKG NAME="S1" VERSION="3"/></DEPENDENCY>
    <DEPENDENCY TYPE="OTHER"><SOFTPKG NAME="L2" VERSION="4"/></DEPENDENCY>
    <DEPENDENCY TYPE="STRICT"><SOFTPKG NAME="e1" VERSION="9"/></DEPENDENCY>
    <DEPENDENCY TYPE="EXACT"></DEPENDENCY>
    <SOFTDEPENDENCY><SOFTPKG NAME="L1" VERSION="5"/></SOFTDEPENDENCY>
    <DEPENDENCY TYPE="STACK"><STACKDEP NAME="{899452d2-c085-430b-b76d-7fdb33bb324a}" VERSION="2.1">
      <STACKITEM NAME="B" VERSION="3"/></STACKDEP></DEPENDENCY>
  </IMPLEMENTATION></SOFTPKG>)"));
  ASSERT_EQ(read.packages.size(), 1u);
  const Package& package = *read.packages[0];
  const struct {
    const char* name;
    const std::type_info& kind;
    bool soft;
  } expected[] = {{"E1", typeid(ExactVersionDependency), false}, {"S1", typeid(StrictDependency), false},
                  {"SE", typeid(ExactVersionDependency), true},  {"L1", typeid(LooseDependency), false},
                  {"L2", typeid(LooseDependency), false},        {"L1", typeid(LooseDependency), true}};
  ASSERT_EQ(package.dependencies.size(), std::size(expected));
  for (size_t i = 0; i < std::size(expected); ++i) {
    const BaseDependency& dependency = *package.dependencies[i];
    EXPECT_EQ(dependency.name, expected[i].name) << i;
    EXPECT_EQ(typeid(dependency), expected[i].kind) << i;
    EXPECT_EQ(dependency.isSoft, expected[i].soft) << i;
    EXPECT_FALSE(dependency.requestFlag);
  }
  EXPECT_EQ(package.dependencies[3]->title, "Loose one");
  EXPECT_EQ(FindDependency(package, "e1"), package.dependencies[0].get());
  EXPECT_EQ(package.dependencies[0]->version.parts, (std::vector<uint32_t>{2}));

  ASSERT_TRUE(package.stack);
  EXPECT_EQ(package.stack->name, kStackName);
  ASSERT_EQ(package.stack->items.size(), 1u);
  ASSERT_EQ(package.stackItems.size(), 1u);
  EXPECT_EQ(package.stackItems[0].versionText, "2.1");
  EXPECT_EQ(CdfFormatVersion(package), "5.0");
}

TEST(CdfReaderTest, DynamicAddonsNeedAGuidKey) {
  std::vector<std::string> logged;
  kx::tal::SetLogCapture([&](uint32_t, const std::string& text) { logged.push_back(text); });
  Read read = ReadText(kCatalogue);
  kx::tal::SetLogCapture(nullptr);

  ASSERT_EQ(read.addons.size(), 1u);
  const DynamicAddon& addon = read.addons[0];
  EXPECT_EQ(addon.stackKey, kStackName);
  EXPECT_EQ(addon.group, "tools");
  EXPECT_TRUE(addon.selected);
  EXPECT_FALSE(addon.hidden);
  EXPECT_EQ(addon.addon->name, "{53426151-307C-4B0A-B5F0-888EE2B55394}");
  EXPECT_EQ(addon.addon->title, "Runtime");
  EXPECT_EQ(addon.addon->version.text, "2.5");
  EXPECT_EQ(logged, std::vector<std::string>{"Repository::ReadCdfContent found dynamic add-on "
                                             "{53426151-307C-4B0A-B5F0-888EE2B55394} with invalid key base stack"});

  EXPECT_TRUE(IsValidAddonKey("{899452d2-C085-430B-B76D-7FDB33BB324A}"));
  EXPECT_FALSE(IsValidAddonKey("{00000000-0000-0000-0000-000000000000}"));
  EXPECT_FALSE(IsValidAddonKey("{899452D2-C085-430B-B76D-7FDB33BB324G}"));
  EXPECT_FALSE(IsValidAddonKey("{899452D2C-085-430B-B76D-7FDB33BB324A}"));
  EXPECT_FALSE(IsValidAddonKey("899452D2-C085-430B-B76D-7FDB33BB324A"));
  EXPECT_FALSE(IsValidAddonKey(""));
}

// A built-in package text whose SOFTPKG start tag lacks its ">".
TEST(CdfReaderTest, ReadsStartTagWithoutGreaterThan) {
  Read read = ReadText(
      "<?xml version=\"1.0\"?><SOFTPKG NAME=\"{E6108D44-DB8E-420B-843F-E94A2E161D91}\" VERSION=\"2.6.0\" "
      "TYPE=\"HIDDEN\"<TITLE>KXINI</TITLE><IMPLEMENTATION><OS VALUE=\"PharLap\"/><CODEBASE "
      "FILENAME=\"/d/kxini32.dll\" TARGET=\"/kx-rt/system/kxini32.dll\"/></IMPLEMENTATION></SOFTPKG>");
  ASSERT_EQ(read.status, status::kOk);
  ASSERT_EQ(read.packages.size(), 1u);
  const Package& package = *read.packages[0];
  EXPECT_EQ(package.type, ComponentType::kHidden);
  EXPECT_EQ(package.version.parts, (std::vector<uint32_t>{2, 6}));
  EXPECT_EQ(package.title, "");  // the TITLE start tag went into the SOFTPKG tag
  ASSERT_EQ(package.codebases.size(), 1u);
  EXPECT_EQ(package.codebases[0].target, "/kx-rt/system/kxini32.dll");
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
