#pragma once
// The request files that hand an action to the installation daemon: one-section
// INI documents, keys in a fixed order, saved whole.
//
// Values are written as given. A value the file cannot carry unchanged (one
// holding a line feed, carriage return or NUL) is refused: the writer returns
// 0x8007000E and writes nothing, so no value can add a key or a section when
// the daemon reads the file. Any other text, "[" and "=" included, stays part
// of its value.
//
// Each writer returns 0, 0x8007000E when the document cannot be made or filled,
// or 0x80041CF0 when it cannot be saved (also for an empty or relative path).

#include <cstdint>
#include <string>

namespace kx::actions {

// "PostAction": Retval, Options, WebMethod, Action.
[[nodiscard]] int32_t CreatePostActionIni(const std::string& path, const std::string& webMethod,
                                          const std::string& action, uint32_t options, int32_t retval);
// "GetImage": Options, ImagePath, BlackListPath.
[[nodiscard]] int32_t CreateGetImageIni(const std::string& path, uint32_t options, const std::string& imagePath,
                                        const std::string& blackListPath);
// "SetImage": Options, Timeout (ms), LocalPath, BlackListPath.
[[nodiscard]] int32_t CreateSetImageIni(const std::string& path, uint32_t timeout, uint32_t options,
                                        const std::string& localPath, const std::string& blackListPath);
// "Format": Options, Timeout (ms).
[[nodiscard]] int32_t CreateFormatIni(const std::string& path, uint32_t timeout, uint32_t options);

}  // namespace kx::actions
