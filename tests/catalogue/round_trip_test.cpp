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
    p->version = ParseVersion(VersionText());
    p->type = p->effectiveType =
        Pick({ComponentType::kVisible, ComponentType::kHidden, ComponentType::kSystem, ComponentType::kStartup});
    p->hideVersion = Chance(30);
    p->providesOs = Chance(20);
    p->compatibilityVersion = Chance(50) ? p->version : ParseVersion(VersionText());
    p->oldestCompatibleVersion = ParseVersion(Chance(50) ? "" : VersionText());
    p->title = Chance(80) ? "Component " + std::to_string(index) : "";
    p->abstract = Chance(70) ? "Runtime support, drivers and tools for component " + std::to_string(index) : "";
    p->extraText = Chance(30) ? "rt" : "";
    p->sourcePath = sourcePath_;
    for (size_t i = Count(3); i > 0; --i) p->processors.push_back(Pick({"5A10", "5B20", "7C30"}));
    for (size_t i = Count(1); i > 0; --i) p->exceptProcessors.push_back("4A00");
    for (size_t i = Count(2); i > 0; --i) p->deviceClasses.push_back(Pick({"Controller", "Gateway"}));
    for (size_t i = Count(2); i > 0; --i)
      p->operatingSystems.push_back({"Linux", ParseVersion(Pick({"", "5.10"})), ""});
    for (size_t i = Count(4); i > 0; --i) {
      p->codebases.push_back(
          {Pick(kPayloadFiles), Pick({"", "/usr/local/kx/f"}), Pick({"", "0755"}), "opuser", "kx",
           ParseVersion(Pick({"", "1.2"})),
           Pick({CodebaseType::kFile, CodebaseType::kOptional, CodebaseType::kSystem, CodebaseType::kTar})});
    }
    for (size_t i = Count(2); i > 0; --i) p->symlinks.push_back({"/usr/lib/a.so.2", "/usr/lib/a.so", "0777", "", "kx"});
    for (size_t i = Count(5); i > 0; --i) {
      const std::string title = Pick({"", "Base library"});
      const bool soft = Chance(30);
      const unsigned kind = random_() % 3;
      const Version version = ParseVersion(kind == 2 ? Pick({"", "1"}) : VersionText());
      if (kind == 0) p->dependencies.push_back(std::make_unique<ExactVersionDependency>(Guid(), version, title, soft));
      if (kind == 1) p->dependencies.push_back(std::make_unique<StrictDependency>(Guid(), version, title, soft));
      if (kind == 2) p->dependencies.push_back(std::make_unique<LooseDependency>(Guid(), version, title, soft));
    }
    std::stable_sort(p->dependencies.begin(), p->dependencies.end(), [](const auto& a, const auto& b) {
      const auto rank = [](auto& d) { return (dynamic_cast<const StrictDependency*>(d.get()) ? 0 : 2) + d->isSoft; };
      return rank(a) < rank(b);
    });
    for (size_t i = Count(2); i > 0; --i) {
      StackDependency& stack =
          p->stackItems.emplace_back(StackDependency{Guid(), Pick({"", "2.0"}), Pick({"", "Base stack"}), {}});
      for (size_t j = Count(3); j > 0; --j) {
        StackItem& item = stack.items.emplace_back();
        item.component = {Guid(), ParseVersion(VersionText()), Pick({"", "Member"})};
        item.type = Pick({"", "REQUIRED"});
        item.selected = Chance(50);
        item.hidden = Chance(30);
      }
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
      p->features.push_back({{Guid(), ParseVersion(VersionText()), Pick({"", "Web"})},
                             Pick({FeatureSelection::kSelected, FeatureSelection::kNotSelected,
                                   FeatureSelection::kTarget, FeatureSelection::kSelectedWithDependencies})});
    }
    return p;
  }

 private:
  bool Chance(unsigned percent) { return random_() % 100 < percent; }
  size_t Count(size_t max) { return random_() % (max + 1); }
  template <class T>
  T Pick(std::initializer_list<T> choices) {
    return choices.begin()[random_() % choices.size()];
  }
  template <class T, size_t N>
  T Pick(const T (&choices)[N]) {
    return choices[random_() % N];
  }
  std::string VersionText() { return Pick({"1.0", "2.10.1", "3", "1.5b3", "20.0.0f0", "4.0.0"}); }
  std::string Guid() {
    char text[40];
    std::snprintf(text, sizeof text, "{%08X-C085-430B-B76D-%012X}", static_cast<unsigned>(random_()),
                  static_cast<unsigned>(random_() % 0xFFFFFF));
    return text;
  }

  std::mt19937 random_;
  std::string sourcePath_;
};

