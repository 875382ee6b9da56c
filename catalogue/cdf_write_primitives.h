#pragma once
// The three pieces every CDF text is built from. Nothing is escaped: values and
// texts are copied as given, so they must not hold '"', '<' or "]]>".

#include <string>
#include <string_view>

namespace kx::catalogue::cdf {

// ` name="value"`
void WriteAttribute(std::string& out, std::string_view name, std::string_view value);

// `level` tabs, `<name>text</name>` and a line feed. With `multiLine` the text
// stands on lines of its own and the closing tag is indented again.
void WriteTextElement(std::string& out, std::string_view name, std::string_view text, int level, bool multiLine);

// `<![CDATA[text]]>`
void WriteCdata(std::string& out, std::string_view text);

}  // namespace kx::catalogue::cdf
