#include <gtest/gtest.h>

#include <tuple>
#include <typeindex>

#include "catalogue/component_base.h"
#include "catalogue/dependency.h"
#include "catalogue/package.h"
#include "catalogue/software_component.h"
#include "catalogue/status.h"
#include "catalogue/version.h"

using namespace kx::catalogue;

namespace {

ComponentBase Candidate(const char* version, const char* compatibility = "", const char* oldest = "") {
  ComponentBase component;
  component.name = "{53426151-307c-4b0a-b5f0-888ee2b55394}";
  component.version = ParseVersion(version);
  component.compatibilityVersion = ParseVersion(compatibility);
  component.oldestCompatibleVersion = ParseVersion(oldest);
  return component;
}

template <class Kind>
bool Satisfies(const ComponentBase& candidate, const char* requested,
               const char* name = "{53426151-307C-4B0A-B5F0-888EE2B55394}") {
  return Kind(name, ParseVersion(requested), "").IsSatisfiedBy(candidate);
}

TargetSupport Entry(std::vector<std::string> processors, std::vector<std::string> deviceClasses,
                    std::vector<std::string> exceptProcessors = {}) {
  TargetSupport entry;
  entry.processors = std::move(processors);
  entry.deviceClasses = std::move(deviceClasses);
  entry.exceptProcessors = std::move(exceptProcessors);
  return entry;
}

auto Fields(const BaseDependency& d) {
  return std::make_tuple(std::type_index(typeid(d)), d.name, d.version, d.title, d.isSoft, d.requestFlag);
}

}  // namespace

// The compatibility version bounds the request from below for strict, but is an
// alternative to the version for minimum and loose; only strict and loose apply the
// oldest compatible version; exact compares the parts of the version alone.
TEST(DependencyTest, SatisfactionRulesKeepTheirDifferences) {
  const struct {
    ComponentBase candidate;
    const char* requested;
    bool strict, minimum, loose, exact;
  } cases[] = {
      {Candidate("2.5"), "2.0", false, true, true, false},  // strict needs COMPATIBILITY
      {Candidate("2.5", "2.0"), "2.0", true, true, true, false},
      {Candidate("2.5", "2.0", "2.1"), "2.0", false, true, false, false},
      {Candidate("2.0", "3.0"), "3.0", false, true, true, false},  // compatibility above the version
      {Candidate("2.0", "3.0", "3.5"), "3.0", false, true, false, false},
      {Candidate("2.5", "2.0"), "3.0", false, false, false, false},
      {Candidate("2.5", "2.0"), "1.0", false, true, true, false},  // below the compatible range
      {Candidate("1.0"), "", false, true, true, false},            // empty request
      {Candidate("1.0", "", "0.5"), "", false, true, false, false},
      {Candidate("2"), "2.0", true, true, true, true},
      {Candidate("2.0.1"), "2", false, true, true, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.candidate.version.text << "/" << c.candidate.compatibilityVersion.text << "/"
                                    << c.candidate.oldestCompatibleVersion.text << " for " << c.requested);
    EXPECT_EQ(Satisfies<StrictDependency>(c.candidate, c.requested), c.strict);
    EXPECT_EQ(Satisfies<MinimumDependency>(c.candidate, c.requested), c.minimum);
    EXPECT_EQ(Satisfies<LooseDependency>(c.candidate, c.requested), c.loose);
    EXPECT_EQ(Satisfies<ExactVersionDependency>(c.candidate, c.requested), c.exact);
  }
  EXPECT_FALSE(Satisfies<ExactVersionDependency>(Candidate("2"), "2", "Other"));
}

TEST(DependencyTest, CopiesCloneDependenciesWithClassAndEveryField) {
  std::unique_ptr<BaseDependency> originals[] = {
      std::make_unique<StrictDependency>("A", ParseVersion("1.2"), "Title A", true, false),
      std::make_unique<ExactVersionDependency>("B", ParseVersion("3"), "Title B", false, true),
      std::make_unique<MinimumDependency>("C", ParseVersion("4.0"), "", true, true),
      std::make_unique<LooseDependency>("D", ParseVersion(""), "Title D", false, false)};
  for (const auto& original : originals) {
    std::unique_ptr<BaseDependency> copy = original->Clone();
    EXPECT_NE(copy.get(), original.get());
    EXPECT_TRUE(Fields(*copy) == Fields(*original)) << original->name;
  }

  Package package;
  package.dependencies.push_back(originals[1]->Clone());
  package.extraDependencies.push_back(originals[3]->Clone());
  package.stack = std::make_unique<SoftwareSet>();
  const Package copy(package);
  ASSERT_TRUE(copy.dependencies.size() == 1 && copy.extraDependencies.size() == 1 && copy.stack);
  EXPECT_TRUE(copy.dependencies[0] != package.dependencies[0] &&
              Fields(*copy.dependencies[0]) == Fields(*originals[1]));
  EXPECT_TRUE(copy.extraDependencies[0] != package.extraDependencies[0] && copy.stack != package.stack);

  // A component's copy clones its dependencies but keeps what they are bound to.
  SoftwareComponent target, component;
  component.AddDependency(originals[0]->Clone());
  BindDependency(component, "a", target);
  SoftwareComponent componentCopy = component;
  ASSERT_EQ(componentCopy.dependencyBindings.size(), 1u);
  const auto& [dependency, boundTo] = componentCopy.dependencyBindings[0];
  EXPECT_TRUE(dependency != component.dependencyBindings[0].first && Fields(*dependency) == Fields(*originals[0]));
  EXPECT_EQ(boundTo, &target);
  EXPECT_EQ(componentCopy.dependencyNames, std::vector<std::string>{"A"});
}

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
  for (const auto& c : cases) {
    EXPECT_EQ(CheckTargetSupport(c.entry, c.processor, c.deviceClass, "", Version{}, true), c.expected) << c.what;
  }

  // The operating system is checked first, by name or by reaching OSVERSION.
  TargetSupport entry = Entry({"P100"}, {});
  entry.operatingSystems.push_back({"PharLap", ParseVersion("13"), ""});
  const std::tuple<const char*, const char*, const char*, bool, int> osCases[] = {
      {"P200", "Linux", "", true, status::kOsMismatch},
      {"P200", "pharlap", "", true, status::kTargetMismatch},
      {"P100", "", "", true, status::kOk},
      {"P100", "PharLap", "12.9", false, status::kOsMismatch},
      {"P100", "PharLap", "13.0", false, status::kOk},
      {"P100", "", "", false, status::kOk}};
  for (const auto& [processor, os, osVersion, byName, expected] : osCases) {
    EXPECT_EQ(CheckTargetSupport(entry, processor, "", os, ParseVersion(osVersion), byName), expected)
        << processor << " " << os << " " << osVersion;
  }
}

