// The streaming multipart splitter and the small text parsers under it.

#include "host/multipart_parser.h"

#include <gtest/gtest.h>

#include "host/header_value.h"
#include "host/url_encoded_form.h"
#include "tests/host/multipart_recorder.h"

namespace {

using kx::webhost::MultipartParser;
using Recorder = kx::test::MultipartRecorder;

const std::string kBody =
    "--b0undary \r\n"
    "Content-Disposition: form-data; name=\"command\"\r\n\r\n"
    "<WSACTIONCOMMAND NAME=\"A1\"/>\r\n"
    "--b0undary\r\n"
    "content-type: application/xml\r\n"
    "CONTENT-DISPOSITION: form-data; name=\"f\"; filename=\"a \\\"b\\\";c.cdf\"\r\n\r\n"
    "line\r\n--b0undar\r\n-b0undary--\r\n"
    "--b0undary--\r\nepilogue";

TEST(MultipartParser, SameEventsWhereverTheBodyIsSplit) {
  const std::string expected =
      "[command]<WSACTIONCOMMAND NAME=\"A1\"/>][f|a \"b\";c.cdf]line\r\n--b0undar\r\n-b0undary--]";
  // The kept text is the body up to the closing delimiter without the file's content.
  const std::string text = kBody.substr(0, kBody.find("line")) + "\r\n--b0undary--";
  for (size_t split = 0; split <= kBody.size(); ++split) {  // byte by byte up to there, then the rest
    Recorder recorder;
    MultipartParser parser("b0undary", recorder);
    for (size_t i = 0; i < split; ++i) ASSERT_TRUE(parser.Feed(&kBody[i], 1));
    ASSERT_TRUE(parser.Feed(kBody.data() + split, kBody.size() - split));
    ASSERT_TRUE(parser.Finish()) << split;
    EXPECT_EQ(recorder.events, expected) << "split at " << split;
    EXPECT_EQ(parser.TextWithoutFiles(), text) << "split at " << split;
  }
}

// A part header just within the limit and one just over it: the same answer
// however the body is split into two pieces around the header's end.
TEST(MultipartParser, HeaderLimitDoesNotDependOnTheSplit) {
  for (const size_t over : {0, 1}) {
    const std::string prefix = "\r\nContent-Disposition: form-data; name=\"";
    const size_t nameLength = MultipartParser::kMaxPartHeaderSize + over - prefix.size() - 1;
    const std::string body = "--x" + prefix + std::string(nameLength, 'n') + "\"\r\n\r\n1\r\n--x--";
    const size_t headerEnd = body.find("\r\n\r\n");
    for (size_t split = headerEnd - 8; split <= headerEnd + 8; ++split) {
      Recorder recorder;
      MultipartParser parser("x", recorder);
      const bool accepted =
          parser.Feed(body.data(), split) && parser.Feed(body.data() + split, body.size() - split) && parser.Finish();
      ASSERT_EQ(accepted, over == 0) << "split at " << split;
    }
  }
}

TEST(MultipartParser, PreambleIsSkippedAndAnEmptyFormIsValid) {
  Recorder recorder;
  MultipartParser parser("x", recorder);
  const std::string body = "preamble\r\n--x\r\nContent-Disposition: form-data; name=a\r\n\r\n1\r\n--x--";
  EXPECT_TRUE(parser.Feed(body.data(), body.size()) && parser.Finish());
  EXPECT_EQ(recorder.events, "[a]1]");
  Recorder none;
  MultipartParser empty("x", none);
  EXPECT_TRUE(empty.Feed("--x--", 5) && empty.Finish());
}

TEST(MultipartParser, MalformedBodiesAreRefused) {
  const std::string header = "Content-Disposition: form-data; name=\"a\"\r\n\r\n";
  const std::string cases[] = {
      "--x\r\n" + header + "value",                             // no closing delimiter
      "--x\r\n" + header + "1\r\n--xy\r\n" + header + "2\r\n",  // a longer boundary is not this one
      "--x\r\n" + header + "1\r\n--x!!",                        // junk after a delimiter
      "--x\r\nContent-Type: text/plain\r\n\r\n1\r\n--x--",      // no Content-Disposition
      "--x\r\nContent-Disposition: attachment; name=a\r\n\r\n1\r\n--x--",
      "--x\r\nContent-Disposition: form-data\r\n\r\n1\r\n--x--",  // no name
      "--x\r\nno colon\r\n\r\n1\r\n--x--",
      "--x\r\nContent-Disposition: form-data; name=\"" + std::string(9000, 'n') + "\"\r\n\r\n1\r\n--x--",
      "nothing like a multipart body",
  };
  for (const std::string& body : cases) {
    Recorder recorder;
    MultipartParser parser("x", recorder);
    EXPECT_FALSE(parser.Feed(body.data(), body.size()) && parser.Finish()) << body.substr(0, 80);
    EXPECT_FALSE(parser.Error().empty());
  }
  for (const std::string& boundary : std::vector<std::string>{"", "a\r\nb", std::string(71, 'b')}) {
    EXPECT_FALSE(MultipartParser::IsValidBoundary(boundary)) << boundary;
  }
  EXPECT_TRUE(MultipartParser::IsValidBoundary(std::string(70, 'b')));
}

TEST(HeaderValue, TokenAndParameters) {
  const auto type = kx::webhost::ParseHeaderValue(" Multipart/Form-Data ; Boundary=\"a;b\" ; charset=utf-8;");
  ASSERT_TRUE(type);
  EXPECT_EQ(type->token, "multipart/form-data");
  EXPECT_EQ(type->Parameter("boundary"), "a;b");
  EXPECT_EQ(type->Parameter("charset"), "utf-8");
  for (const char* bad : {"form-data; name=\"open", "form-data; name", "; name=a"}) {
    EXPECT_FALSE(kx::webhost::ParseHeaderValue(bad)) << bad;
  }
}

TEST(UrlEncodedForm, DecodesInOrderAndKeepsBareNames) {
  std::vector<kx::webruntime::FormField> fields;
  kx::webhost::ParseUrlEncoded("a=1&&b&c=x+y%2Bz%&d=%4", fields);
  ASSERT_EQ(fields.size(), 4u);
  EXPECT_EQ(fields[1].name, "b");
  EXPECT_EQ(fields[1].value, "");
  EXPECT_EQ(fields[2].value, "x y+z%");
  EXPECT_EQ(fields[3].value, "%4");
}

}  // namespace
