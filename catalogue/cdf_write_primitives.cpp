#include "catalogue/cdf_write_primitives.h"

namespace kx::catalogue::cdf {

void WriteAttribute(std::string& out, std::string_view name, std::string_view value) {
  out += ' ';
  out += name;
  out += "=\"";
  out += value;
  out += '"';
}

void WriteTextElement(std::string& out, std::string_view name, std::string_view text, int level, bool multiLine) {
  out.append(static_cast<size_t>(level), '\t');
  out += '<';
  out += name;
  out += '>';
  if (multiLine) {
    out += '\n';
    out += text;
    out += '\n';
    out.append(static_cast<size_t>(level), '\t');
  } else {
    out += text;
  }
  out += "</";
  out += name;
  out += ">\n";
}

void WriteCdata(std::string& out, std::string_view text) {
  out += "<![CDATA[";
  out += text;
  out += "]]>";
}

}  // namespace kx::catalogue::cdf
