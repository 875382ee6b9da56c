#pragma once
// The host web runtime API that the plug-in calls. A host (the HTTP server, or a
// test) implements RequestBackend for each request, registers it to get an
// opaque 32-bit handle, and hands that handle and a WebRequest to orlaRun. Every
// C function takes the handle first; an unknown handle makes it fail with a
// negative result.

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

#define KX_WEBRUNTIME_API __attribute__((visibility("default")))

// One form field; the list is walked from KeyValuePairList_GetFirst along next.
struct KeyValuePair {
  const char* name;
  const char* value;
  const KeyValuePair* next;
};

// The form fields of a request, in the order the client sent them.
class KX_WEBRUNTIME_API KeyValuePairList {
 public:
  KeyValuePairList();
  ~KeyValuePairList();
  KeyValuePairList(const KeyValuePairList&) = delete;
  KeyValuePairList& operator=(const KeyValuePairList&) = delete;

  void Add(const std::string& name, const std::string& value);
  void Clear();
  const KeyValuePair* First() const;

 private:
  struct Node;
  std::list<Node> nodes_;  // one allocation per field; nodes never move
};

// One uploaded file, stored by the host in a local file; the list is walked from
// UploadedFilesList_GetFirst along next.
struct UploadedFile {
  const char* fieldName;
  const char* fileName;   // the name the client gave
  const char* localPath;  // where the host stored the content
  uint64_t size;
  const UploadedFile* next;
};
struct UploadedFilesList;

namespace kx::webruntime {

struct FormField {
  std::string name;
  std::string value;
};

struct StoredUpload {
  std::string fieldName;
  std::string fileName;
  std::string localPath;
  uint64_t size = 0;
};

// What the host provides for one request.
class RequestBackend {
 public:
  virtual ~RequestBackend() = default;
  virtual const std::vector<FormField>& FormFields() const = 0;
  virtual const std::string& Body() const = 0;
  // True when the request carried a file-upload form (even one without files).
  virtual bool HasUploadList() const = 0;
  virtual const std::vector<StoredUpload>& Uploads() const = 0;

  virtual void SetStatus(int status) = 0;
  virtual void AddHeader(const std::string& name, const std::string& value) = 0;
  virtual void SetMimeType(const std::string& mimeType) = 0;
  virtual void Write(const char* data, size_t length) = 0;
};

// Makes a backend reachable by handle for the lifetime of this object. When the
// request ends, uploaded files that are still at their stored path are deleted.
class KX_WEBRUNTIME_API RequestRegistration {
 public:
  explicit RequestRegistration(RequestBackend& backend);
  ~RequestRegistration();
  RequestRegistration(const RequestRegistration&) = delete;
  RequestRegistration& operator=(const RequestRegistration&) = delete;

  uint32_t Handle() const { return handle_; }

 private:
  RequestBackend& backend_;
  uint32_t handle_;
};

// The request object handed to orlaRun. The plug-in reaches the method name
// through the fourth virtual-table entry (after the two destructor entries and
// Uri), so the order of these virtual functions must not change.
class KX_WEBRUNTIME_API WebRequest {
 public:
  WebRequest(std::string uri, std::string methodName);
  virtual ~WebRequest();
  virtual const char* Uri() const;
  virtual const char* MethodName() const;

 private:
  std::string uri_;
  std::string methodName_;
};

// A request held in memory, for tests and benchmarks.
class KX_WEBRUNTIME_API MemoryRequest : public RequestBackend {
 public:
  // Input.
  std::vector<FormField> form;
  std::string body;
  bool uploadList = false;
  std::vector<StoredUpload> uploads;
  // Output.
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string mimeType;
  std::string output;
  mutable int bodyReads = 0;  // how often the plug-in asked for the body

  const std::vector<FormField>& FormFields() const override { return form; }
  const std::string& Body() const override;
  bool HasUploadList() const override { return uploadList; }
  const std::vector<StoredUpload>& Uploads() const override { return uploads; }
  void SetStatus(int code) override { status = code; }
  void AddHeader(const std::string& name, const std::string& value) override;
  void SetMimeType(const std::string& type) override { mimeType = type; }
  void Write(const char* data, size_t length) override { output.append(data, length); }

  // The value of the first header of that name, or "" when absent.
  std::string Header(const std::string& name) const;
};

}  // namespace kx::webruntime

extern "C" {
KX_WEBRUNTIME_API const KeyValuePair* KeyValuePairList_GetFirst(const KeyValuePairList* list);

// Fills the list with the request's form fields. 0, or negative on failure.
KX_WEBRUNTIME_API int32_t ReadAllFormData_C_REST_VELO_(uint32_t request, KeyValuePairList* list);

// Copies the raw body into buffer when it fits in capacity: returns 0 and sets
// *size to its length. Otherwise copies nothing, sets *size to the length needed
// and returns 1. Negative on failure.
KX_WEBRUNTIME_API int32_t ReadPostData_C_REST_VELO_(uint32_t request, char* buffer, uint32_t* size, uint32_t capacity);

// Sets *list to the uploaded files of a file-upload form, or to null when the
// request carried none. 0, or negative on failure.
KX_WEBRUNTIME_API int32_t ReadUploadedFilesList_C_REST_VELO_(uint32_t request, UploadedFilesList** list);
KX_WEBRUNTIME_API const UploadedFile* UploadedFilesList_GetFirst(const UploadedFilesList* list);
KX_WEBRUNTIME_API void UploadedFilesList_Release(UploadedFilesList* list);

KX_WEBRUNTIME_API int32_t WriteOutput_C_REST_VELO_(uint32_t request, const char* data, uint32_t length);
KX_WEBRUNTIME_API int32_t SetHTTPResponseCode_VELO_(uint32_t request, int32_t status);
KX_WEBRUNTIME_API int32_t SetHTTPHeaderNameValue_C_REST_VELO_(uint32_t request, const char* name, const char* value);
KX_WEBRUNTIME_API int32_t SetHTTPResponseMimeType_C_REST_VELO_(uint32_t request, const char* mimeType);
}
