#include "catalogue/element_scanner.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/catalogue/reference_element_scan.h"

using namespace kx::catalogue;

namespace {

using Expected = std::pair<std::string, std::string>;  // attributes, content

// Every element called `name` found by repeated searches over the whole text.
std::vector<Expected> FindAll(std::string_view text, std::string_view name) {
  ElementScanner scanner(text);
  std::vector<Expected> found;
  scanner.ForEach(scanner.Whole(), name, [&](const Element& e) {
    found.push_back({std::string(e.attributes), std::string(e.content)});
  });
  return found;
}

}  // namespace

TEST(ElementScannerTest, FindsElementsByTheDocumentedRules) {
  const struct {
    const char* what;
    const char* text;
    const char* name;
    std::vector<Expected> expected;
  } cases[] = {
      {"siblings", "<A x=\"1\">one</A><A>two</A>", "A", {{" x=\"1\"", "one"}, {"", "two"}}},
      {"at any depth", "<R><B><A>deep</A></B></R>", "A", {{"", "deep"}}},
      {"nested same name", "<A><A>in</A>out</A>", "A", {{"", "<A>in</A>out"}}},
      {"self-closing", "<A k=\"v\"/><A/>", "A", {{" k=\"v\"", ""}, {"", ""}}},
      {"processing instruction", "<?CDF VERSION=\"7.9\"?><A/>", "?CDF", {{" VERSION=\"7.9\"?", ""}}},
      {"in a comment", "<!-- <A>no</A> --><A>yes</A>", "A", {{"", "yes"}}},
      {"comment without blank", "<!--<A>no</A>--><A>yes</A>", "A", {{"", "yes"}}},
      {"in CDATA", "<![CDATA[<A>no</A>]]><A>yes</A>", "A", {{"", "yes"}}},
      {"CDATA inside content", "<A><![CDATA[</A>]]></A>", "A", {{"", "<![CDATA[</A>]]>"}}},
      {"unterminated comment hides the rest", "<!-- <A>x</A>", "A", {}},
      {"declaration passed over", "<!DOCTYPE x><A>1</A>", "A", {{"", "1"}}},
      {"stray less-than", "a < b <A>1</A>", "A", {{"", "1"}}},
      {"name is case-sensitive", "<a>1</a><A>2</A>", "A", {{"", "2"}}},
      {"prefix names differ", "<AB>1</AB><A>2</A>", "A", {{"", "2"}}},
      {"no closing tag: rest of text", "<A>one<B>two</B>", "A", {{"", "one<B>two</B>"}}},
      {"no >: rest is attributes", "<A x=\"1\"", "A", {{" x=\"1\"", ""}}},
      {"start tag runs to next >", "<A x=\"1\"<T>t</T></A>", "A", {{" x=\"1\"<T", "t</T>"}}},
      {"other closing tags stepped over", "<A>1</B>2</A>", "A", {{"", "1</B>2"}}},
      {"nested element takes a foreign close", "<A><B></A></B>x</A>", "A", {{"", "<B></A></B>x"}}},
      {"closing tag without >", "<A>1</A", "A", {{"", "1"}}},
      {"any element", "<A>1</A><B/>", "", {{"", "1"}, {"", ""}}},
      {"any element ends at any close", "<A><C/>1</B>2</A>", "", {{"", "<C/>1"}}},
      {"names cut at 35",
       "<ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 x=\"1\"/>",
       "ABCDEFGHIJKLMNOPQRSTUVWXYZ012345678",
       {{"9 x=\"1\"", ""}}},
  };
  for (const auto& c : cases) EXPECT_EQ(FindAll(c.text, c.name), c.expected) << c.what;
}

// Hostile shapes finish and give the documented answer.
TEST(ElementScannerTest, HostileNestingGivesDocumentedResults) {
  std::string unclosed, open, close;
  for (int i = 0; i < 100000; ++i) unclosed += "<SOFTPKG NAME=\"x\">", open += "<A>", close += "</A>";
  auto found = FindAll(unclosed, "SOFTPKG");
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].second.size(), unclosed.size() - 18);
  const std::string deep = open + "<B>leaf</B>" + close;
  EXPECT_EQ(FindAll(deep, "B"), (std::vector<Expected>{{"", "leaf"}}));
  EXPECT_EQ(FindAll(deep, "A").size(), 1u);

  std::string comments(300000, '<');
  for (size_t i = 0; i < comments.size(); i += 5) comments.replace(i, 4, "<!--");
  EXPECT_TRUE(FindAll(comments + "<A/>", "A").empty());
}

// The indexed scanner agrees with a plain recursive reading of the rules, on the
// whole text and one level inside, for random texts built from tricky pieces.
TEST(ElementScannerTest, AgreesWithPlainReadingOnRandomTexts) {
  const char* pieces[] = {"<A>", "</A>", "<B x=\"1\">", "</B>", "<A/>", "<!--", "-->",  "<![CDATA[", "]]>", "<?P?>",
                          ">",   "<",    "/",           "t",    "<1>",  "</>",  "<AB>", "\n",        "</A", "<B"};
  std::mt19937 random(20240607);
  for (int round = 0; round < 3000; ++round) {
    std::string text;
    const int count = static_cast<int>(random() % 24);
    for (int i = 0; i < count; ++i) text += pieces[random() % std::size(pieces)];
    for (std::string_view name : {"", "A", "B", "?P"}) {
      SCOPED_TRACE(text + " / " + std::string(name));
      // A scanner of its own per name, and a new one for each inner search: the
      // scanner reads the text only as far as each search needs.
      ElementScanner scanner(text);
      size_t position = 0;
      std::optional<Element> element;
      while ((element = scanner.Find(scanner.Whole(), position, name))) {
        const auto expected = reference::FindElement(text, position, name);
        ASSERT_TRUE(expected);
        ASSERT_EQ(std::make_tuple(std::string(element->attributes), std::string(element->content), element->next),
                  std::tie(expected->attributes, expected->content, expected->next));
        for (std::string_view inner : {"", "A", "B"}) {
          const auto got = ElementScanner(text).First(element->inside, inner);
          const auto want = reference::FindElement(expected->content, 0, inner);
          ASSERT_EQ(got ? std::string(got->content) : "\x01none", want ? want->content : "\x01none") << inner;
        }
        position = element->next;
      }
      ASSERT_FALSE(reference::FindElement(text, position, name));
    }

    // One walk for several names finds what separate searches find.
    ElementScanner scanner(text);
    std::map<std::string_view, std::vector<std::string_view>> together, apart;
    std::vector<ElementScanner::NamedVisitor> visitors;
    for (std::string_view name : {"A", "B", "?P"}) {
      visitors.emplace_back(name, [&together, name](const Element& e) { together[name].push_back(e.content); });
      scanner.ForEach(scanner.Whole(), name, [&apart, name](const Element& e) { apart[name].push_back(e.content); });
    }
    scanner.ForEachOf(scanner.Whole(), visitors);
    ASSERT_EQ(together, apart) << text;
  }
}
