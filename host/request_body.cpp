#include "host/request_body.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "exchange/paths.h"
#include "host/header_value.h"
#include "host/url_encoded_form.h"

namespace kx::webhost {
namespace {

constexpr int kBadRequest = 400;
constexpr int kTooLarge = 413;
constexpr int kServerError = 500;
constexpr int kInsufficientStorage = 507;
constexpr int kBusy = 503;

}  // namespace

RequestBody::RequestBody(const BodyLimits& limits, const std::string& contentType,
                         std::optional<uint64_t> declaredLength, std::vector<webruntime::FormField> queryFields)
    : limits_(limits), memory_(limits.budget), fields_(std::move(queryFields)) {
  if (!CheckFields()) return;
  const std::optional<HeaderValue> type = ParseHeaderValue(contentType);
  const std::string mediaType = type ? type->token : std::string();
  if (mediaType == "multipart/form-data") {
    const std::string boundary = type->Parameter("boundary").value_or(std::string());
    if (!MultipartParser::IsValidBoundary(boundary)) {
      Fail(kBadRequest, "multipart/form-data needs a boundary of 1 to 70 characters");
      return;
    }
    MultipartListener& listener = *this;
    parser_ = std::make_unique<MultipartParser>(boundary, listener);
  }
  urlEncoded_ = mediaType == "application/x-www-form-urlencoded";
  const uint64_t limit = parser_ ? limits_.maxBody : std::min(limits_.maxBody, limits_.maxText);
  if (declaredLength && *declaredLength > limit) {
    Fail(kTooLarge, "the request body is too large");
  } else if (declaredLength && !parser_ && TakeMemory(*declaredLength)) {
    text_.reserve(*declaredLength);  // grown once, not by doubling
  }
}

void RequestBody::Append(const char* data, size_t size) {
  received_ += size;
  if (received_ > limits_.maxBody) {
    // Only without a declared length: that length was checked first.
    if (!Failed()) Fail(kTooLarge, "the request body is too large");
    mustClose_ = true;
  }
  if (Failed()) return;  // the rest is read and dropped, then the error answered
  if (parser_) {
    if (!parser_->Feed(data, size) && !Failed()) Fail(kBadRequest, parser_->Error());
  } else {
    text_.append(data, size);
  }
  if (!Failed() && Text().size() > limits_.maxText) Fail(kTooLarge, "the request body is too large");
  if (!Failed()) TakeMemory(Text().capacity());
}

void RequestBody::Finish() {
  if (Failed()) return;
  if (parser_) {
    if (!parser_->Finish() && !Failed()) Fail(kBadRequest, parser_->Error());
    for (const TextSpan& span : spans_) fields_[span.field].value = Text().substr(span.offset, span.length);
  } else if (urlEncoded_) {
    ParseUrlEncoded(text_, fields_);
  }
  if (!Failed()) CheckFields();
}

// Empty file parts that were dropped count too: each cost a file.
bool RequestBody::CheckFields() {
  if (fields_.size() + uploads_.size() + droppedParts_ > limits_.maxFields) {
    return Fail(kBadRequest, "too many form fields");
  }
  for (const auto& field : fields_) {
    if (field.name.size() > limits_.maxNameLength) return Fail(kBadRequest, "a form field name is too long");
    // A value cut at the NUL would be taken for another one.
    if (field.name.find('\0') != std::string::npos || field.value.find('\0') != std::string::npos) {
      return Fail(kBadRequest, "a form field holds a NUL byte");
    }
  }
  return true;
}

bool RequestBody::OnPartBegin(const PartInfo& part) {
  if (part.isFile) {
    try {
      files_.push_back(std::make_unique<UploadFile>(exchange::UploadDirectory()));
    } catch (const std::system_error&) {
      return Fail(kServerError, "the upload cannot be stored");
    }
    uploads_.push_back({part.name, part.fileName, files_.back()->Path(), 0});
  } else {
    fields_.push_back({part.name, std::string()});
    spans_.push_back({fields_.size() - 1, Text().size(), 0});  // the value follows the part's headers
  }
  inFilePart_ = part.isFile;
  if (part.name.size() > limits_.maxNameLength) return Fail(kBadRequest, "a form field name is too long");
  return CheckFields();
}

bool RequestBody::OnPartData(const char* data, size_t size) {
  if (!inFilePart_) {
    spans_.back().length += size;  // the parser keeps the value's bytes in its text
    return true;
  }
  if (files_.back()->Write(data, size)) return true;
  return Fail(errno == ENOSPC ? kInsufficientStorage : kServerError, "the upload cannot be stored");
}

bool RequestBody::OnPartEnd() {
  if (!inFilePart_) return true;
  UploadFile& file = *files_.back();
  if (!file.Close()) return Fail(kServerError, "the upload cannot be stored");
  uploads_.back().size = file.Size();
  // A file input that a browser leaves empty sends no name and no content.
  if (uploads_.back().fileName.empty() && file.Size() == 0) {
    uploads_.pop_back();
    files_.pop_back();
    ++droppedParts_;
  }
  return true;
}

bool RequestBody::TakeMemory(uint64_t bytes) {
  return memory_.GrowTo(bytes) || Fail(kBusy, "the server holds too many request bodies: try again later");
}

bool RequestBody::Fail(int status, const std::string& text) {
  errorStatus_ = status;
  errorText_ = text;
  return false;
}

}  // namespace kx::webhost
