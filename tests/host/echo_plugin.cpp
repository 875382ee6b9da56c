// A stand-in plug-in for the host tests: it reports back what the host handed
// it through the web runtime, so the tests see the handover itself.
//
// Reply (text/plain): "method=<name>", one "field <name>=<value>" line per form
// field in order, "uploads=none" or "uploads=<n>" and one
// "upload <field>|<file name>|<size>|<local path>" line each, then "body:" and
// the raw body. Fields that steer it: "status" and "reason" set the reply's
// status and Reason-Phrase; "moveTo" renames the first upload to that path
// below the system root. orlaInit and orlaFinalize leave marker files in the root.

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "platform/webruntime/web_runtime.h"

#define ECHO_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

std::string Root() { return std::getenv("KX_SYSTEM_ROOT"); }

void Mark(const std::string& name) { std::ofstream(Root() + "/" + name) << Root(); }

std::string ReadBody(uint32_t handle) {
  uint32_t size = 0;
  char none = 0;
  if (ReadPostData_C_REST_VELO_(handle, &none, &size, 0) == 0) return std::string();
  std::string body(size, '\0');
  ReadPostData_C_REST_VELO_(handle, body.data(), &size, size);
  return body;
}

}  // namespace

ECHO_EXPORT void orlaInit() { Mark("echo-init"); }
ECHO_EXPORT void orlaFinalize() { Mark("echo-finalized"); }
ECHO_EXPORT int32_t orlaPause(int32_t value) { return value; }
ECHO_EXPORT int32_t orlaResume(int32_t value) { return value; }

ECHO_EXPORT void orlaRun(kx::webruntime::WebRequest* request, uint32_t handle) {
  std::string reply = std::string("method=") + request->MethodName() + "\n";
  KeyValuePairList form;
  ReadAllFormData_C_REST_VELO_(handle, &form);
  std::string moveTo;
  for (const KeyValuePair* field = KeyValuePairList_GetFirst(&form); field; field = field->next) {
    reply += std::string("field ") + field->name + "=" + field->value + "\n";
    const std::string name = field->name;
    if (name == "status") SetHTTPResponseCode_VELO_(handle, std::atoi(field->value));
    if (name == "reason") SetHTTPHeaderNameValue_C_REST_VELO_(handle, "Reason-Phrase", field->value);
    if (name == "moveTo") moveTo = Root() + "/" + field->value;
  }
  UploadedFilesList* uploads = nullptr;
  ReadUploadedFilesList_C_REST_VELO_(handle, &uploads);
  std::vector<const UploadedFile*> files;
  for (const UploadedFile* file = UploadedFilesList_GetFirst(uploads); file; file = file->next) files.push_back(file);
  reply += uploads == nullptr ? "uploads=none\n" : "uploads=" + std::to_string(files.size()) + "\n";
  for (const UploadedFile* file : files) {
    reply += std::string("upload ") + file->fieldName + "|" + file->fileName + "|" + std::to_string(file->size) + "|" +
             file->localPath + "\n";
  }
  if (!moveTo.empty() && !files.empty()) std::rename(files.front()->localPath, moveTo.c_str());
  UploadedFilesList_Release(uploads);
  reply += "body:" + ReadBody(handle);
  SetHTTPResponseMimeType_C_REST_VELO_(handle, "text/plain");
  WriteOutput_C_REST_VELO_(handle, reply.data(), static_cast<uint32_t>(reply.size()));
}
