#include "host/options.h"

#include <limits>

namespace kx::webhost {

const char kUsage[] =
    "usage: kx-webhost [--listen HOST:PORT] [--root DIR] [--plugin PATH] [--threads N]\n"
    "                  [--max-body BYTES] [--max-text-body BYTES] [--max-memory BYTES] [--max-connections N]\n"
    "                  [--max-client-connections N] [--header-timeout SEC] [--locator-port PORT] [--baseline]\n"
    "                  [--tls-cert FILE --tls-key FILE | --no-tls] [--tls-client-ca FILE]\n"
    "                  [--users FILE] [--anonymous-read]\n"
    "       kx-webhost [--root DIR] [--users FILE] --add-user NAME | --remove-user NAME\n";

const char kHelp[] =
    "\n"
    "Serves the software-installation web methods under /swinstall/ and the action files\n"
    "under /swinstall/files/.\n"
    "\n"
    "  --listen HOST:PORT    address to listen on (127.0.0.1:8080; port 0: any free one)\n"
    "  --root DIR            the system root the controller's paths lie below\n"
    "  --plugin PATH         the plug-in to load (the one built beside kx-webhost)\n"
    "  --threads N           worker threads (4)\n"
    "  --max-body BYTES      largest request body (256 MiB)\n"
    "  --max-text-body BYTES largest body part held in memory (16 MiB)\n"
    "  --max-memory BYTES    what all request bodies may hold in memory together (64 MiB);\n"
    "                        a body that would go over it gets 503\n"
    "  --max-connections N   connections at once (256)\n"
    "  --max-client-connections N\n"
    "                        connections at once from one address other than loopback (32)\n"
    "  --header-timeout SEC  time for a request's headers (10); a body must bring 1 KiB a\n"
    "                        second over each such period. A slower connection is closed\n"
    "  --locator-port PORT   loopback port of the web-server locator (3580; 0: none)\n"
    "  --baseline            answer with a fixed document instead of the plug-in\n"
    "  --tls-cert, --tls-key serve HTTPS with these PEM files; on an address other than\n"
    "                        loopback HTTPS is served anyway, with a self-signed certificate\n"
    "                        made once in /etc/brenmar/share/tls below the root\n"
    "  --no-tls              plain HTTP on an address other than loopback\n"
    "  --tls-client-ca FILE  a client certificate chaining to this CA authenticates as its\n"
    "                        common name\n"
    "  --users FILE          the users file (/etc/brenmar/share/webhost-users below the root)\n"
    "  --anonymous-read      Progress and InstalledComponents need no credentials\n"
    "  --add-user NAME       add a user, or change its password (read from standard input)\n"
    "  --remove-user NAME    remove a user\n"
    "\n"
    "Exit status: 0 stopped by SIGINT or SIGTERM, or the user command done; 1 failure;\n"
    "2 wrong usage.\n";

namespace {

uint64_t ParseNumber(const std::string& option, const std::string& text, uint64_t low, uint64_t high) {
  if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos) {
    throw UsageError(option + ": not a number: \"" + text + "\"");
  }
  const uint64_t value = std::stoull(text);
  if (value < low || value > high) {
    throw UsageError(option + ": must be from " + std::to_string(low) + " to " + std::to_string(high));
  }
  return value;
}

uint16_t ParsePort(const std::string& option, const std::string& text) {
  return static_cast<uint16_t>(ParseNumber(option, text, 0, 65535));
}

// "HOST:PORT", "[IPV6]:PORT".
void ParseListen(const std::string& text, HostOptions& options) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0) throw UsageError("--listen: expected HOST:PORT");
  std::string host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  if (host.empty()) throw UsageError("--listen: expected HOST:PORT");
  options.listenHost = host;
  options.listenPort = ParsePort("--listen", text.substr(colon + 1));
}

}  // namespace

HostOptions ParseOptions(const std::vector<std::string>& arguments) {
  HostOptions options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& option = arguments[i];
    if (option == "--baseline" || option == "--no-tls" || option == "--anonymous-read" || option == "--help") {
      (option == "--baseline"         ? options.baseline
       : option == "--no-tls"         ? options.noTls
       : option == "--anonymous-read" ? options.anonymousRead
                                      : options.help) = true;
      continue;
    }
    if (i + 1 >= arguments.size()) throw UsageError(option + ": unknown option or missing value");
    const std::string& value = arguments[++i];
    if (option == "--listen") {
      ParseListen(value, options);
    } else if (option == "--root") {
      if (value.empty()) throw UsageError("--root: empty directory");
      options.root = value;
    } else if (option == "--plugin") {
      options.pluginPath = value;
    } else if (option == "--threads") {
      options.threads = static_cast<unsigned>(ParseNumber(option, value, 1, 64));
    } else if (option == "--max-body") {
      options.maxBody = ParseNumber(option, value, 0, std::numeric_limits<int64_t>::max());
    } else if (option == "--max-text-body") {
      // ReadPostData reports the body size in 32 bits.
      options.maxTextBody = ParseNumber(option, value, 0, std::numeric_limits<uint32_t>::max());
    } else if (option == "--max-memory") {
      options.maxMemory = ParseNumber(option, value, 0, std::numeric_limits<int64_t>::max());
    } else if (option == "--max-connections") {
      options.maxConnections = static_cast<unsigned>(ParseNumber(option, value, 1, 100000));
    } else if (option == "--max-client-connections") {
      options.maxClientConnections = static_cast<unsigned>(ParseNumber(option, value, 1, 100000));
    } else if (option == "--header-timeout") {
      options.headerTimeout = static_cast<unsigned>(ParseNumber(option, value, 1, 3600));
    } else if (option == "--locator-port") {
      options.locatorPort = ParsePort(option, value);
    } else if (option == "--tls-cert" || option == "--tls-key" || option == "--tls-client-ca" || option == "--users") {
      if (value.empty()) throw UsageError(option + ": empty file name");
      (option == "--tls-cert"        ? options.tlsCertificate
       : option == "--tls-key"       ? options.tlsKey
       : option == "--tls-client-ca" ? options.tlsClientCa
                                     : options.usersFile) = value;
    } else if (option == "--add-user" || option == "--remove-user") {
      if (value.empty()) throw UsageError(option + ": empty user name");
      (option == "--add-user" ? options.addUser : options.removeUser) = value;
    } else {
      throw UsageError(option + ": unknown option");
    }
  }
  if (options.tlsCertificate.empty() != options.tlsKey.empty()) {
    throw UsageError("--tls-cert and --tls-key go together");
  }
  if (options.noTls && !options.tlsCertificate.empty()) throw UsageError("--no-tls with --tls-cert");
  if (options.maxTextBody > options.maxMemory) throw UsageError("--max-text-body is larger than --max-memory");
  if (options.noTls && !options.tlsClientCa.empty()) throw UsageError("--tls-client-ca needs TLS, not --no-tls");
  if (!options.addUser.empty() && !options.removeUser.empty()) {
    throw UsageError("--add-user and --remove-user are separate commands");
  }
  return options;
}

}  // namespace kx::webhost
