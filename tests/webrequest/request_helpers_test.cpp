#include "webrequest/request_helpers.h"

#include <gtest/gtest.h>

#include <vector>

#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"

using namespace kx::webrequest;
using kx::webruntime::MemoryRequest;
using kx::webruntime::RequestRegistration;

namespace {
std::wstring BodyOfLength(size_t length, MemoryRequest& request) {
  request.body = std::string(length, 'b');
  RequestRegistration registration(request);
  return GetPostData(registration.Handle());
}
}  // namespace

TEST(GetPostDataTest, ReadsUpTo1024BytesInOneCallAndMoreInTwo) {
  for (const auto& [length, reads] : std::vector<std::pair<size_t, int>>{{0, 1}, {1024, 1}, {1025, 2}, {70000, 2}}) {
    MemoryRequest request;
    EXPECT_EQ(BodyOfLength(length, request), std::wstring(length, L'b')) << length;
    EXPECT_EQ(request.bodyReads, reads) << length;
  }
  EXPECT_EQ(GetPostData(0), L"");  // an unknown request
}

TEST(GetPOSTValueTest, FirstExactMatchWins) {
  KeyValuePairList form;
  form.Add("actionid", "lower");
  form.Add("ActionID", "A1");
  form.Add("ActionID", "A2");
  form.Add("Options", "4294967295");
  form.Add("Timeout", "12abc");
  std::wstring text;
  GetPOSTValue(form, L"ActionID", text);
  EXPECT_EQ(text, L"A1");
  uint32_t options = 0;
  GetPOSTValue(form, L"Options", options);
  EXPECT_EQ(options, 4294967295u);
  int32_t signedOptions = 0;
  EXPECT_THROW(GetPOSTValue(form, L"Options", signedOptions), kx::tal::exception::UnableToConvert);
  EXPECT_THROW(GetPOSTValue(form, L"Timeout", options), kx::tal::exception::UnableToConvert);
  try {
    GetPOSTValue(form, L"CustomLockHolder", text);
    FAIL();
  } catch (const kx::tal::exception::InvalidArgument& e) {
    EXPECT_EQ(e.line(), 0);
    EXPECT_EQ(e.file(), nullptr);
  }
}

TEST(ResponseTest, MimeSelectorsAndErrorReply) {
  const std::vector<std::pair<int, std::string>> selectors = {
      {0, "text/plain"},        {1, "text/html"}, {2, "text/xml"}, {3, "text/x-json"},
      {4, "application/x-tar"}, {7, "text/xml"},  {-1, "text/xml"}};
  for (const auto& [selector, type] : selectors) {
    MemoryRequest request;
    RequestRegistration registration(request);
    SetResponseStreamMimeType(selector, registration.Handle());
    EXPECT_EQ(request.mimeType, type) << selector;
  }
  MemoryRequest request;
  RequestRegistration registration(request);
  ResponseError(registration.Handle(), 404, "not here");
  EXPECT_EQ(request.status, 404);
  EXPECT_EQ(request.Header("Reason-Phrase"), "not here");
  EXPECT_EQ(request.output, "");
}

TEST(WriteResultXmlTest, SignedCodesAndBothForms) {
  std::string output = "old";
  WriteResultXml(output, L"Progress", 0, L"");
  EXPECT_EQ(output, "<?xml version=\"1.0\"?>\n<Progress Result=\"0\"/>");
  WriteResultXml(output, L"Browse", static_cast<int32_t>(0x80004005u), L"");
  EXPECT_EQ(output, "<?xml version=\"1.0\"?>\n<Browse Result=\"-2147467259\"/>");
  WriteResultXml(output, L"INSTALLATION", static_cast<int32_t>(0x80004001u), L"<x/>\n");
  EXPECT_EQ(output, "<?xml version=\"1.0\"?>\n<INSTALLATION Result=\"-2147467263\">\n<x/>\n</INSTALLATION>");
}