TEST(SoftwareComponentTest, DependsOnTerminatesOnCycles) {
  SoftwareComponent a, b, c, outsider;
  a.AddDependency(std::make_unique<LooseDependency>("B", Version{}, ""));
  b.AddDependency(std::make_unique<LooseDependency>("a", Version{}, ""));
  EXPECT_TRUE(BindDependency(a, "b", b));
  EXPECT_TRUE(BindDependency(b, "A", a));
  EXPECT_FALSE(BindDependency(a, "C", c));
  ASSERT_EQ(b.dependents, std::vector<SoftwareComponent*>{&a});
  EXPECT_TRUE(DependsOn(a, b) && DependsOn(b, a));
  EXPECT_TRUE(DependsOn(a, a));  // through b
  EXPECT_FALSE(DependsOn(a, outsider));
}

TEST(PackageTest, BuildUrlAndTargetPaths) {
  Package package;
  package.sourcePath = "C:\\catalogue\\Utilities\\BIOS";
  EXPECT_EQ(BuildUrl(package, "http://host/sw", "C:\\catalogue"), "http://host/sw/Utilities/BIOS");
  EXPECT_EQ(BuildUrl(package, "x", std::string(100, 'r')), "x");
  const std::pair<const char*, const char*> paths[] = {{"C:\\dir\\file", "/dir/file"},
                                                       {"c:/dir/file", "/dir/file"},
                                                       {"dir/file", "/dir/file"},
                                                       {"/dir/file", "/dir/file"},
                                                       {"", "/"},
                                                       {"c:", "/"}};
  for (const auto& [given, expected] : paths) {
    std::string path = given;
    NormalizeTargetPath(path);
    EXPECT_EQ(path, expected) << given;
  }
}

TEST(VersionTest, ParsesPiecesLikeStrtolAndDropsTrailingZeros) {
  const struct {
    const char* text;
    VersionNumbers parts;
  } cases[] = {
      {"", {}},
      {"0", {}},
      {"2.0.0", {2}},
      {"20.0.0f0", {20}},  // letters end a piece
      {"1.5b3", {1, 5}},
      {"3.a", {3}},
      {"1..2", {1, 0, 2}},             // an empty piece is 0
      {"-1", {4294967295u}},           // stored unsigned
      {" +7.\t8", {7, 8}},             // leading white space and sign
      {"99999999999", {2147483647u}},  // clamped to the signed range
      {"-99999999999", {2147483648u}},
      {"- 5.1", {0, 1}},  // a sign without digits reads 0
  };
  for (const auto& c : cases) {
    Version version = ParseVersion(c.text);
    EXPECT_EQ(version.parts, c.parts) << c.text;
    EXPECT_EQ(version.text, c.text);
  }
  EXPECT_EQ(ParseVersionNumbers("8.0"), (VersionNumbers{8, 0}));
}

TEST(VersionTest, OrdersByPartsWithPrefixSmaller) {
  auto atLeast = [](const char* a, const char* b) { return VersionAtLeast(ParseVersion(a), ParseVersion(b)); };
  EXPECT_TRUE(atLeast("1.0", "1") && atLeast("1", "1.0"));
  EXPECT_TRUE(atLeast("1.0.1", "1") && !atLeast("1", "1.0.1"));
  EXPECT_TRUE(atLeast("1.10", "1.9") && !atLeast("1.9", "1.10"));
  EXPECT_TRUE(atLeast("-1", "999.999"));  // compared as unsigned
  EXPECT_TRUE(atLeast("", "") && !atLeast("", "0.1"));
  EXPECT_TRUE(VersionPartsEqual(ParseVersion("20.0.0f0"), ParseVersion("20")));
}

TEST(VersionTest, NamesCompareWithAsciiCaseFolded) {
  EXPECT_TRUE(NamesEqual("{899452d2-c085-430b-b76d-7fdb33bb324a}", "{899452D2-C085-430B-B76D-7FDB33BB324A}"));
  EXPECT_FALSE(NamesEqual("PharLap", "PharLap "));
  EXPECT_FALSE(NamesEqual("\xe9", "\xc9"));  // only ASCII letters fold
}
