#include "catalogue/cdf_fragments.h"

#include "catalogue/cdf_write_primitives.h"

namespace kx::catalogue::cdf {
namespace {

void WriteReference(std::string& out, const char* element, const ComponentReference& reference) {
  out += "\t\t\t<";
  out += element;
  WriteAttribute(out, "NAME", reference.name);
  WriteAttribute(out, "VERSION", reference.version.text);
  WriteAttribute(out, "TITLE", reference.title);
  out += "/>";
}

}  // namespace

void WriteDependencyList(std::string& out, const std::vector<DependencyPair>& pairs) {
  for (const DependencyPair& pair : pairs) {
    out += "\t\t<DEPENDENCY>\n";
    WriteReference(out, "DEPENDER", pair.depender);
    out += '\n';
    WriteReference(out, "DEPENDEE", pair.dependee);
    out += "\n\t\t</DEPENDENCY>\n";
  }
}

void WriteImageResponse(std::string& out, int32_t result) {
  out += "<RTIMAGESRESPONSE";
  WriteAttribute(out, "RESULT", std::to_string(result));
  out += "/>\n";
}

void WriteFeatureList(std::string& out, const std::vector<FeatureListEntry>& entries) {
  for (const FeatureListEntry& entry : entries) {
    const ComponentBase& component = *entry.component;
    out += "<FEATURE";
    WriteAttribute(out, "TARGET", component.name);
    WriteAttribute(out, "VERSION", component.version.text);
    WriteAttribute(out, "TITLE", component.title);
    WriteAttribute(out, "ABSTRACT", component.abstract);
    WriteAttribute(out, "SELECT", entry.selected ? "YES" : "NO");
    out += " />\n";
  }
}

}  // namespace kx::catalogue::cdf
