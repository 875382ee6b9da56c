#include "catalogue/repository.h"

#include <gtest/gtest.h>

#include "catalogue/legacy_packages.h"
#include "tests/support/scratch_root.h"

using namespace kx::catalogue;

namespace {

std::string Cdf(const std::string& body, const std::string& version = "5.0") {
  return "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"" + version + "\"?>\n<DEFINITION>" + body + "</DEFINITION>\n";
}

std::string Softpkg(const std::string& name, const std::string& type = "VISIBLE", const std::string& inner = "") {
  return "<SOFTPKG NAME=\"" + name + "\" VERSION=\"1.0\" TYPE=\"" + type + "\">" + inner + "</SOFTPKG>";
}

std::vector<std::string> Names(const Repository& repository) {
  std::vector<std::string> names;
  for (const auto& package : repository.Packages()) names.push_back(package->name);
  return names;
}

}  // namespace

TEST(RepositoryTest, LoadsCdfFilesInNameOrderAndSkipsBadOnes) {
  kx::test::ScratchRoot root;
  root.WriteFile("/cat/b.cdf", Cdf(Softpkg("B")));
  root.WriteFile("/cat/a.cdf", Cdf(Softpkg("A") + "<STACK NAME=\"S\"/><SECTION NAME=\"main\"/>"));
  root.WriteFile("/cat/c.cdf", Cdf(Softpkg("C"), "8.0"));
  root.WriteFile("/cat/d.cdf", Cdf("nothing here"));
  root.WriteFile("/cat/e.cdf/inside.cdf", Cdf(Softpkg("E")));
  root.WriteFile("/cat/f.txt", Cdf(Softpkg("F")));
  root.WriteFile("/cat/g.cdf", Cdf(Softpkg("D")));
  root.WriteFile("/cat/h.cdf", Cdf(Softpkg("D")));
  root.WriteFile("/cat/User Components/u.cdf", Cdf(Softpkg("U")));
  Repository repository(root / "/cat");
  ASSERT_EQ(repository.Load(), 0);
  EXPECT_EQ(Names(repository), (std::vector<std::string>{"A", "B", "D", "D"}));
  EXPECT_EQ(repository.Packages()[2]->cdfFile, root / "/cat/g.cdf");
  EXPECT_EQ(repository.Packages()[3]->cdfFile, root / "/cat/h.cdf");
  EXPECT_EQ(repository.Packages()[3]->sourcePath, root / "/cat");
  EXPECT_EQ(repository.Stacks().size(), 1u);
  EXPECT_EQ(repository.Sections().size(), 1u);
  EXPECT_EQ(repository.LoadUserComponents(), 0);
  EXPECT_EQ(Names(repository).back(), "U");
  EXPECT_EQ(Repository(root / "/missing").Load(), -17);
  EXPECT_EQ(Repository(root / "/cat/a.cdf").Load(), -8);
  EXPECT_EQ(repository.LoadOneDocument(root / "/missing.cdf"), -8);
}

TEST(RepositoryTest, FirstLoadedTypeDecidesUnlessHiddenAndAnotherIsVisible) {
  const struct {
    const char* first;
    const char* second;
    ComponentType expected;
  } cases[] = {
      {"HIDDEN", "VISIBLE", ComponentType::kVisible},
      {"HIDDEN", "SYSTEM", ComponentType::kHidden},
      {"SYSTEM", "VISIBLE", ComponentType::kSystem},
      {"VISIBLE", "HIDDEN", ComponentType::kVisible},
  };
  for (const auto& c : cases) {
    kx::test::ScratchRoot root;
    root.WriteFile("/cat/1.cdf", Cdf(Softpkg("{0000000A-0000-0000-0000-000000000000}", c.first)));
    root.WriteFile("/cat/2.cdf", Cdf(Softpkg("{0000000a-0000-0000-0000-000000000000}", c.second)));
    Repository repository(root / "/cat");
    ASSERT_EQ(repository.Load(), 0);
    EXPECT_EQ(repository.Visibility("{0000000a-0000-0000-0000-000000000000}", ComponentType::kSystem), c.expected)
        << c.first << " then " << c.second;
    EXPECT_EQ(repository.Visibility("absent", ComponentType::kStartup), ComponentType::kStartup);
  }
}

