#include "host/web_server.h"

#include <strings.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "host/client_identity.h"
#include "host/exchange_file.h"
#include "host/host_request.h"
#include "host/listen_address.h"
#include "host/request_framing.h"
#include "host/text_reply.h"

namespace kx::webhost {
namespace {

constexpr char kPathPrefix[] = "/swinstall/";
constexpr unsigned kIdleTimeoutSeconds = 60;
// GnuTLS priorities: its defaults, but TLS 1.2 and 1.3 only.
constexpr char kTlsPriorities[] = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

// Every one-segment name under kPathPrefix (decoded, whatever it holds) is the
// plug-in's to answer, an unknown one with 501; deeper paths are the host's own.
std::optional<std::string> MethodNameOf(const std::string& path) {
  if (path.rfind(kPathPrefix, 0) != 0) return std::nullopt;
  std::string name = path.substr(sizeof kPathPrefix - 1);
  if (name.find('/') != std::string::npos) return std::nullopt;
  return name;
}

MHD_Result CollectQueryField(void* fields, MHD_ValueKind, const char* name, size_t nameSize, const char* value,
                             size_t valueSize) {
  static_cast<std::vector<webruntime::FormField>*>(fields)->push_back(
      {std::string(name, nameSize), value == nullptr ? std::string() : std::string(value, valueSize)});
  return MHD_YES;
}

// Headers that frame the transfer are the server's own.
bool MaySetHeader(const std::string& name, const std::string& value) {
  static const char* const kReserved[] = {"content-length", "transfer-encoding", "connection"};
  for (const char* reserved : kReserved) {
    if (::strcasecmp(name.c_str(), reserved) == 0) return false;
  }
  return !name.empty() && name.find_first_of("\r\n") == std::string::npos &&
         value.find_first_of("\r\n") == std::string::npos;
}

unsigned ReplyStatus(const Reply& reply) {
  return reply.status >= 100 && reply.status <= 599 ? static_cast<unsigned>(reply.status) : 500;
}

MHD_Result QueuePluginReply(MHD_Connection* connection, const Reply& reply) {
  MHD_Response* response = MHD_create_response_from_buffer(
      reply.content.size(), const_cast<char*>(reply.content.data()), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  static const std::string kContentType = MHD_HTTP_HEADER_CONTENT_TYPE;
  const bool hasMimeType = MaySetHeader(kContentType, reply.mimeType) && !reply.mimeType.empty();
  for (const auto& [name, value] : reply.headers) {
    const bool mimeTypeWins = hasMimeType && ::strcasecmp(name.c_str(), MHD_HTTP_HEADER_CONTENT_TYPE) == 0;
    if (!mimeTypeWins && MaySetHeader(name, value)) MHD_add_response_header(response, name.c_str(), value.c_str());
  }
  if (hasMimeType) MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, reply.mimeType.c_str());
  const MHD_Result queued = MHD_queue_response(connection, ReplyStatus(reply), response);
  MHD_destroy_response(response);
  return queued;
}

// A body refused for want of memory may be sent again soon.
MHD_Result QueueBodyError(MHD_Connection* connection, const RequestBody& body) {
  const auto status = static_cast<unsigned>(body.ErrorStatus());
  if (status == MHD_HTTP_SERVICE_UNAVAILABLE) {
    return QueueTextReply(connection, status, body.ErrorText() + "\n", MHD_HTTP_HEADER_RETRY_AFTER, "5");
  }
  return QueueTextReply(connection, status, body.ErrorText() + "\n");
}

void LogServerMessage(void*, const char* format, va_list arguments) {
  std::fputs("kx-webhost: ", stderr);
  std::vfprintf(stderr, format, arguments);
}

}  // namespace

WebServer::WebServer(const HostOptions& options, const PluginLibrary& plugin, Authenticator& authenticator)
    : options_(options),
      plugin_(plugin),
      authenticator_(authenticator),
      guard_(options.maxClientConnections, std::chrono::seconds(options.headerTimeout)),
      memory_(options.maxMemory),
      dispatcher_(options.threads) {}

void WebServer::Start(const TlsCredentials* tls) {
  const ListenAddress address = ResolveListenAddress(options_.listenHost, options_.listenPort);
  // poll, not epoll: with epoll this libmicrohttpd (0.9.75) leaves a connection
  // whose query arguments overflow its memory pool hanging until the idle
  // time-out; with poll it is closed at once. Throughput is the same.
  unsigned flags = MHD_USE_POLL_INTERNAL_THREAD | MHD_USE_ERROR_LOG | MHD_ALLOW_SUSPEND_RESUME;
  if (address.ipv6) flags |= MHD_USE_IPv6;
  std::vector<MHD_OptionItem> tlsOptions;
  tls_ = tls != nullptr;
  clientCertificates_ = tls_ && !tls->clientCaPem.empty();
  if (tls_) {
    flags |= MHD_USE_TLS;
    tlsOptions = {{MHD_OPTION_HTTPS_MEM_CERT, 0, const_cast<char*>(tls->certificatePem.c_str())},
                  {MHD_OPTION_HTTPS_MEM_KEY, 0, const_cast<char*>(tls->keyPem.c_str())},
                  {MHD_OPTION_HTTPS_PRIORITIES, 0, const_cast<char*>(kTlsPriorities)}};
  }
  // With a trust list the server asks every client for its certificate (a
  // client without one is still served).
  if (clientCertificates_) {
    tlsOptions.push_back({MHD_OPTION_HTTPS_MEM_TRUST, 0, const_cast<char*>(tls->clientCaPem.c_str())});
  }
  tlsOptions.push_back({MHD_OPTION_END, 0, nullptr});
  daemon_ = MHD_start_daemon(flags, 0, &WebServer::MayConnect, this, &WebServer::Access, this,
                             MHD_OPTION_EXTERNAL_LOGGER, &LogServerMessage, nullptr, MHD_OPTION_SOCK_ADDR,
                             address.Get(), MHD_OPTION_THREAD_POOL_SIZE, options_.threads, MHD_OPTION_CONNECTION_LIMIT,
                             options_.maxConnections, MHD_OPTION_NOTIFY_CONNECTION, &WebServer::ConnectionNotice, this,
                             MHD_OPTION_NOTIFY_COMPLETED, &WebServer::Completed, this, MHD_OPTION_CONNECTION_TIMEOUT,
                             kIdleTimeoutSeconds, MHD_OPTION_ARRAY, tlsOptions.data(), MHD_OPTION_END);
  if (daemon_ == nullptr) {
    throw std::runtime_error("cannot listen on " + options_.listenHost + ":" + std::to_string(options_.listenPort));
  }
}

uint16_t WebServer::Port() const {
  const MHD_DaemonInfo* info = daemon_ == nullptr ? nullptr : MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT);
  return info == nullptr ? 0 : info->port;
}

