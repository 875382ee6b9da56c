// Generated packages written by the CDF writer must be well-formed XML and read
// back through the reader into equal packages.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>
#include <typeindex>
#include <typeinfo>

#include "catalogue/cdf_reader.h"
#include "catalogue/cdf_writer.h"
#include "kx/tal/text_file.h"
#include "tests/catalogue/well_formed_xml.h"
#include "tests/support/scratch_root.h"

using namespace kx::catalogue;

namespace {

constexpr const char* kPayloadFiles[] = {"bin/compd", "lib/libcomp.so", "share/web.tar", "comp.ini"};

// Random but reader-consistent packages: upper-case GUIDs, unique dependency
// names in the order the reader keeps (exact and strict first, hard before
// soft), and the package's stack taken from its first stack dependency.
class PackageGenerator {
 public:
  PackageGenerator(unsigned seed, std::string sourcePath) : random_(seed), sourcePath_(std::move(sourcePath)) {}

  std::unique_ptr<Package> Make(unsigned index) {
    auto p = std::make_unique<Package>();
    p->name = Chance(90) ? Guid() : "Plain" + std::to_string(index);
    p->version = ParseVersion(Version());
    p->type = Pick({ComponentType::kVisible, ComponentType::kHidden, ComponentType::kSystem, ComponentType::kStartup});
    p->effectiveType = p->type;
    p->hideVersion = Chance(30);
    p->providesOs = Chance(20);
    p->compatibilityVersion = Chance(50) ? p->version : ParseVersion(Version());
    p->oldestCompatibleVersion = ParseVersion(Chance(50) ? "" : Version());
    p->title = Chance(80) ? "Component " + std::to_string(index) : "";
    p->abstract = Chance(70) ? "Runtime support, drivers and tools for component " + std::to_string(index) : "";
    p->extraText = Chance(30) ? "rt" : "";
    p->sourcePath = sourcePath_;
    for (size_t i = Count(3); i > 0; --i) p->processors.push_back(Pick({"5A10", "5B20", "7C30"}));
    for (size_t i = Count(1); i > 0; --i) p->exceptProcessors.push_back("4A00");
    for (size_t i = Count(2); i > 0; --i) p->deviceClasses.push_back(Pick({"Controller", "Gateway"}));
    for (size_t i = Count(2); i > 0; --i) p->operatingSystems.push_back({"Linux", ParseVersion(Pick({"", "5.10"})), ""});
    for (size_t i = Count(4); i > 0; --i) {
      p->codebases.push_back({Pick(kPayloadFiles), Pick({"", "/usr/local/kx/f"}), Pick({"", "0755"}), "opuser", "kx",
                              ParseVersion(Pick({"", "1.2"})),
                              Pick({CodebaseType::kFile, CodebaseType::kOptional, CodebaseType::kSystem,
                                    CodebaseType::kTar})});
    }
    for (size_t i = Count(2); i > 0; --i) p->symlinks.push_back({"/usr/lib/a.so.2", "/usr/lib/a.so", "0777", "", "kx"});
    for (size_t i = Count(5); i > 0; --i) {
      const std::string title = Chance(50) ? "Base library" : "";
      const bool soft = Chance(30);
      switch (random_() % 3) {
        case 0: p->dependencies.push_back(std::make_unique<ExactVersionDependency>(Guid(), ParseVersion(Version()), title, soft)); break;
        case 1: p->dependencies.push_back(std::make_unique<StrictDependency>(Guid(), ParseVersion(Version()), title, soft)); break;
        default: p->dependencies.push_back(std::make_unique<LooseDependency>(Guid(), ParseVersion(Pick({"", "1"})), title, soft));
      }
    }
    std::stable_sort(p->dependencies.begin(), p->dependencies.end(), [](const auto& a, const auto& b) {
      return ReaderRank(*a) < ReaderRank(*b);
    });
    for (size_t i = Count(2); i > 0; --i) {
      StackDependency stack{Guid(), Pick({"", "2.0"}), Pick({"", "Base stack"}), {}};
      for (size_t j = Count(3); j > 0; --j) {
        StackItem item;
        item.component = {Guid(), ParseVersion(Version()), Pick({"", "Member"})};
        item.type = Pick({"", "REQUIRED"});
        item.selected = Chance(50);
        item.hidden = Chance(30);
        stack.items.push_back(item);
      }
      p->stackItems.push_back(stack);
    }
    if (!p->stackItems.empty()) {
      const StackDependency& first = p->stackItems.front();
      p->stack = std::make_unique<SoftwareSet>();
      std::tie(p->stack->name, p->stack->versionText, p->stack->title, p->stack->items) =
          std::tie(first.name, first.versionText, first.title, first.items);
    }
    for (size_t i = Count(2); i > 0; --i) {
      p->mergeIni.push_back({Pick({"/kx-rt.ini", "/etc/comp.ini"}), Pick({"", "comp.ini"}),
                             Pick({"[Comp]\nEnabled=True\n", "\n[A]\nB=<1 & 2>\n", ""})});
    }
    for (size_t i = Count(2); i > 0; --i) {
      p->features.push_back({{Guid(), ParseVersion(Version()), Pick({"", "Web"})},
                             Pick({FeatureSelection::kSelected, FeatureSelection::kNotSelected, FeatureSelection::kTarget,
                                   FeatureSelection::kSelectedWithDependencies})});
    }
    return p;
  }