TEST(RepositoryTest, ReloadStartsAfreshButKeepsAddonsAndVisibility) {
  kx::test::ScratchRoot root;
  const std::string stack = "{899452D2-C085-430B-B76D-7FDB33BB324A}";
  root.WriteFile("/cat/1.cdf", Cdf("<STACK NAME=\"" + stack + "\"><ADDONGROUP NAME=\"tools\"/></STACK>"));
  const std::string joins =
      "<ISADDONOFSTACK KEY=\"{899452d2-c085-430b-b76d-7fdb33bb324a}\" GROUP=\"tools\" SELECT=\"YES\"/>";
  root.WriteFile("/cat/2.cdf", Cdf(Softpkg("A", "HIDDEN", joins) +
                                   Softpkg("B", "VISIBLE", "<ISADDONOFSTACK KEY=\"" + stack + "\" GROUP=\"extra\"/>")));
  Repository repository(root / "/cat");
  ASSERT_EQ(repository.Load(), 0);
  const uint32_t firstGeneration = repository.Generation();

  root.WriteFile("/cat/2.cdf", Cdf(Softpkg("A", "VISIBLE", joins) + Softpkg("B")));
  ASSERT_EQ(repository.Load(), 0);
  EXPECT_GT(repository.Generation(), firstGeneration);
  EXPECT_EQ(Names(repository), (std::vector<std::string>{"A", "B"}));
  EXPECT_EQ(repository.DynamicAddons().size(), 3u) << "two records of the first load, one of the second";
  EXPECT_EQ(repository.Visibility("A", ComponentType::kSystem), ComponentType::kHidden) << "kept from the first load";

  ASSERT_EQ(repository.Stacks().size(), 1u);
  const SoftwareSet& joined = *repository.Stacks().front();
  ASSERT_EQ(joined.items.size(), 2u) << "each add-on joined once";
  ASSERT_EQ(joined.addonGroups.size(), 2u);
  EXPECT_EQ(joined.addonGroups[1].name, "extra");
  const StackItem& a = joined.items[0];
  EXPECT_TRUE(a.component.name == "A" && a.kind == StackItemKind::kAddon && a.addonGroup == 0 && a.selected);
  EXPECT_TRUE(joined.items[1].component.name == "B" && joined.items[1].addonGroup == 1 && !joined.items[1].selected);
}

// The built-in package texts are loaded when their marker file exists, with the
// payload directory put in for "[[DIR]]"; the texts stay as they are, flaws and all.
TEST(RepositoryTest, LegacyPackagesOnlyWithTheirMarker) {
  const struct {
    std::vector<int> markers;
    std::vector<std::string> expected;  // name and version of each package, in load order
  } cases[] = {
      {{}, {}},
      {{1}, {"PharLap 10.3"}},
      {{2, 0}, {"{E6108D44-DB8E-420B-843F-E94A2E161D91} 2.6.0", "PharLap 10.4"}},
  };
  for (const auto& c : cases) {
    kx::test::ScratchRoot root;
    root.WriteFile("/cat/readme.txt", "");
    for (int marker : c.markers) {
      const LegacyPackage& legacy = kLegacyPackages[marker];
      root.WriteFile("/cat/" + std::string(legacy.payloadDirectory) + "/" + legacy.markerFile, "");
    }
    Repository repository(root / "/cat");
    ASSERT_EQ(repository.Load(), 0);
    std::vector<std::string> loaded;
    for (const auto& package : repository.Packages()) loaded.push_back(package->name + " " + package->version.text);
    EXPECT_EQ(loaded, c.expected);
  }

  kx::test::ScratchRoot root;
  root.WriteFile("/cat/Utilities/BIOS Updater/10.3/update5A10.rts", "");
  Repository repository(root / "/cat");
  ASSERT_EQ(repository.Load(), 0);
  ASSERT_EQ(repository.Packages().size(), 1u);
  const Package& updater = *repository.Packages().front();
  const std::string payload = root / "/cat/Utilities/BIOS Updater/10.3";
  EXPECT_TRUE(updater.type == ComponentType::kSystem && updater.sourcePath == payload && updater.cdfFile.empty());
  ASSERT_TRUE(updater.codebases.size() == 1 && updater.mergeIni.size() == 1);
  EXPECT_EQ(updater.codebases[0].fileName, payload + "/5A10/flashupd.exe");
  EXPECT_EQ(updater.mergeIni[0].text, "[STARTUP]\nMainExe=/kx-rt/system/flashupd.exe\n");

  EXPECT_NE(std::string(kLegacyPackages[0].text).find("TYPE=\"HIDDEN\"<TITLE>"), std::string::npos);
  EXPECT_EQ(ReplaceDirectoryPlaceholder("[[DIR]]/a [[DIR]]/b", "/x"), "/x/a /x/b");
  EXPECT_EQ(ReplaceDirectoryPlaceholder("[[DIR]]/a", "/[[DIR]]"), "/[[DIR]]/a");
}