void WebServer::Stop() {
  ready_ = false;
  // No connection may stay suspended when the server stops.
  dispatcher_.Stop();
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

// Called once with the headers, then for each piece of the body, then once more
// with nothing when the body is complete. No exception may pass into the C
// library: one that escapes (out of memory) closes the connection.
MHD_Result WebServer::Access(void* self, MHD_Connection* connection, const char* url, const char* method, const char*,
                             const char* data, size_t* size, void** state) try {
  WebServer& server = *static_cast<WebServer*>(self);
  if (*state == nullptr) {
    const MHD_Result begun = server.Begin(connection, url, method, state);
    // Without a request state the answer is queued already.
    *state == nullptr ? server.guard_.Serving(connection) : server.guard_.HeadersDone(connection);
    return begun;
  }
  HostRequest& request = *static_cast<HostRequest*>(*state);
  if (request.CurrentStage() == HostRequest::Stage::kAnswered) return server.Reply(connection, request);
  if (*size != 0) {
    server.guard_.BodyReceived(connection, *size);
    request.Input().Append(data, *size);
    *size = 0;
    return request.Input().MustClose() ? MHD_NO : MHD_YES;
  }
  server.guard_.Serving(connection);
  request.Input().Finish();
  if (request.Input().Failed()) return QueueBodyError(connection, request.Input());
  return server.Dispatch(connection, request);
} catch (...) {
  return MHD_NO;
}

MHD_Result WebServer::Begin(MHD_Connection* connection, const char* url, const char* method, void** state) {
  if (HasConflictingFraming(connection)) {
    return QueueTextReply(connection, MHD_HTTP_BAD_REQUEST, "conflicting Content-Length or Transfer-Encoding\n");
  }
  const std::string path(url);
  if (path.rfind(kExchangeFilePrefix, 0) == 0) return BeginFileDownload(connection, path, method);
  const std::optional<std::string> name = MethodNameOf(path);
  if (!name) return QueueTextReply(connection, MHD_HTTP_NOT_FOUND, "not found\n");
  if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0 && std::strcmp(method, MHD_HTTP_METHOD_POST) != 0) {
    return QueueTextReply(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and POST\n", MHD_HTTP_HEADER_ALLOW,
                          "GET, POST");
  }
  if (!ready_) return QueueTextReply(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "not serving\n");
  AuditSubject subject;
  if (const std::optional<MHD_Result> refused = Authorize(connection, AccessOfWebMethod(*name), path, subject)) {
    return *refused;
  }

  std::vector<webruntime::FormField> queryFields;
  MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, &CollectQueryField, &queryFields);
  const char* contentType = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_CONTENT_TYPE);
  BodyLimits limits{options_.maxBody, options_.maxTextBody};
  limits.budget = &memory_;
  auto request = std::make_unique<HostRequest>(path, *name, limits, contentType == nullptr ? "" : contentType,
                                               DeclaredLength(connection), std::move(queryFields));
  if (request->Input().Failed()) return QueueBodyError(connection, request->Input());  // before the body is read
  request->Subject() = std::move(subject);
  *state = request.release();
  return MHD_YES;
}

