#include "platform/webruntime/web_runtime.h"

namespace kx::webruntime {

WebRequest::WebRequest(std::string uri, std::string methodName)
    : uri_(std::move(uri)), methodName_(std::move(methodName)) {}
WebRequest::~WebRequest() = default;
const char* WebRequest::Uri() const { return uri_.c_str(); }
const char* WebRequest::MethodName() const { return methodName_.c_str(); }

const std::string& MemoryRequest::Body() const {
  ++bodyReads;
  return body;
}

void MemoryRequest::AddHeader(const std::string& name, const std::string& value) { headers.emplace_back(name, value); }

std::string MemoryRequest::Header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (key == name) return value;
  }
  return std::string();
}

}  // namespace kx::webruntime
