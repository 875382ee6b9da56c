#pragma once
// GET (or HEAD) "/swinstall/files/.syscfg-action/<action directory>/SystemImage.tgz":
// the system image that the daemon packed for GetSystemImage, whose answer
// names it by its ImageFileURL (the part after "/swinstall/files/").
//
// Served from the action exchange directory only ("/.syscfg-action" below the
// system root; "/mnt/userfs/.syscfg-action" in safe mode), and only that file
// name: any other path, a "..", or a link on the way (exchange directory,
// action directory, image) gets 404. A single byte range is served with 206,
// an unsatisfiable one with 416.

#include <microhttpd.h>

#include <string>

namespace kx::webhost {

constexpr char kExchangeFilePrefix[] = "/swinstall/files/";

// `urlPath`: the request path, starting with kExchangeFilePrefix. `status`: the
// HTTP status queued.
MHD_Result QueueExchangeFile(MHD_Connection* connection, const std::string& urlPath, unsigned& status);

}  // namespace kx::webhost
