#pragma once
// Reading a request and shaping its reply, on top of the host web runtime.
// Every handler answers the same way: an XML document whose one element carries
// a Result attribute.

#include <cstdint>
#include <optional>
#include <string>

#include "platform/webruntime/web_runtime.h"

namespace kx::webrequest {

// Every web method: (form values, request handle, output text, HTTP status —
// 200 on entry, used only on failure —, restart flag — false on entry —) →
// COM-style result code, negative on failure.
using WebMethodHandler = int32_t (*)(const KeyValuePairList& form, uint32_t request, std::string& output,
                                     int32_t& httpStatus, bool& restart);

// The raw POST body: one 1024-byte read, and a second read of exactly the size
// needed when the body is longer. A failed second read gives "".
std::wstring GetPostData(uint32_t request);

// The first form value of that name (exact, case-sensitive). A missing name
// throws InvalidArgument (no location); the integer variants throw
// UnableToConvert for text that is not a base-10 number of their range.
void GetPOSTValue(const KeyValuePairList& form, const std::wstring& name, std::wstring& value);
// The same for an optional field: nothing when it is absent.
std::optional<std::wstring> FindPOSTValue(const KeyValuePairList& form, const std::wstring& name);
void GetPOSTValue(const KeyValuePairList& form, const std::wstring& name, int32_t& value);
void GetPOSTValue(const KeyValuePairList& form, const std::wstring& name, uint32_t& value);

// MIME type by selector: 0 text/plain, 1 text/html, 2 text/xml, 3 text/x-json,
// 4 application/x-tar, anything else text/xml.
namespace mime {
constexpr int kPlain = 0;
constexpr int kHtml = 1;
constexpr int kXml = 2;
constexpr int kJson = 3;
constexpr int kTar = 4;
}  // namespace mime
void SetResponseStreamMimeType(int selector, uint32_t request);

// Failed reply: the status and a "Reason-Phrase" header, no body.
void ResponseError(uint32_t request, int32_t httpStatus, const std::string& reason);

// "<?xml version=\"1.0\"?>\n<Element Result=\"<signed decimal>\"" followed by
// "/>" when inner is empty, else ">\n" + inner + "</Element>". Replaces output.
void WriteResultXml(std::string& output, const std::wstring& element, int32_t result, const std::wstring& inner);

}  // namespace kx::webrequest
