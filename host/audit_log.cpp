#include "host/audit_log.h"

#include <syslog.h>

#include <cstdio>

namespace kx::webhost {
namespace {

// Quoted, with '"', '\\' and anything not printable ASCII escaped, so that a
// name cannot forge a line or a field.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte >= 0x7f || c == '"' || c == '\\') {
      char escape[5];
      std::snprintf(escape, sizeof escape, "\\x%02x", byte);
      quoted += escape;
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

void Write(int priority, const std::string& line) {
  ::syslog(priority, "%s", line.c_str());
  std::fprintf(stderr, "kx-webhost: %s\n", line.c_str());
}

}  // namespace

void OpenAuditLog() { ::openlog("kx-webhost", LOG_PID, LOG_DAEMON); }

void AuditAccess(const std::string& user, const std::string& address, const std::string& route, unsigned status) {
  Write(LOG_INFO, "audit: user=" + Quoted(user) + " address=" + address + " route=" + Quoted(route) +
                      " status=" + std::to_string(status));
}

void AuditRefusal(const std::string& user, const std::string& address, const std::string& route, unsigned status,
                  const std::string& reason) {
  Write(LOG_AUTHPRIV | LOG_NOTICE, "audit: refused user=" + Quoted(user) + " address=" + address +
                                       " route=" + Quoted(route) + " status=" + std::to_string(status) + " reason=\"" +
                                       reason + "\"");
}

}  // namespace kx::webhost
