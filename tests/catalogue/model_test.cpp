#include <gtest/gtest.h>

#include "catalogue/package.h"
#include "catalogue/software_component.h"
#include "catalogue/status.h"

using namespace kx::catalogue;

namespace {

TargetSupport Entry(std::vector<std::string> processors, std::vector<std::string> deviceClasses,
                    std::vector<std::string> exceptProcessors = {}) {
  TargetSupport entry;
  entry.processors = std::move(processors);
  entry.deviceClasses = std::move(deviceClasses);
  entry.exceptProcessors = std::move(exceptProcessors);
  return entry;
}

int Check(const TargetSupport& entry, const char* processor, const char* deviceClass) {
  return CheckTargetSupport(entry, processor, deviceClass, "", Version{}, true);
}

}  // namespace

TEST(TargetSupportTest, StepsApplyInOrder) {
  const struct {
    const char* what;
    TargetSupport entry;
    const char* processor;
    const char* deviceClass;
    int expected;
  } cases[] = {
      {"no lists match everything", Entry({}, {}), "P200", "D1", 0},
      {"processor listed", Entry({"P100"}, {}), "p100", "", 0},
      {"processor not listed, no device classes", Entry({"P100"}, {}), "P200", "", -5},
      {"excluded even when also listed", Entry({"P100"}, {}, {"P100"}), "P100", "", -5},
      {"empty target matches", Entry({"P100"}, {"D1"}), "", "", 0},
      {"processor match ignores device classes", Entry({"P100"}, {"D1"}), "P100", "D9", 0},
      {"unknown processor, empty device class", Entry({"P100"}, {"D1"}), "P200", "", 0},
      {"unknown processor, unknown device class", Entry({"P100"}, {"D1"}), "P200", "D9", -5},
      {"unknown processor, listed device class", Entry({"P100"}, {"D1"}), "P200", "d1", 0},
      {"device class only, listed", Entry({}, {"D1"}), "", "D1", 0},
      {"device class only, not listed", Entry({}, {"D1"}), "", "D2", -5},
      {"processors only, device class given", Entry({"P100"}, {}), "", "D2", 0},
      {"device classes only, processor given", Entry({}, {"D1"}), "P100", "", 0},
  };
  for (const auto& c : cases) EXPECT_EQ(Check(c.entry, c.processor, c.deviceClass), c.expected) << c.what;
}

TEST(TargetSupportTest, OperatingSystemIsCheckedFirst) {
  TargetSupport entry = Entry({"P100"}, {});
  entry.operatingSystems.push_back({"PharLap", ParseVersion("13"), ""});
  // The OS answer comes before the processor answer.
  EXPECT_EQ(CheckTargetSupport(entry, "P200", "", "Linux", Version{}, true), status::kOsMismatch);
  EXPECT_EQ(CheckTargetSupport(entry, "P200", "", "pharlap", Version{}, true), status::kTargetMismatch);
  EXPECT_EQ(CheckTargetSupport(entry, "P100", "", "", Version{}, true), status::kOk);
  // By version: the target's OS must reach the entry's OSVERSION.
  EXPECT_EQ(CheckTargetSupport(entry, "P100", "", "PharLap", ParseVersion("12.9"), false), status::kOsMismatch);
  EXPECT_EQ(CheckTargetSupport(entry, "P100", "", "PharLap", ParseVersion("13.0"), false), status::kOk);
  EXPECT_EQ(CheckTargetSupport(entry, "P100", "", "", Version{}, false), status::kOk);
}

TEST(SoftwareComponentTest, DependsOnTerminatesOnCycles) {
  SoftwareComponent a, b, c, outsider;
  a.AddDependency(std::make_unique<LooseDependency>("B", Version{}, ""));
  b.AddDependency(std::make_unique<LooseDependency>("a", Version{}, ""));
  EXPECT_TRUE(BindDependency(a, "b", b));
  EXPECT_TRUE(BindDependency(b, "A", a));
  EXPECT_FALSE(BindDependency(a, "C", c));
  ASSERT_EQ(b.dependents, std::vector<SoftwareComponent*>{&a});
  EXPECT_EQ(a.dependencyBindings[0].second, &b);

  EXPECT_TRUE(DependsOn(a, b));
  EXPECT_TRUE(DependsOn(b, a));
  EXPECT_TRUE(DependsOn(a, a));  // through b
  EXPECT_FALSE(DependsOn(a, outsider));
}

TEST(SoftwareComponentTest, CopyClonesDependenciesAndSharesBindings) {
  SoftwareComponent target;
  SoftwareComponent component;
  component.AddDependency(std::make_unique<StrictDependency>("T", ParseVersion("1"), ""));
  BindDependency(component, "T", target);
  SoftwareComponent copy = component;
  ASSERT_EQ(copy.dependencyBindings.size(), 1u);
  EXPECT_NE(copy.dependencyBindings[0].first.get(), component.dependencyBindings[0].first.get());
  EXPECT_NE(dynamic_cast<StrictDependency*>(copy.dependencyBindings[0].first.get()), nullptr);
  EXPECT_EQ(copy.dependencyBindings[0].second, &target);
  EXPECT_EQ(copy.dependencyNames, std::vector<std::string>{"T"});
}