MHD_Result WebServer::BeginFileDownload(MHD_Connection* connection, const std::string& path, const char* method) {
  if (std::strcmp(method, MHD_HTTP_METHOD_GET) != 0 && std::strcmp(method, MHD_HTTP_METHOD_HEAD) != 0) {
    return QueueTextReply(connection, MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD\n", MHD_HTTP_HEADER_ALLOW,
                          "GET, HEAD");
  }
  if (!ready_) return QueueTextReply(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "not serving\n");
  AuditSubject subject;
  if (const std::optional<MHD_Result> refused = Authorize(connection, RouteAccess::kProtected, path, subject)) {
    return *refused;
  }
  unsigned status = MHD_HTTP_INTERNAL_SERVER_ERROR;
  const MHD_Result queued = QueueExchangeFile(connection, path, status);
  AuditAccess(subject.user, subject.address, std::string(method) + " " + path, status);
  return queued;
}

std::optional<MHD_Result> WebServer::Authorize(MHD_Connection* connection, RouteAccess access, const std::string& route,
                                               AuditSubject& subject) {
  if (authenticator_.IsOpen(access)) return std::nullopt;  // no client certificate to verify
  const Caller caller = IdentifyCaller(connection, tls_, clientCertificates_);
  const AccessDecision decision = authenticator_.Decide(access, caller);
  if (decision.status == 0) {
    subject = {true, decision.user, caller.address};
    return std::nullopt;
  }
  AuditRefusal(decision.user, caller.address, route, decision.status, decision.reason);
  if (decision.status == MHD_HTTP_UNAUTHORIZED) {
    return QueueTextReply(connection, decision.status, decision.body, MHD_HTTP_HEADER_WWW_AUTHENTICATE,
                          "Basic realm=\"kx-swinstl\"");
  }
  if (decision.status == MHD_HTTP_TOO_MANY_REQUESTS) {
    return QueueTextReply(connection, decision.status, decision.body, MHD_HTTP_HEADER_RETRY_AFTER,
                          std::to_string(decision.retryAfter).c_str());
  }
  return QueueTextReply(connection, decision.status, decision.body);
}

// The connection waits, suspended, while a worker calls the plug-in; once
// resumed, the server calls Access again and the reply goes out.
MHD_Result WebServer::Dispatch(MHD_Connection* connection, HostRequest& request) {
  if (!ready_) return QueueTextReply(connection, MHD_HTTP_SERVICE_UNAVAILABLE, "not serving\n");
  request.MoveTo(HostRequest::Stage::kWaiting);
  MHD_suspend_connection(connection);
  const auto answer = [connection, &request] {
    request.MoveTo(HostRequest::Stage::kAnswered);
    MHD_resume_connection(connection);
  };
  const auto run = [this, &request, answer] {
    {
      // The registration ends before the reply goes out: from then on the
      // plug-in can no longer reach this request by its handle.
      webruntime::RequestRegistration registration(request);
      webruntime::WebRequest webRequest(request.Uri(), request.MethodName());
      plugin_.Run(&webRequest, registration.Handle());
    }
    answer();
  };
  const auto cancel = [&request, answer] {
    request.Refuse(MHD_HTTP_SERVICE_UNAVAILABLE, "not serving\n");
    answer();
  };
  if (!dispatcher_.Submit(request.MethodName(), run, cancel)) cancel();
  return MHD_YES;
}

MHD_Result WebServer::Reply(MHD_Connection* connection, HostRequest& request) {
  const AuditSubject& subject = request.Subject();
  if (subject.audited) AuditAccess(subject.user, subject.address, request.Uri(), ReplyStatus(request.Answer()));
  return QueuePluginReply(connection, request.Answer());
}

MHD_Result WebServer::MayConnect(void* self, const sockaddr* address, socklen_t) {
  return static_cast<WebServer*>(self)->guard_.MayConnect(address) ? MHD_YES : MHD_NO;
}

void WebServer::ConnectionNotice(void* self, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code) {
  ConnectionGuard& guard = static_cast<WebServer*>(self)->guard_;
  code == MHD_CONNECTION_NOTIFY_STARTED ? guard.Started(connection) : guard.Closed(connection);
}

void WebServer::Completed(void* self, MHD_Connection* connection, void** state, MHD_RequestTerminationCode) {
  static_cast<WebServer*>(self)->guard_.RequestDone(connection);
  delete static_cast<HostRequest*>(*state);  // removes upload files the plug-in has not moved
  *state = nullptr;
}

}  // namespace kx::webhost
