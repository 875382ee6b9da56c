#include "actions/request_files.h"

#include <memory>
#include <new>

#include "exchange/request_files.h"
#include "exchange/result_codes.h"
#include "ini/ini_codes.h"
#include "ini/ini_document.h"
#include "kx/tal/log.h"

namespace kx::actions {
namespace {

// Write settings shared by every request file: no line length limit, no break
// character, and the file synced to disk before it is closed.
constexpr int32_t kMaxLineLength = -1;
constexpr char kBreakChar = 0;
constexpr uint32_t kWriteOptions = ini::kOptionSync;

// Builds a document with `fill` (true when every key was set) and saves it.
template <typename Fill>
int32_t WriteRequestFile(const std::string& path, Fill fill) {
  try {
    auto document = std::make_unique<ini::Document>();
    document->SetWriteSettings(kMaxLineLength, kBreakChar, kWriteOptions);
    if (!fill(*document)) return exchange::kResultOutOfMemory;
    // Never relative to the working directory: there is no current action then.
    if (path.empty() || path.front() != '/') return exchange::kResultSaveFailed;
    return document->Save(path) < 0 ? exchange::kResultSaveFailed : exchange::kResultOk;
  } catch (const std::bad_alloc&) {
    return exchange::kResultOutOfMemory;
  }
}

bool Set(int result) { return result == ini::kOk; }

}  // namespace

int32_t CreatePostActionIni(const std::string& path, const std::string& webMethod, const std::string& action,
                            uint32_t options, int32_t retval) {
  KX_LOG(tal::logmask::kEntry, "CreatePostActionIni()");
  return WriteRequestFile(path, [&](ini::Document& ini) {
    const char* section = exchange::kPostActionRequest.section;
    return Set(ini.SetInt32(section, exchange::kRetvalKey, retval)) &&
           Set(ini.SetUInt32(section, exchange::kOptionsKey, options)) &&
           Set(ini.SetText(section, exchange::kWebMethodKey, webMethod)) &&
           Set(ini.SetText(section, exchange::kActionKey, action));
  });
}

int32_t CreateGetImageIni(const std::string& path, uint32_t options, const std::string& imagePath,
                          const std::string& blackListPath) {
  KX_LOG(tal::logmask::kEntry, "CreateGetImageIni()");
  return WriteRequestFile(path, [&](ini::Document& ini) {
    const char* section = exchange::kGetImageRequest.section;
    return Set(ini.SetUInt32(section, exchange::kOptionsKey, options)) &&
           Set(ini.SetText(section, exchange::kImagePathKey, imagePath)) &&
           Set(ini.SetText(section, exchange::kBlackListPathKey, blackListPath));
  });
}

int32_t CreateSetImageIni(const std::string& path, uint32_t timeout, uint32_t options, const std::string& localPath,
                          const std::string& blackListPath) {
  KX_LOG(tal::logmask::kEntry, "CreateSetImageIni()");
  return WriteRequestFile(path, [&](ini::Document& ini) {
    const char* section = exchange::kSetImageRequest.section;
    return Set(ini.SetUInt32(section, exchange::kOptionsKey, options)) &&
           Set(ini.SetUInt32(section, exchange::kTimeoutKey, timeout)) &&
           Set(ini.SetText(section, exchange::kLocalPathKey, localPath)) &&
           Set(ini.SetText(section, exchange::kBlackListPathKey, blackListPath));
  });
}

int32_t CreateFormatIni(const std::string& path, uint32_t timeout, uint32_t options) {
  KX_LOG(tal::logmask::kEntry, "CreateFormatIni()");
  return WriteRequestFile(path, [&](ini::Document& ini) {
    const char* section = exchange::kFormatRequest.section;
    return Set(ini.SetUInt32(section, exchange::kOptionsKey, options)) &&
           Set(ini.SetUInt32(section, exchange::kTimeoutKey, timeout));
  });
}

}  // namespace kx::actions
