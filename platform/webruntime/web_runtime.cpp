#include "platform/webruntime/web_runtime.h"

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

using kx::webruntime::RequestBackend;

struct UploadedFilesList {
  std::vector<kx::webruntime::StoredUpload> stored;  // owns the texts the entries point into
  std::vector<UploadedFile> entries;
};

namespace {

constexpr int32_t kUnknownRequest = -1;
constexpr int32_t kBadArgument = -2;

struct Registry {
  std::mutex lock;
  // Few requests are live at once (one per server thread): a short list
  // searched in place costs less than a hash node made and freed per request.
  std::vector<std::pair<uint32_t, RequestBackend*>> live;
  uint32_t nextHandle = 1;
};

Registry& TheRegistry() {
  static Registry* registry = new Registry;  // outlives every static that might still run requests
  return *registry;
}

std::vector<std::pair<uint32_t, RequestBackend*>>::iterator FindLive(Registry& registry, uint32_t handle) {
  auto entry = registry.live.begin();
  while (entry != registry.live.end() && entry->first != handle) ++entry;
  return entry;
}

// The plug-in calls back on the thread that registered its request, several
// times per request: the registration made last on this thread answers those
// calls without the registry lock. The entry stands only while the epoch is
// unchanged; a registration that ends on another thread than its own cannot
// clear this thread's entry, so it moves the epoch on instead.
struct ThreadEntry {
  uint32_t handle = 0;
  RequestBackend* backend = nullptr;
  uint64_t epoch = 0;
};
thread_local ThreadEntry tLastRegistered;
std::atomic<uint64_t> gEpoch{0};

RequestBackend* Find(uint32_t handle) {
  const ThreadEntry& last = tLastRegistered;
  if (handle != 0 && last.handle == handle && last.epoch == gEpoch.load(std::memory_order_acquire)) {
    return last.backend;
  }
  Registry& registry = TheRegistry();
  std::lock_guard<std::mutex> guard(registry.lock);
  const auto found = FindLive(registry, handle);
  return found == registry.live.end() ? nullptr : found->second;
}

}  // namespace

namespace kx::webruntime {

RequestRegistration::RequestRegistration(RequestBackend& backend) : backend_(backend) {
  Registry& registry = TheRegistry();
  {
    std::lock_guard<std::mutex> guard(registry.lock);
    do {
      handle_ = registry.nextHandle++;  // 0 is never a handle; skip any still in use after wrapping
    } while (handle_ == 0 || FindLive(registry, handle_) != registry.live.end());
    registry.live.emplace_back(handle_, &backend);
  }
  tLastRegistered = {handle_, &backend, gEpoch.load(std::memory_order_acquire)};
}

RequestRegistration::~RequestRegistration() {
  {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    const auto found = FindLive(registry, handle_);
    if (found != registry.live.end()) {
      *found = registry.live.back();
      registry.live.pop_back();
    }
  }
  // A valid entry of this handle can only be this registration's own.
  const ThreadEntry& last = tLastRegistered;
  if (last.handle == handle_ && last.epoch == gEpoch.load(std::memory_order_acquire)) {
    tLastRegistered = ThreadEntry();
  } else {
    gEpoch.fetch_add(1, std::memory_order_acq_rel);
  }
  for (const StoredUpload& upload : backend_.Uploads()) {
    if (!upload.localPath.empty()) ::unlink(upload.localPath.c_str());
  }
}

}  // namespace kx::webruntime

extern "C" {

int32_t ReadAllFormData_C_REST_VELO_(uint32_t request, KeyValuePairList* list) {
  RequestBackend* backend = Find(request);
  if (backend == nullptr) return kUnknownRequest;
  if (list == nullptr) return kBadArgument;
  for (const auto& field : backend->FormFields()) list->Add(field.name, field.value);
  return 0;
}

int32_t ReadPostData_C_REST_VELO_(uint32_t request, char* buffer, uint32_t* size, uint32_t capacity) {
  RequestBackend* backend = Find(request);
  if (backend == nullptr) return kUnknownRequest;
  if (size == nullptr || (buffer == nullptr && capacity != 0)) return kBadArgument;
  const std::string& body = backend->Body();
  *size = static_cast<uint32_t>(body.size());
  if (body.size() > capacity) return 1;
  // Raw bytes, not text: the caller terminates them if it wants to.
  if (!body.empty()) std::memcpy(buffer, body.data(), body.size());  // NOLINT(bugprone-not-null-terminated-result)
  return 0;
}

int32_t ReadUploadedFilesList_C_REST_VELO_(uint32_t request, UploadedFilesList** list) {
  RequestBackend* backend = Find(request);
  if (backend == nullptr) return kUnknownRequest;
  if (list == nullptr) return kBadArgument;
  *list = nullptr;
  if (!backend->HasUploadList()) return 0;
  auto* made = new UploadedFilesList;
  made->stored = backend->Uploads();
  for (const auto& upload : made->stored) {
    made->entries.push_back(
        {upload.fieldName.c_str(), upload.fileName.c_str(), upload.localPath.c_str(), upload.size, nullptr});
  }
  for (size_t i = 1; i < made->entries.size(); ++i) made->entries[i - 1].next = &made->entries[i];
  *list = made;
  return 0;
}

const UploadedFile* UploadedFilesList_GetFirst(const UploadedFilesList* list) {
  return (list == nullptr || list->entries.empty()) ? nullptr : &list->entries.front();
}

void UploadedFilesList_Release(UploadedFilesList* list) { delete list; }

int32_t WriteOutput_C_REST_VELO_(uint32_t request, const char* data, uint32_t length) {
  RequestBackend* backend = Find(request);
  if (backend == nullptr) return kUnknownRequest;
  if (data == nullptr && length != 0) return kBadArgument;
  backend->Write(data, length);
  return 0;
}

int32_t SetHTTPResponseCode_VELO_(uint32_t request, int32_t status) {
  RequestBackend* backend = Find(request);
  if (backend == nullptr) return kUnknownRequest;
  backend->SetStatus(status);
  return 0;
}

int32_t SetHTTPHeaderNameValue_C_REST_VELO_(uint32_t request, const char* name, const char* value) {
  RequestBackend* backend = Find(request);
  if (backend == nullptr) return kUnknownRequest;
  if (name == nullptr || value == nullptr) return kBadArgument;
  backend->AddHeader(name, value);
  return 0;
}

int32_t SetHTTPResponseMimeType_C_REST_VELO_(uint32_t request, const char* mimeType) {
  RequestBackend* backend = Find(request);
  if (backend == nullptr) return kUnknownRequest;
  if (mimeType == nullptr) return kBadArgument;
  backend->SetMimeType(mimeType);
  return 0;
}

}  // extern "C"
