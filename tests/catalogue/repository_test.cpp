#include <gtest/gtest.h>

#include "catalogue/repository.h"
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

template <class Entry>
std::vector<std::string> Names(const QueryResult<Entry>& result) {
  std::vector<std::string> names;
  for (const Entry* entry : result.entries) names.push_back(entry->name);
  return names;
}

}  // namespace

TEST(RepositoryTest, Statuses) {
  kx::test::ScratchRoot root;
  root.WriteFile("/file", "");
  Repository missing(root / "/missing");
  EXPECT_EQ(missing.Load(), -17);
  EXPECT_FALSE(missing.IsLoaded());
  EXPECT_EQ(Repository(root / "/file").Load(), -8);

  Repository repository(root.Path());
  EXPECT_EQ(repository.LoadDirectory("", false), -1);
  EXPECT_EQ(repository.LoadDirectory(root / "/missing", false), -8);
  EXPECT_EQ(repository.LoadUserComponents(), -8);
  EXPECT_EQ(repository.LoadFile(""), -1);
  EXPECT_EQ(repository.LoadFile("relative.cdf"), -8);
  EXPECT_EQ(repository.LoadFile(root / "/missing.cdf"), -8);
  EXPECT_EQ(repository.LoadText("<DEFINITION/>", "/d", "/d/x.cdf"), 1);
  EXPECT_EQ(repository.LoadText(Cdf(Softpkg("A"), "8.0"), "/d", "/d/x.cdf"), -11);
  EXPECT_TRUE(repository.Packages().empty());

  EXPECT_EQ(repository.Load(), 0);
  EXPECT_TRUE(repository.IsLoaded());
  EXPECT_TRUE(repository.Packages().empty());
}

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
}

TEST(RepositoryTest, FirstLoadedTypeDecidesUnlessHiddenAndAnotherIsVisible) {
  const struct { const char* first; const char* second; ComponentType expected; } cases[] = {
      {"HIDDEN", "VISIBLE", ComponentType::kVisible}, {"HIDDEN", "SYSTEM", ComponentType::kHidden},
      {"HIDDEN", "HIDDEN", ComponentType::kHidden},   {"SYSTEM", "VISIBLE", ComponentType::kSystem},
      {"STARTUP", "HIDDEN", ComponentType::kStartup}, {"VISIBLE", "HIDDEN", ComponentType::kVisible},
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
  const std::string joins = "<ISADDONOFSTACK KEY=\"{899452d2-c085-430b-b76d-7fdb33bb324a}\" GROUP=\"tools\" SELECT=\"YES\"/>";
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

TEST(RepositoryTest, SupportedEntriesLoadTheCatalogueWhenNeeded) {
  kx::test::ScratchRoot root;
  root.WriteFile("/cat/1.cdf", Cdf(Softpkg("P1", "VISIBLE", "<IMPLEMENTATION><PROCESSOR VALUE=\"5A10\"/></IMPLEMENTATION>") +
                                   Softpkg("P2", "HIDDEN") +
                                   Softpkg("P3", "VISIBLE", "<IMPLEMENTATION><PROCESSOR VALUE=\"5B20\"/></IMPLEMENTATION>") +
                                   "<STACK NAME=\"S1\" OPKGSYSTEM=\"YES\"/><STACK NAME=\"S2\"><PROCESSOR VALUE=\"5B20\"/></STACK>"));
  Repository repository(root / "/cat");
  const auto visible = repository.SupportedPackages("5A10", "", "", false);
  EXPECT_TRUE(repository.IsLoaded());
  EXPECT_EQ(visible.status, 0);
  EXPECT_EQ(Names(visible), (std::vector<std::string>{"P1"}));
  EXPECT_EQ(Names(repository.SupportedPackages("5A10", "", "", true)), (std::vector<std::string>{"P1", "P2"}));
  EXPECT_EQ(Names(repository.SupportedStacks("5A10")), (std::vector<std::string>{"S1"}));
  const auto stacks = repository.SupportedStacks();
  EXPECT_EQ(Names(stacks), (std::vector<std::string>{"S1", "S2"}));
  EXPECT_TRUE(BlocksSoftwareUpdate(*stacks.entries.front()));
  EXPECT_FALSE(BlocksSoftwareUpdate(*stacks.entries.back()));

  Repository missing(root / "/missing");
  EXPECT_EQ(missing.SupportedStacks().status, -17);
}

TEST(RepositoryTest, InstalledConfigurationIsOneDocument) {
  kx::test::ScratchRoot root;
  root.WriteFile("/share/config.cdf", Cdf(Softpkg("{217664c0-3392-4b49-a504-a9d4807906ca}") + "<STACK NAME=\"S\"/>"));
  root.WriteFile("/share/other.cdf", Cdf(Softpkg("Other") + "<STACK NAME=\"T\"/>"));
  Repository installed(root / "/share");
  ASSERT_EQ(installed.LoadOneDocument(root / "/share/config.cdf"), 0);
  EXPECT_NE(installed.FindPackage(kSafeModeComponent), nullptr);
  EXPECT_EQ(installed.FindPackage("Other"), nullptr);
  EXPECT_EQ(Names(installed.SupportedStacks()), (std::vector<std::string>{"S"}));

  Repository absent(root / "/share");
  EXPECT_EQ(absent.LoadOneDocument(root / "/share/absent.cdf"), -8);
  EXPECT_FALSE(absent.IsLoaded());
  const auto stacks = absent.SupportedStacks();
  EXPECT_EQ(stacks.status, -8) << "the document is read again, not the directory";
  EXPECT_TRUE(stacks.entries.empty());
}
