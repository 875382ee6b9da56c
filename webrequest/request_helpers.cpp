#include "webrequest/request_helpers.h"

#include <memory>

#include "kx/tal/exception/exception.h"
#include "kx/tal/log.h"
#include "kx/tal/string_base.h"

namespace kx::webrequest {

using tal::logmask::kEntry;
using tal::logmask::kInfo;

std::wstring GetPostData(uint32_t request) {
  KX_LOG(kEntry, "GetPostData()");
  char buffer[1024];
  uint32_t size = sizeof buffer;
  const int32_t first = ReadPostData_C_REST_VELO_(request, buffer, &size, sizeof buffer);
  if (first == 0 || size == 0) {
    // The host need not terminate the text: take at most what fits.
    const uint32_t length = size < sizeof buffer ? size : static_cast<uint32_t>(sizeof buffer);
    return tal::Utf8ToWide(std::string_view(buffer, first == 0 ? length : 0));
  }
  const uint32_t needed = size;
  std::unique_ptr<char[]> block(new char[needed]);
  if (ReadPostData_C_REST_VELO_(request, block.get(), &size, needed) != 0) return std::wstring();
  return tal::Utf8ToWide(std::string_view(block.get(), size <= needed ? size : needed));
}

std::optional<std::wstring> FindPOSTValue(const KeyValuePairList& form, const std::wstring& name) {
  KX_LOG(kEntry, "GetPOSTValue()");
  const std::string narrowName = tal::WideToUtf8(name);
  for (const KeyValuePair* pair = KeyValuePairList_GetFirst(&form); pair != nullptr; pair = pair->next) {
    if (narrowName == pair->name) return tal::Utf8ToWide(pair->value);
  }
  return std::nullopt;
}

void GetPOSTValue(const KeyValuePairList& form, const std::wstring& name, std::wstring& value) {
  std::optional<std::wstring> found = FindPOSTValue(form, name);
  if (!found) throw tal::exception::InvalidArgument();
  value = std::move(*found);
}

void GetPOSTValue(const KeyValuePairList& form, const std::wstring& name, int32_t& value) {
  std::wstring text;
  GetPOSTValue(form, name, text);
  value = tal::TextToInt32(tal::WideToUtf8(text));
}

void GetPOSTValue(const KeyValuePairList& form, const std::wstring& name, uint32_t& value) {
  std::wstring text;
  GetPOSTValue(form, name, text);
  value = tal::TextToUInt32(tal::WideToUtf8(text));
}

void SetResponseStreamMimeType(int selector, uint32_t request) {
  KX_LOG(kEntry, "SetResponseStreamMimeType()");
  static const char* const kTypes[] = {"text/plain", "text/html", "text/xml", "text/x-json", "application/x-tar"};
  const bool known = selector >= 0 && selector < static_cast<int>(sizeof kTypes / sizeof kTypes[0]);
  SetHTTPResponseMimeType_C_REST_VELO_(request, known ? kTypes[selector] : "text/xml");
}

void ResponseError(uint32_t request, int32_t httpStatus, const std::string& reason) {
  KX_LOG(kEntry, "ResponseError()");
  SetHTTPResponseCode_VELO_(request, httpStatus);
  SetHTTPHeaderNameValue_C_REST_VELO_(request, "Reason-Phrase", reason.c_str());
}

void WriteResultXml(std::string& output, const std::wstring& element, int32_t result, const std::wstring& inner) {
  KX_LOG(kEntry, "WriteResultXml()");
  std::wstring document = L"<?xml version=\"1.0\"?>\n<" + element + L" Result=\"" +
                          tal::IntegerToText(static_cast<int64_t>(result)) + L"\"";
  if (inner.empty()) {
    document += L"/>";
  } else {
    document += L">\n" + inner + L"</" + element + L">";
  }
  output = tal::WideToUtf8(document);
  KX_LOG(kInfo, output);
}

}  // namespace kx::webrequest