 private:
  static int ReaderRank(const BaseDependency& d) {
    return (dynamic_cast<const StrictDependency*>(&d) ? 0 : 2) + (d.isSoft ? 1 : 0);
  }
  bool Chance(unsigned percent) { return random_() % 100 < percent; }
  size_t Count(size_t max) { return random_() % (max + 1); }
  template <class T>
  T Pick(std::initializer_list<T> choices) { return choices.begin()[random_() % choices.size()]; }
  template <class T, size_t N>
  T Pick(const T (&choices)[N]) { return choices[random_() % N]; }
  std::string Version() { return Pick({"1.0", "2.10.1", "3", "1.5b3", "20.0.0f0", "4.0.0"}); }
  std::string Guid() {
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-C085-430B-B76D-%012X}", static_cast<unsigned>(random_()),
                  static_cast<unsigned>(random_() % 0xFFFFFF));
    return text;
  }

  std::mt19937 random_;
  std::string sourcePath_;
};

template <class T, class Fields>
void ExpectSameList(const std::vector<T>& a, const std::vector<T>& b, Fields fields, const char* what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  for (size_t i = 0; i < a.size(); ++i) EXPECT_TRUE(fields(a[i]) == fields(b[i])) << what << " #" << i;
}

auto ReferenceFields(const ComponentReference& r) { return std::tie(r.name, r.version, r.title); }
auto ItemFields(const StackItem& i) {
  return std::tuple_cat(ReferenceFields(i.component), std::tie(i.kind, i.type, i.addonGroup, i.selected, i.hidden));
}

void ExpectSamePackage(const Package& a, const Package& b) {
  SCOPED_TRACE(a.name);
  EXPECT_TRUE(std::tie(a.name, a.version, a.title, a.abstract, a.type, a.effectiveType, a.hideVersion, a.providesOs,
                       a.compatibilityVersion, a.oldestCompatibleVersion, a.extraText, a.originText, a.sourcePath,
                       a.cdfFile) ==
              std::tie(b.name, b.version, b.title, b.abstract, b.type, b.effectiveType, b.hideVersion, b.providesOs,
                       b.compatibilityVersion, b.oldestCompatibleVersion, b.extraText, b.originText, b.sourcePath,
                       b.cdfFile));
  EXPECT_EQ(a.processors, b.processors);
  EXPECT_EQ(a.exceptProcessors, b.exceptProcessors);
  EXPECT_EQ(a.deviceClasses, b.deviceClasses);
  ExpectSameList(a.operatingSystems, b.operatingSystems, [](auto& o) { return std::tie(o.name, o.version, o.title); }, "OS");
  ExpectSameList(a.codebases, b.codebases, [](auto& c) {
    return std::tie(c.fileName, c.target, c.permissions, c.owner, c.group, c.version, c.type); }, "CODEBASE");
  ExpectSameList(a.symlinks, b.symlinks, [](auto& s) {
    return std::tie(s.source, s.link, s.permissions, s.owner, s.group); }, "SYMLINK");
  ExpectSameList(a.mergeIni, b.mergeIni, [](auto& m) { return std::tie(m.target, m.fileName, m.text); }, "MERGEINI");
  ExpectSameList(a.features, b.features, [](auto& f) {
    return std::tuple_cat(ReferenceFields(f.component), std::tie(f.selection)); }, "FEATURE");
  ExpectSameList(a.dependencies, b.dependencies, [](auto& d) {
    return std::make_tuple(std::type_index(typeid(*d)), d->name, d->version, d->title, d->isSoft, d->requestFlag);
  }, "DEPENDENCY");
  ExpectSameList(a.stackItems, b.stackItems, [](auto& s) { return std::tie(s.name, s.versionText, s.title); }, "STACKDEP");
  for (size_t i = 0; i < std::min(a.stackItems.size(), b.stackItems.size()); ++i) {
    ExpectSameList(a.stackItems[i].items, b.stackItems[i].items, ItemFields, "STACKITEM");
  }
  ASSERT_EQ(a.stack != nullptr, b.stack != nullptr);
  if (a.stack) {
    EXPECT_TRUE(std::tie(a.stack->name, a.stack->versionText, a.stack->title) ==
                std::tie(b.stack->name, b.stack->versionText, b.stack->title));
    ExpectSameList(a.stack->items, b.stack->items, ItemFields, "stack item");
  }
}

std::vector<const Package*> Pointers(const PackageList& packages) {
  std::vector<const Package*> pointers;
  for (const auto& package : packages) pointers.push_back(package.get());
  return pointers;
}

class RoundTripTest : public ::testing::TestWithParam<unsigned> {
 protected:
  RoundTripTest() {
    for (const char* file : kPayloadFiles) root_.WriteFile("/payload/" + std::string(file), "");
  }
  PackageList Generate(unsigned seed, unsigned count) {
    PackageGenerator generator(seed, root_ / "/payload");
    PackageList packages;
    for (unsigned i = 0; i < count; ++i) packages.push_back(generator.Make(i));
    return packages;
  }

  kx::test::ScratchRoot root_;
};

TEST_P(RoundTripTest, WrittenDocumentReadsBackIntoEqualPackages) {
  const PackageList written = Generate(GetParam(), 60);
  const std::string path = root_ / "/out/catalogue.cdf";
  ASSERT_EQ(WriteCdfDocument(path, Pointers(written)), 0);
  EXPECT_TRUE(kx::test::IsWellFormedXml(path));

  PackageList read;
  StackList stacks;
  SectionList sections;
  DynamicAddonList addons;
  ASSERT_EQ(ReadCdfDocument(kx::tal::ReadWholeFile(path), read, stacks, sections, addons), 0);
  ASSERT_EQ(read.size(), written.size());
  for (size_t i = 0; i < read.size(); ++i) {
    read[i]->sourcePath = written[i]->sourcePath;  // the repository's to set, not the reader's
    ExpectSamePackage(*written[i], *read[i]);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RoundTripTest, ::testing::Values(1u, 2u, 3u, 4u, 5u));

}  // namespace
