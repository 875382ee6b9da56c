#include <gtest/gtest.h>

#include "catalogue/legacy_packages.h"
#include "catalogue/repository.h"
#include "tests/support/scratch_root.h"

using namespace kx::catalogue;

TEST(LegacyPackagesTest, AddedOnlyWhenTheirMarkerExists) {
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
}

TEST(LegacyPackagesTest, PayloadDirectoryReplacesThePlaceholder) {
  kx::test::ScratchRoot root;
  root.WriteFile("/cat/Utilities/BIOS Updater/10.3/update5A10.rts", "");
  Repository repository(root / "/cat");
  ASSERT_EQ(repository.Load(), 0);
  ASSERT_EQ(repository.Packages().size(), 1u);
  const Package& updater = *repository.Packages().front();
  const std::string payload = root / "/cat/Utilities/BIOS Updater/10.3";
  EXPECT_EQ(updater.type, ComponentType::kSystem);
  EXPECT_EQ(updater.processors, std::vector<std::string>{"5A10"});
  ASSERT_EQ(updater.codebases.size(), 1u);
  EXPECT_EQ(updater.codebases[0].fileName, payload + "/5A10/flashupd.exe");
  EXPECT_EQ(updater.sourcePath, payload);
  EXPECT_EQ(updater.cdfFile, "");
  ASSERT_EQ(updater.mergeIni.size(), 1u);
  EXPECT_EQ(updater.mergeIni[0].text, "[STARTUP]\nMainExe=/kx-rt/system/flashupd.exe\n");
}

TEST(LegacyPackagesTest, PlaceholderInTheDirectoryIsInsertedOnce) {
  // The first text's missing ">" is kept; the reader still takes its attributes (table above).
  EXPECT_NE(std::string(kLegacyPackages[0].text).find("TYPE=\"HIDDEN\"<TITLE>"), std::string::npos);
  EXPECT_EQ(ReplaceDirectoryPlaceholder("[[DIR]]/a [[DIR]]/b", "/x"), "/x/a /x/b");
  EXPECT_EQ(ReplaceDirectoryPlaceholder("[[DIR]]/a", "/[[DIR]]"), "/[[DIR]]/a");
}
