#pragma once
// One HTTP request as the web runtime sees it: what the client sent, and the
// reply the plug-in builds through the runtime functions.

#include <string>
#include <utility>
#include <vector>

#include "host/audit_log.h"
#include "host/request_body.h"
#include "platform/webruntime/web_runtime.h"

namespace kx::webhost {

struct Reply {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string mimeType;
  std::string content;
};

class HostRequest : public webruntime::RequestBackend {
 public:
  HostRequest(std::string uri, std::string methodName, const BodyLimits& limits, const std::string& contentType,
              std::optional<uint64_t> declaredLength, std::vector<webruntime::FormField> queryFields)
      : uri_(std::move(uri)),
        methodName_(std::move(methodName)),
        input_(limits, contentType, declaredLength, std::move(queryFields)) {}

  // Reading the body; waiting for a worker to call the plug-in; the reply is ready.
  enum class Stage { kReading, kWaiting, kAnswered };
  Stage CurrentStage() const { return stage_; }
  void MoveTo(Stage stage) { stage_ = stage; }
  // The host's own answer in place of the plug-in's.
  void Refuse(int status, const std::string& text) { reply_ = Reply{status, {}, "text/plain", text}; }

  const std::string& Uri() const { return uri_; }
  const std::string& MethodName() const { return methodName_; }
  RequestBody& Input() { return input_; }
  AuditSubject& Subject() { return subject_; }
  const Reply& Answer() const { return reply_; }

  const std::vector<webruntime::FormField>& FormFields() const override { return input_.Fields(); }
  const std::string& Body() const override { return input_.Text(); }
  bool HasUploadList() const override { return input_.IsMultipart(); }
  const std::vector<webruntime::StoredUpload>& Uploads() const override { return input_.Uploads(); }

  void SetStatus(int status) override { reply_.status = status; }
  void AddHeader(const std::string& name, const std::string& value) override {
    reply_.headers.emplace_back(name, value);
  }
  void SetMimeType(const std::string& mimeType) override { reply_.mimeType = mimeType; }
  void Write(const char* data, size_t length) override { reply_.content.append(data, length); }

 private:
  const std::string uri_;
  const std::string methodName_;
  RequestBody input_;
  AuditSubject subject_;
  Stage stage_ = Stage::kReading;
  Reply reply_;
};

}  // namespace kx::webhost
