#pragma once
// Small CDF-style XML pieces that answers embed: dependency pairs, the image
// response element and feature lists. They cannot fail.

#include <cstdint>
#include <string>
#include <vector>

#include "catalogue/component_base.h"
#include "catalogue/stack_item.h"

namespace kx::catalogue::cdf {

// A component and one it depends on.
struct DependencyPair {
  ComponentReference depender;
  ComponentReference dependee;
};

// One DEPENDENCY element per pair, holding a DEPENDER and a DEPENDEE element.
void WriteDependencyList(std::string& out, const std::vector<DependencyPair>& pairs);

// `<RTIMAGESRESPONSE RESULT="result"/>` and a line feed.
void WriteImageResponse(std::string& out, int32_t result);

struct FeatureListEntry {
  const ComponentBase* component;
  bool selected;
};

// One FEATURE element per entry: TARGET (the component's name), VERSION, TITLE,
// ABSTRACT and SELECT ("YES" or "NO").
void WriteFeatureList(std::string& out, const std::vector<FeatureListEntry>& entries);

}  // namespace kx::catalogue::cdf
