#pragma once
// Pieces of the CDF reader shared by the package, stack and section readers.

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "catalogue/component_base.h"
#include "catalogue/element_scanner.h"
#include "catalogue/stack_item.h"
#include "catalogue/target_support.h"

namespace kx::catalogue::cdf {

// Without the blanks, tabs, CRs and LFs around it.
std::string_view Trim(std::string_view text);

// The element's content, trimmed.
std::string ContentText(const Element& element);

// The trimmed content of the first element called `name` in `span`; empty when none.
std::string ChildText(const ElementScanner& scanner, TextSpan span, std::string_view name);

// Readers of the OS (VALUE, with OSVERSION VALUE inside it), PROCESSOR,
// EXCEPTPROCESSOR and DEVICECLASS elements into `target`, for ForEachOf.
using TargetSupportVisitors = std::array<ElementScanner::NamedVisitor, 4>;
TargetSupportVisitors TargetSupportReaders(const ElementScanner& scanner, TargetSupport& target);

// One FEATURE element, or all of `span`.
void ReadFeature(const ElementScanner& scanner, const Element& feature, std::vector<Feature>& features);
void ReadFeatures(const ElementScanner& scanner, TextSpan span, std::vector<Feature>& features);

// Elements called `elementName` in `span`, as items of the given kind and group.
void ReadStackItems(const ElementScanner& scanner, TextSpan span, std::string_view elementName, StackItemKind kind,
                    size_t addonGroup, std::vector<StackItem>& items);

}  // namespace kx::catalogue::cdf
