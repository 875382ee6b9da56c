#pragma once
// A multipart listener that writes the events down as text:
// "[name]" or "[name|file name]", then the part's data, then "]".

#include <string>

#include "host/multipart_parser.h"

namespace kx::test {

struct MultipartRecorder : webhost::MultipartListener {
  std::string events;
  bool OnPartBegin(const webhost::PartInfo& part) override {
    events += "[" + part.name + (part.isFile ? "|" + part.fileName : "") + "]";
    return true;
  }
  bool OnPartData(const char* data, size_t size) override {
    events.append(data, size);
    return true;
  }
  bool OnPartEnd() override {
    events += "]";
    return true;
  }
};

}  // namespace kx::test
