// kx-webhost: serves the software-installation plug-in over HTTP or HTTPS.
//
// Start-up: options, system root, plug-in loaded, users read, TLS credentials,
// listening, orlaInit, then "listening on http(s)://HOST:PORT" on stdout (and,
// for HTTPS, the certificate's fingerprint). SIGINT or SIGTERM: no new
// requests, those running finish, orlaFinalize, exit 0.
//
// --add-user and --remove-user change the users file and serve nothing.

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/audit_log.h"
#include "host/authenticator.h"
#include "host/locator.h"
#include "host/options.h"
#include "host/plugin_library.h"
#include "host/shutdown_signal.h"
#include "host/tls_credentials.h"
#include "host/upload_store.h"
#include "host/user_commands.h"
#include "host/web_server.h"
#include "kx/tal/path.h"

namespace {

using namespace kx::webhost;

// The root is made absolute: the plug-in and the programs it starts may change
// their working directory.
void SetSystemRoot(const std::string& root) {
  char* absolute = ::realpath(root.c_str(), nullptr);
  if (absolute == nullptr) throw std::runtime_error("--root: no such directory: " + root);
  ::setenv("KX_SYSTEM_ROOT", absolute, 1);
  std::free(absolute);
}

// Addresses a self-signed certificate names: the one listened on, or for a
// wildcard every address of the machine's interfaces.
std::vector<std::string> CertificateAddresses(const std::string& listenHost) {
  if (listenHost != "0.0.0.0" && listenHost != "::") return {listenHost};
  std::vector<std::string> addresses;
  ifaddrs* interfaces = nullptr;
  if (::getifaddrs(&interfaces) != 0) return addresses;
  for (const ifaddrs* entry = interfaces; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr) continue;
    const int family = entry->ifa_addr->sa_family;
    if (family != AF_INET && family != AF_INET6) continue;
    char text[INET6_ADDRSTRLEN] = {};
    const void* bytes = family == AF_INET
                            ? static_cast<const void*>(&reinterpret_cast<sockaddr_in*>(entry->ifa_addr)->sin_addr)
                            : &reinterpret_cast<sockaddr_in6*>(entry->ifa_addr)->sin6_addr;
    if (::inet_ntop(family, bytes, text, sizeof text) != nullptr) addresses.emplace_back(text);
  }
  ::freeifaddrs(interfaces);
  return addresses;
}

std::string HostName() {
  char name[256] = {};
  return ::gethostname(name, sizeof name - 1) == 0 && name[0] != '\0' ? name : "kx-controller";
}

std::string UsersPath(const HostOptions& options) {
  return options.usersFile.empty() ? kx::tal::RootedPath("/etc/brenmar/share/webhost-users") : options.usersFile;
}

// HTTPS with the given files; plain HTTP on loopback or when asked; otherwise
// HTTPS with the self-signed certificate made on the first start.
std::optional<TlsCredentials> ChooseTls(const HostOptions& options) {
  std::optional<TlsCredentials> credentials;
  if (!options.tlsCertificate.empty()) {
    credentials = LoadCredentials(options.tlsCertificate, options.tlsKey);
  } else if (!options.noTls && !IsLocalOnlyAddress(options.listenHost)) {
    const std::string directory = kx::tal::RootedPath("/etc/brenmar/share/tls");
    bool created = false;
    credentials = LoadOrCreateSelfSigned(directory, HostName(), CertificateAddresses(options.listenHost), created);
    if (created) std::cout << "kx-webhost: created a self-signed certificate in " << directory << std::endl;
  }
  if (!options.tlsClientCa.empty()) {
    if (!credentials) throw std::runtime_error("--tls-client-ca needs HTTPS: give --tls-cert and --tls-key");
    credentials->clientCaPem = LoadClientCa(options.tlsClientCa);
  }
  return credentials;
}

int Serve(const HostOptions& options) {
  InstallShutdownHandlers();
  OpenAuditLog();
  const std::string pluginPath = options.pluginPath.empty() ? DefaultPluginPath() : options.pluginPath;
  const PluginLibrary plugin = options.baseline ? PluginLibrary::Baseline() : PluginLibrary::Load(pluginPath);
  RemoveLeftoverUploads();

  Authenticator authenticator(
      {UsersPath(options), !options.usersFile.empty(), options.anonymousRead, !options.tlsClientCa.empty()});
  const std::optional<TlsCredentials> tls = ChooseTls(options);
  const std::string scheme = tls ? "https" : "http";
  WebServer server(options, plugin, authenticator);
  server.Start(tls ? &*tls : nullptr);
  std::unique_ptr<Locator> locator;
  if (options.locatorPort != 0) {
    locator = std::make_unique<Locator>(options.locatorPort, server.Port(), scheme);
    locator->Start();
  }
  plugin.Init();
  server.SetReady(true);
  const bool ipv6 = options.listenHost.find(':') != std::string::npos;
  std::cout << "kx-webhost: listening on " << scheme << "://"
            << (ipv6 ? "[" + options.listenHost + "]" : options.listenHost) << ":" << server.Port() << std::endl;
  if (tls) std::cout << "kx-webhost: certificate SHA-256 fingerprint " << tls->fingerprint << std::endl;
  if (options.baseline)
    std::cout << "kx-webhost: baseline: no plug-in, every web method answers a fixed document" << std::endl;

  const int signal = WaitForShutdownSignal();
  std::cout << "kx-webhost: signal " << signal << ", stopping" << std::endl;
  if (locator) locator->Stop();
  server.Stop();
  plugin.Finalize();
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  HostOptions options;
  try {
    options = ParseOptions(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const UsageError& e) {
    std::cerr << "kx-webhost: " << e.what() << "\n" << kUsage;
    return 2;
  }
  if (options.help) {
    std::cout << kUsage << kHelp;
    return EXIT_SUCCESS;
  }
  try {
    if (!options.root.empty()) SetSystemRoot(options.root);
    if (!options.addUser.empty()) return AddUser(UsersPath(options), options.addUser, STDIN_FILENO);
    if (!options.removeUser.empty()) return RemoveUser(UsersPath(options), options.removeUser);
    return Serve(options);
  } catch (const std::exception& e) {
    std::cerr << "kx-webhost: " << e.what() << "\n";
    return EXIT_FAILURE;
  }
}
