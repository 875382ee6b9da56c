#pragma once
// The request files the plug-in writes into the current action directory for
// the daemon: one-section INI documents and the catalogue of what to install,
// plus the image file of an action.

namespace kx::exchange {

struct RequestFile {
  const char* fileName;
  const char* section;
};

// The INI request files; the comments give their keys in the order written.
constexpr RequestFile kPostActionRequest{"postaction.ini", "PostAction"};  // Retval Options WebMethod Action
constexpr RequestFile kGetImageRequest{"getimage.ini", "GetImage"};        // Options ImagePath BlackListPath
constexpr RequestFile kSetImageRequest{"setimage.ini", "SetImage"};        // Options Timeout LocalPath BlackListPath
constexpr RequestFile kFormatRequest{"format.ini", "Format"};              // Options Timeout

constexpr char kRetvalKey[] = "Retval";
constexpr char kOptionsKey[] = "Options";
constexpr char kWebMethodKey[] = "WebMethod";
constexpr char kActionKey[] = "Action";
constexpr char kImagePathKey[] = "ImagePath";
constexpr char kBlackListPathKey[] = "BlackListPath";
constexpr char kTimeoutKey[] = "Timeout";
constexpr char kLocalPathKey[] = "LocalPath";

// The catalogue of the wanted software, as SoftwareUpdate received it.
constexpr char kInstallCatalogueName[] = "install.cdf";
// The image GetSystemImage has the daemon make, served by the web host.
constexpr char kSystemImageName[] = "SystemImage.tgz";

// The requests that have the daemon do an action's work, in the order it takes
// them up, each with the web method that places it: the action's ActionType in
// the state files. The post-action only ends an action and is not among them.
struct WorkRequest {
  const char* fileName;
  const char* actionType;
};
constexpr WorkRequest kWorkRequests[] = {
    {kInstallCatalogueName, "SoftwareUpdate"},
    {kGetImageRequest.fileName, "GetSystemImage"},
    {kSetImageRequest.fileName, "SetSystemImage"},
    {kFormatRequest.fileName, "Format"},
};

}  // namespace kx::exchange
