// Fuzz target for the CDF document read. Besides running the reader (which must
// neither crash nor report anything but 0, 1 or -11), it checks the indexed
// element scan against a plain recursive reading of the same rules.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "catalogue/cdf_reader.h"
#include "catalogue/element_scanner.h"
#include "kx/tal/log.h"
#include "tests/catalogue/reference_element_scan.h"

namespace {

using namespace kx::catalogue;

void Require(bool condition) {
  if (!condition) std::abort();
}

void CompareWithReference(std::string_view text) {
  const ElementScanner scanner(text);
  for (std::string_view name : {"", "SOFTPKG", "DEPENDENCY", "A"}) {
    size_t position = 0;
    while (auto element = scanner.Find(scanner.Whole(), position, name)) {
      auto expected = reference::FindElement(text, position, name);
      Require(expected && element->attributes == expected->attributes && element->content == expected->content &&
              element->next == expected->next);
      auto inner = scanner.First(element->inside, "");
      auto innerExpected = reference::FindElement(expected->content, 0, "");
      Require(inner.has_value() == innerExpected.has_value());
      if (inner) Require(inner->content == innerExpected->content && inner->attributes == innerExpected->attributes);
      position = element->next;
    }
    Require(!reference::FindElement(text, position, name));
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kx::tal::InitTraceLog(0, 0, "", 0);  // invalid add-on keys would flood the system log
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  PackageList packages;
  StackList stacks;
  SectionList sections;
  DynamicAddonList addons;
  const int status = ReadCdfDocument(text, packages, stacks, sections, addons);
  Require(status == 0 || status == 1 || status == -11);
  Require((status == 1) == (packages.empty() && stacks.empty() && sections.empty()) || status == -11);
  for (const auto& package : packages) {
    Package copy(*package);
    Require(copy.dependencies.size() == package->dependencies.size());
  }
  CompareWithReference(text);
  return 0;
}
