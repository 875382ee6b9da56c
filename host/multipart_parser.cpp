#include "host/multipart_parser.h"

#include <algorithm>
#include <optional>

#include "host/header_value.h"

namespace kx::webhost {
namespace {

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// The part's name and file name from its header lines; nullopt when a line is
// not a header or there is no form-data Content-Disposition with a name.
std::optional<PartInfo> ParsePartHeaders(std::string_view block) {
  std::optional<PartInfo> part;
  while (!block.empty()) {
    const size_t end = block.find("\r\n");
    const std::string_view line = block.substr(0, end);
    block = end == std::string_view::npos ? std::string_view() : block.substr(end + 2);
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    if (part || ToLower(Trim(line.substr(0, colon))) != "content-disposition") continue;
    const std::optional<HeaderValue> value = ParseHeaderValue(line.substr(colon + 1));
    if (!value || value->token != "form-data") return std::nullopt;
    const std::optional<std::string> name = value->Parameter("name");
    if (!name) return std::nullopt;
    const std::optional<std::string> fileName = value->Parameter("filename");
    part = PartInfo{*name, fileName.value_or(std::string()), fileName.has_value()};
  }
  return part;
}

}  // namespace

MultipartParser::MultipartParser(const std::string& boundary, MultipartListener& listener)
    : listener_(listener), delimiter_("\r\n--" + boundary) {}

bool MultipartParser::IsValidBoundary(const std::string& boundary) {
  static const std::string kAllowed = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ'()+_,-./:=? ";
  return !boundary.empty() && boundary.size() <= 70 && boundary.back() != ' ' &&
         boundary.find_first_not_of(kAllowed) == std::string::npos;
}

bool MultipartParser::Feed(const char* data, size_t size) {
  if (state_ == State::kFailed) return false;
  if (state_ == State::kDone) return true;  // the epilogue is ignored
  pending_.append(data, size);
  while (state_ != State::kFailed && state_ != State::kDone && Step()) {
  }
  pending_.erase(0, consumed_);
  consumed_ = 0;
  return state_ != State::kFailed;
}

bool MultipartParser::Finish() {
  if (state_ == State::kDone) return true;
  if (state_ != State::kFailed) Fail("the multipart body ends before its closing delimiter");
  return false;
}

bool MultipartParser::Step() {
  switch (state_) {
    case State::kStart:
      return StepStart();
    case State::kPreamble:
    case State::kBody:
      return StepSearch();
    case State::kAfterDelimiter:
      return StepAfterDelimiter();
    case State::kHeaders:
      return StepHeaders();
    case State::kDone:
    case State::kFailed:
      break;
  }
  return false;
}

// The body normally starts with the first delimiter; anything else is a preamble.
bool MultipartParser::StepStart() {
  const size_t dashBoundaryLength = delimiter_.size() - 2;
  const size_t available = pending_.size() - consumed_;
  const size_t compared = available < dashBoundaryLength ? available : dashBoundaryLength;
  if (pending_.compare(consumed_, compared, delimiter_, 2, compared) != 0) {
    state_ = State::kPreamble;
    return true;
  }
  if (compared < dashBoundaryLength) return false;
  Keep(consumed_, dashBoundaryLength);
  consumed_ += dashBoundaryLength;
  state_ = State::kAfterDelimiter;
  return true;
}

// Passes on the data before the next delimiter. Without a delimiter in sight,
// the last bytes are held back: they may be the start of one.
bool MultipartParser::StepSearch() {
  const size_t found = pending_.find(delimiter_, consumed_);
  size_t dataEnd = found;
  if (found == std::string::npos) {
    const size_t safe = pending_.size() - consumed_;
    dataEnd = safe >= delimiter_.size() ? pending_.size() - (delimiter_.size() - 1) : consumed_;
  }
  if (dataEnd > consumed_) {
    const size_t length = dataEnd - consumed_;
    if (state_ == State::kPreamble || !partIsFile_) Keep(consumed_, length);
    if (state_ == State::kBody && !listener_.OnPartData(pending_.data() + consumed_, length)) return Fail("");
    consumed_ = dataEnd;
  }
  if (found == std::string::npos) return false;
  if (state_ == State::kBody && !listener_.OnPartEnd()) return Fail("");
  Keep(consumed_, delimiter_.size());
  consumed_ += delimiter_.size();
  state_ = State::kAfterDelimiter;
  return true;
}

// After a delimiter: "--" closes the body; otherwise optional blanks and the
// line end before the part's headers.
bool MultipartParser::StepAfterDelimiter() {
  while (pending_.size() - consumed_ >= 1 && (pending_[consumed_] == ' ' || pending_[consumed_] == '\t')) {
    Keep(consumed_++, 1);
  }
  if (pending_.size() - consumed_ < 2) return false;
  if (pending_.compare(consumed_, 2, "--") == 0) {
    Keep(consumed_, 2);
    consumed_ += 2;
    state_ = State::kDone;
    return true;
  }
  if (pending_.compare(consumed_, 2, "\r\n") != 0) return Fail("a multipart delimiter is not followed by a line end");
  state_ = State::kHeaders;  // the line end is taken with the headers
  return true;
}

bool MultipartParser::StepHeaders() {
  const size_t end = pending_.find("\r\n\r\n", consumed_);
  // Without the blank line in sight, the last 3 bytes may be its start: they
  // are not counted, so that where the body is split never changes the answer.
  const size_t available = pending_.size() - consumed_;
  const size_t headerLength = end != std::string::npos ? end - consumed_ : available - std::min<size_t>(available, 3);
  if (headerLength > kMaxPartHeaderSize) return Fail("a multipart part header is too long");
  if (end == std::string::npos) return false;
  const std::string_view block =
      end == consumed_ ? std::string_view() : std::string_view(pending_).substr(consumed_ + 2, end - consumed_ - 2);
  const std::optional<PartInfo> part = ParsePartHeaders(block);
  if (!part) return Fail("a multipart part has no form-data Content-Disposition with a name");
  Keep(consumed_, end + 4 - consumed_);
  consumed_ = end + 4;
  partIsFile_ = part->isFile;
  state_ = State::kBody;
  return listener_.OnPartBegin(*part) || Fail("");
}

bool MultipartParser::Fail(const std::string& reason) {
  state_ = State::kFailed;
  error_ = reason;
  return false;
}

}  // namespace kx::webhost
