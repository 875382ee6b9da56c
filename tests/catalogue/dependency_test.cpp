#include <gtest/gtest.h>

#include "catalogue/component_base.h"
#include "catalogue/dependency.h"

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
bool Satisfies(const ComponentBase& candidate, const char* requested) {
  return Kind("{53426151-307C-4B0A-B5F0-888EE2B55394}", ParseVersion(requested), "").IsSatisfiedBy(candidate);
}

}  // namespace

TEST(DependencyTest, ExactComparesPartsNotText) {
  EXPECT_TRUE(Satisfies<ExactVersionDependency>(Candidate("2.0"), "2"));
  EXPECT_FALSE(Satisfies<ExactVersionDependency>(Candidate("2.0.1"), "2"));
  EXPECT_FALSE(ExactVersionDependency("Other", ParseVersion("2"), "").IsSatisfiedBy(Candidate("2")));
}

// The compatibility version bounds the request from below for strict, but is an
// alternative to the version for minimum and loose; only strict and loose apply the
// oldest compatible version.
TEST(DependencyTest, SatisfactionRulesKeepTheirDifferences) {
  const struct {
    ComponentBase candidate;
    const char* requested;
    bool strict, minimum, loose;
  } cases[] = {
      {Candidate("2.5"), "2.0", false, true, true},              // strict needs COMPATIBILITY
      {Candidate("2.5", "2.0"), "2.0", true, true, true},
      {Candidate("2.5", "2.0", "2.1"), "2.0", false, true, false},
      {Candidate("2.0", "3.0"), "3.0", false, true, true},        // compatibility above the version
      {Candidate("2.0", "3.0", "3.5"), "3.0", false, true, false},
      {Candidate("2.5", "2.0"), "3.0", false, false, false},
      {Candidate("2.5", "2.0"), "1.0", false, true, true},        // below the compatible range
      {Candidate("1.0"), "", false, true, true},                  // empty request
      {Candidate("1.0", "", "0.5"), "", false, true, false},
      {Candidate("2"), "2.0", true, true, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.candidate.version.text << "/" << c.candidate.compatibilityVersion.text
                                    << "/" << c.candidate.oldestCompatibleVersion.text << " for " << c.requested);
    EXPECT_EQ(Satisfies<StrictDependency>(c.candidate, c.requested), c.strict);
    EXPECT_EQ(Satisfies<MinimumDependency>(c.candidate, c.requested), c.minimum);
    EXPECT_EQ(Satisfies<LooseDependency>(c.candidate, c.requested), c.loose);
  }
}

TEST(DependencyTest, CloneKeepsClassAndEveryField) {
  std::unique_ptr<BaseDependency> originals[] = {
      std::make_unique<StrictDependency>("A", ParseVersion("1.2"), "Title A", true, false),
      std::make_unique<ExactVersionDependency>("B", ParseVersion("3"), "Title B", false, true),
      std::make_unique<MinimumDependency>("C", ParseVersion("4.0"), "", true, true),
      std::make_unique<LooseDependency>("D", ParseVersion(""), "Title D", false, false)};
  for (const auto& original : originals) {
    std::unique_ptr<BaseDependency> copy = original->Clone();
    EXPECT_NE(copy.get(), original.get());
    EXPECT_EQ(typeid(*copy), typeid(*original));
    EXPECT_EQ(copy->name, original->name);
    EXPECT_EQ(copy->version, original->version);
    EXPECT_EQ(copy->title, original->title);
    EXPECT_EQ(copy->isSoft, original->isSoft);
    EXPECT_EQ(copy->requestFlag, original->requestFlag);
  }
}
