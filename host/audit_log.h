#pragma once
// The audit trail: each protected request that was served, and each refused
// authentication, as one line to syslog and to standard error. Passwords never
// appear; user names are quoted with control characters escaped.

#include <string>

namespace kx::webhost {

// Whom a request that is served is audited as; `audited` false for open routes.
struct AuditSubject {
  bool audited = false;
  std::string user;
  std::string address;
};

// Before the first line: syslog names the host and its process.
void OpenAuditLog();

// `route`: the web method's path or the file route; `status`: the HTTP status sent.
void AuditAccess(const std::string& user, const std::string& address, const std::string& route, unsigned status);
void AuditRefusal(const std::string& user, const std::string& address, const std::string& route, unsigned status,
                  const std::string& reason);

}  // namespace kx::webhost
