#pragma once
// The command line of kx-webhost.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace kx::webhost {

struct HostOptions {
  std::string listenHost = "127.0.0.1";
  uint16_t listenPort = 8080;          // 0: any free port (the one taken is printed)
  std::string root;                    // empty: keep KX_SYSTEM_ROOT as it is
  std::string pluginPath;              // empty: the plug-in built beside the host
  unsigned threads = 4;                // server threads, and workers calling the plug-in
  uint64_t maxBody = 256ull << 20;     // a larger body gets 413
  uint64_t maxTextBody = 16ull << 20;  // the part of a body held in memory (all but file uploads)
  uint64_t maxMemory = 64ull << 20;    // what all requests' bodies may hold in memory together
  unsigned maxConnections = 256;
  unsigned maxClientConnections = 32;  // from one address other than loopback
  unsigned headerTimeout = 10;         // seconds for a request's headers, and a body's rate period
  uint16_t locatorPort = 3580;         // 0: no locator
  bool baseline = false;               // answer with a fixed document instead of the plug-in
  std::string tlsCertificate;          // with tlsKey: serve HTTPS with these PEM files
  std::string tlsKey;
  bool noTls = false;          // plain HTTP even on an address other than loopback
  std::string tlsClientCa;     // PEM file: its client certificates authenticate as their common name
  std::string usersFile;       // empty: the default below the system root, which need not exist
  bool anonymousRead = false;  // Progress and InstalledComponents without credentials
  std::string addUser;         // set: add this user (or change its password) and exit
  std::string removeUser;      // set: remove this user and exit
  bool help = false;
};

struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// Throws UsageError with a one-line reason for an unknown option, a missing
// value or a value out of range.
HostOptions ParseOptions(const std::vector<std::string>& arguments);

extern const char kUsage[];
extern const char kHelp[];  // what each option does, for --help

}  // namespace kx::webhost
