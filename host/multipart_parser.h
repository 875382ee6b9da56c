#pragma once
// Splits a multipart/form-data body as it arrives in pieces. Each part is
// reported to a listener as it streams by, so a file part is never held whole
// in memory.

#include <cstddef>
#include <string>

namespace kx::webhost {

struct PartInfo {
  std::string name;
  std::string fileName;  // as the client gave it
  bool isFile = false;   // the part had a filename parameter
};

class MultipartListener {
 public:
  virtual ~MultipartListener() = default;
  // Each returns false to stop the parser; the listener keeps its own reason.
  virtual bool OnPartBegin(const PartInfo& part) = 0;
  virtual bool OnPartData(const char* data, size_t size) = 0;
  virtual bool OnPartEnd() = 0;
};

class MultipartParser {
 public:
  static constexpr size_t kMaxPartHeaderSize = 8192;

  // The boundary parameter of the Content-Type (1 to 70 characters; checked by
  // the caller with IsValidBoundary).
  MultipartParser(const std::string& boundary, MultipartListener& listener);

  // Returns false once the body is malformed or the listener stopped.
  bool Feed(const char* data, size_t size);
  // At the end of the body: false unless the closing delimiter has been seen.
  bool Finish();

  // The body as received up to its closing delimiter, without the content of
  // file parts: text fields, part headers and delimiters.
  const std::string& TextWithoutFiles() const { return text_; }
  // Why parsing failed; empty when the listener stopped it.
  const std::string& Error() const { return error_; }

  static bool IsValidBoundary(const std::string& boundary);

 private:
  enum class State { kStart, kPreamble, kAfterDelimiter, kHeaders, kBody, kDone, kFailed };

  bool Step();  // consumes what it can of pending_; false when it needs more input
  bool StepStart();
  bool StepSearch();
  bool StepAfterDelimiter();
  bool StepHeaders();
  bool Fail(const std::string& reason);
  void Keep(size_t from, size_t length) { text_.append(pending_, from, length); }

  MultipartListener& listener_;
  const std::string delimiter_;  // "\r\n--" + boundary
  State state_ = State::kStart;
  bool partIsFile_ = false;
  std::string pending_;  // received, not yet consumed from offset consumed_
  size_t consumed_ = 0;
  std::string text_;
  std::string error_;
};

}  // namespace kx::webhost