TEST(PackageTest, CopyClonesDependenciesAndStack) {
  Package package;
  package.dependencies.push_back(std::make_unique<ExactVersionDependency>("A", ParseVersion("1"), "", true));
  package.extraDependencies.push_back(std::make_unique<LooseDependency>("B", ParseVersion("2"), ""));
  package.stack = std::make_unique<SoftwareSet>();
  package.stack->name = "S";
  Package copy(package);
  ASSERT_EQ(copy.dependencies.size(), 1u);
  EXPECT_NE(copy.dependencies[0].get(), package.dependencies[0].get());
  EXPECT_NE(dynamic_cast<ExactVersionDependency*>(copy.dependencies[0].get()), nullptr);
  EXPECT_TRUE(copy.dependencies[0]->isSoft);
  ASSERT_EQ(copy.extraDependencies.size(), 1u);
  EXPECT_NE(copy.extraDependencies[0].get(), package.extraDependencies[0].get());
  ASSERT_TRUE(copy.stack);
  EXPECT_NE(copy.stack.get(), package.stack.get());
  EXPECT_EQ(copy.stack->name, "S");

  Package withoutStack;
  withoutStack = copy;
  withoutStack = Package();
  EXPECT_FALSE(withoutStack.stack);
}

TEST(PackageTest, CdfFormatVersion) {
  Package package;
  EXPECT_EQ(CdfFormatVersion(package), "1.5");
  package.type = ComponentType::kStartup;
  EXPECT_EQ(CdfFormatVersion(package), "5.0");
  package.type = ComponentType::kHidden;
  package.stack = std::make_unique<SoftwareSet>();
  EXPECT_EQ(CdfFormatVersion(package), "5.0");
}

TEST(PackageTest, StackCheckRebuildsDependencies) {
  auto item = [](const char* name, const char* version, StackItemKind kind) {
    StackItem stackItem;
    stackItem.component = {name, ParseVersion(version), std::string(name) + " title"};
    stackItem.kind = kind;
    return stackItem;
  };
  SoftwareSet given;
  given.name = "{899452D2-C085-430B-B76D-7FDB33BB324A}";
  given.versionText = "1.0";
  given.items = {item("M1", "1", StackItemKind::kMember), item("M2", "2", StackItemKind::kMember),
                 item("A1", "1.0", StackItemKind::kAddon), item("A2", "3", StackItemKind::kAddon)};

  Package package;
  package.stack = std::make_unique<SoftwareSet>();
  package.stack->name = "{899452d2-c085-430b-b76d-7fdb33bb324a}";
  package.stack->versionText = "1.0";
  package.stack->items = {item("a1", "1", StackItemKind::kMember)};
  package.dependencies.push_back(std::make_unique<LooseDependency>("Old", Version{}, ""));

  EXPECT_EQ(CheckStack(package, &given), status::kOk);
  ASSERT_EQ(package.dependencies.size(), 3u);
  EXPECT_EQ(package.dependencies[0]->name, "M1");
  EXPECT_EQ(package.dependencies[1]->name, "M2");
  EXPECT_EQ(package.dependencies[2]->name, "A1");
  EXPECT_EQ(package.dependencies[2]->title, "A1 title");
  EXPECT_NE(dynamic_cast<ExactVersionDependency*>(package.dependencies[2].get()), nullptr);
  EXPECT_FALSE(package.dependencies[2]->isSoft || package.dependencies[2]->requestFlag);

  package.stack->items.push_back(item("A2", "4", StackItemKind::kMember));  // version not offered
  EXPECT_EQ(CheckStack(package, &given), status::kStackMismatch);

  EXPECT_EQ(CheckStack(package, nullptr), status::kInvalidInput);
  given.versionText = "1";
  EXPECT_EQ(CheckStack(package, &given), status::kInvalidInput);
  Package noStack;
  EXPECT_EQ(CheckStack(noStack, &given), status::kInvalidInput);
}

TEST(PackageTest, BuildUrlAndTargetPaths) {
  Package package;
  package.sourcePath = "C:\\catalogue\\Utilities\\BIOS";
  EXPECT_EQ(BuildUrl(package, "http://host/sw", "C:\\catalogue"), "http://host/sw/Utilities/BIOS");
  EXPECT_EQ(BuildUrl(package, "x", std::string(100, 'r')), "x");

  const std::pair<const char*, const char*> paths[] = {
      {"C:\\dir\\file", "/dir/file"}, {"c:/dir/file", "/dir/file"}, {"dir/file", "/dir/file"},
      {"/dir/file", "/dir/file"},     {"", "/"},                     {"c:", "/"}};
  for (const auto& [given, expected] : paths) {
    std::string path = given;
    NormalizeTargetPath(path);
    EXPECT_EQ(path, expected) << given;
  }
}