// The fields of each entry of a list, so that two lists compare in one step.
template <class T, class Fields>
auto Map(const std::vector<T>& list, Fields fields) {
  std::vector<decltype(fields(list.front()))> out;
  for (const T& entry : list) out.push_back(fields(entry));
  return out;
}

auto Items(const std::vector<StackItem>& items) {
  return Map(items, [](auto& i) {
    return std::tie(i.component.name, i.component.version, i.component.title, i.kind, i.type, i.addonGroup, i.selected,
                    i.hidden);
  });
}

void ExpectSamePackage(const Package& a, const Package& b) {
  const auto scalars = [](const Package& p) {
    return std::tie(p.name, p.version, p.title, p.abstract, p.type, p.effectiveType, p.hideVersion, p.providesOs,
                    p.compatibilityVersion, p.oldestCompatibleVersion, p.extraText, p.originText, p.processors,
                    p.exceptProcessors, p.deviceClasses);
  };
  const auto lists = [](const Package& p) {
    return std::make_tuple(
        Map(p.operatingSystems, [](auto& o) { return std::tie(o.name, o.version, o.title); }),
        Map(p.codebases,
            [](auto& c) { return std::tie(c.fileName, c.target, c.permissions, c.owner, c.group, c.version, c.type); }),
        Map(p.symlinks, [](auto& s) { return std::tie(s.source, s.link, s.permissions, s.owner, s.group); }),
        Map(p.mergeIni, [](auto& m) { return std::tie(m.target, m.fileName, m.text); }),
        Map(p.features,
            [](auto& f) { return std::tie(f.component.name, f.component.version, f.component.title, f.selection); }),
        Map(p.dependencies,
            [](auto& d) {
              return std::make_tuple(std::type_index(typeid(*d)), d->name, d->version, d->title, d->isSoft,
                                     d->requestFlag);
            }),
        Map(p.stackItems, [](auto& s) { return std::make_tuple(s.name, s.versionText, s.title, Items(s.items)); }),
        p.stack ? std::make_tuple(p.stack->name, p.stack->versionText, p.stack->title, Items(p.stack->items))
                : std::make_tuple(std::string("no stack"), std::string(), std::string(), Items({})));
  };
  EXPECT_TRUE(scalars(a) == scalars(b)) << a.name;
  EXPECT_TRUE(lists(a) == lists(b)) << a.name;
}

TEST(RoundTripTest, WrittenDocumentReadsBackIntoEqualPackages) {
  kx::test::ScratchRoot root;
  for (const char* file : kPayloadFiles) root.WriteFile("/payload/" + std::string(file), "");
  for (unsigned seed = 1; seed <= 5; ++seed) {
    PackageGenerator generator(seed, root / "/payload");
    PackageList written;
    std::vector<const Package*> pointers;
    for (unsigned i = 0; i < 60; ++i) pointers.push_back(written.emplace_back(generator.Make(i)).get());
    const std::string path = root / "/out/catalogue.cdf";
    ASSERT_EQ(WriteCdfDocument(path, pointers), 0);
    EXPECT_TRUE(kx::test::IsWellFormedXml(path));

    PackageList read;
    StackList stacks;
    SectionList sections;
    DynamicAddonList addons;
    ASSERT_EQ(ReadCdfDocument(kx::tal::ReadWholeFile(path), read, stacks, sections, addons), 0);
    ASSERT_EQ(read.size(), written.size()) << "seed " << seed;
    for (size_t i = 0; i < read.size(); ++i) ExpectSamePackage(*written[i], *read[i]);
  }
}

}  // namespace
