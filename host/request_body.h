#pragma once
// The form fields, body text and uploaded files of one request, read as the
// body arrives. A multipart form is split as it streams: its text (fields,
// part headers) stays in memory once, file parts go straight to files in the
// upload directory; the fields are taken from that text when the body is
// complete. Any other body is kept whole in memory. Limits are checked on the
// way; the first problem found decides the answer (its status and text). What
// is held in memory is taken from the shared budget; over it, 503.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/memory_budget.h"
#include "host/multipart_parser.h"
#include "host/upload_store.h"
#include "platform/webruntime/web_runtime.h"

namespace kx::webhost {

struct BodyLimits {
  uint64_t maxBody = 0;    // everything received
  uint64_t maxText = 0;    // what is held in memory: all but the content of file parts
  size_t maxFields = 200;  // form fields and file parts together
  size_t maxNameLength = 256;
  MemoryBudget* budget = nullptr;  // shared by all requests; none: no limit
};

class RequestBody : private MultipartListener {
 public:
  // `contentType` is the Content-Type header ("" when absent), `declaredLength`
  // the Content-Length when given. The query-string fields come first in Fields().
  RequestBody(const BodyLimits& limits, const std::string& contentType, std::optional<uint64_t> declaredLength,
              std::vector<webruntime::FormField> queryFields);
  RequestBody(const RequestBody&) = delete;
  RequestBody& operator=(const RequestBody&) = delete;

  void Append(const char* data, size_t size);
  // After the last piece: completes the fields and checks the multipart end.
  void Finish();

  bool Failed() const { return errorStatus_ != 0; }
  int ErrorStatus() const { return errorStatus_; }
  const std::string& ErrorText() const { return errorText_; }
  // A body without a declared length went past the limit: rather than reading
  // on without end, the connection is closed.
  bool MustClose() const { return mustClose_; }

  bool IsMultipart() const { return parser_ != nullptr; }
  // The body for ReadPostData: as received, or for a multipart form, as
  // received without the content of its file parts.
  const std::string& Text() const { return parser_ ? parser_->TextWithoutFiles() : text_; }
  const std::vector<webruntime::FormField>& Fields() const { return fields_; }
  const std::vector<webruntime::StoredUpload>& Uploads() const { return uploads_; }

 private:
  bool OnPartBegin(const PartInfo& part) override;
  bool OnPartData(const char* data, size_t size) override;
  bool OnPartEnd() override;

  bool CheckFields();
  bool TakeMemory(uint64_t bytes);
  bool Fail(int status, const std::string& text);

  const BodyLimits limits_;
  std::unique_ptr<MultipartParser> parser_;
  bool urlEncoded_ = false;
  uint64_t received_ = 0;
  std::string text_;
  MemoryShare memory_;
  std::vector<webruntime::FormField> fields_;
  // Where a multipart text field's value lies in the parser's text, by field.
  struct TextSpan {
    size_t field = 0;
    size_t offset = 0;
    size_t length = 0;
  };
  std::vector<TextSpan> spans_;
  std::vector<webruntime::StoredUpload> uploads_;
  std::vector<std::unique_ptr<UploadFile>> files_;  // beside uploads_, one for one
  size_t droppedParts_ = 0;                         // empty file parts, not handed on
  bool inFilePart_ = false;
  int errorStatus_ = 0;
  std::string errorText_;
  bool mustClose_ = false;
};

}  // namespace kx::webhost
