// Fuzz target for the streaming multipart parser. The input is a body (the
// boundary is fixed); the parser must give the same events, the same kept
// text and the same verdict however the body is split into pieces.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "host/multipart_parser.h"
#include "tests/host/multipart_recorder.h"

namespace {

using kx::webhost::MultipartParser;
using Recorder = kx::test::MultipartRecorder;

struct Outcome {
  bool accepted = false;
  std::string events;
  std::string text;
};

// Feeds the body in pieces of `piece` bytes (0: whole).
Outcome Parse(const std::string& body, size_t piece) {
  Recorder recorder;
  MultipartParser parser("xyz", recorder);
  bool fed = true;
  for (size_t at = 0; fed && at < body.size(); at += piece == 0 ? body.size() : piece) {
    const size_t length = piece == 0 ? body.size() : std::min(piece, body.size() - at);
    fed = parser.Feed(body.data() + at, length);
  }
  const bool accepted = fed && parser.Finish();
  return {accepted, recorder.events, accepted ? parser.TextWithoutFiles() : std::string()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string body(reinterpret_cast<const char*>(data), size);
  const Outcome whole = Parse(body, 0);
  for (const size_t piece : {1, 2, 3, 7, 64}) {
    const Outcome split = Parse(body, piece);
    if (split.accepted != whole.accepted ||
        (whole.accepted && (split.events != whole.events || split.text != whole.text))) {
      std::abort();
    }
  }
  return 0;
}
