#pragma once
// The HTTP server: hands every request for "/swinstall/<WebMethod>" to the
// plug-in through the web runtime and sends back the reply it built; serves
// the system image for download itself (exchange_file.h). Every route but the
// open ones is let through only as the authenticator decides, and audited.

#include <microhttpd.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "host/audit_log.h"
#include "host/authenticator.h"
#include "host/connection_guard.h"
#include "host/memory_budget.h"
#include "host/options.h"
#include "host/plugin_dispatcher.h"
#include "host/plugin_library.h"
#include "host/tls_credentials.h"

namespace kx::webhost {

class WebServer {
 public:
  WebServer(const HostOptions& options, const PluginLibrary& plugin, Authenticator& authenticator);
  ~WebServer() { Stop(); }
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Listens, with HTTPS when credentials are given (TLS 1.2 and 1.3 only), and
  // asks for client certificates when they name a client CA.
  // Throws std::runtime_error (a busy port, an unknown host, unusable credentials).
  void Start(const TlsCredentials* tls = nullptr);
  // The port listened on (the one taken when 0 was asked for).
  uint16_t Port() const;
  // Until ready, and again once stopping, requests get 503.
  void SetReady(bool ready) { ready_ = ready; }
  // Closes every connection; returns when no request is in the plug-in any more.
  void Stop();

 private:
  static MHD_Result Access(void* self, MHD_Connection* connection, const char* url, const char* method,
                           const char* version, const char* data, size_t* size, void** state);
  static MHD_Result MayConnect(void* self, const sockaddr* address, socklen_t length);
  static void ConnectionNotice(void* self, MHD_Connection* connection, void** socketState,
                               MHD_ConnectionNotificationCode code);
  static void Completed(void* self, MHD_Connection* connection, void** state, MHD_RequestTerminationCode code);
  MHD_Result Begin(MHD_Connection* connection, const char* url, const char* method, void** state);
  MHD_Result BeginFileDownload(MHD_Connection* connection, const std::string& path, const char* method);
  // Nothing when the caller may go on (then `subject` says whom to audit);
  // else the refusal, queued and audited.
  std::optional<MHD_Result> Authorize(MHD_Connection* connection, RouteAccess access, const std::string& route,
                                      AuditSubject& subject);
  MHD_Result Dispatch(MHD_Connection* connection, class HostRequest& request);
  MHD_Result Reply(MHD_Connection* connection, HostRequest& request);

  const HostOptions& options_;
  const PluginLibrary& plugin_;
  Authenticator& authenticator_;
  ConnectionGuard guard_;
  MemoryBudget memory_;
  PluginDispatcher dispatcher_;
  bool tls_ = false;
  bool clientCertificates_ = false;
  MHD_Daemon* daemon_ = nullptr;
  std::atomic<bool> ready_{false};
};

}  // namespace kx::webhost
