#pragma once

#include <microhttpd.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "gate/http/HttpServer.h"

/// The functions that the library calls; `server` is the HttpServer. The library is C: what is
/// thrown ends the connection and goes no further.
class HttpServer::Callbacks {
 public:
  static MHD_Result OnRequest(void* server, MHD_Connection* connection, const char* url,
                              const char* method, const char*, const char*, std::size_t* bodySize,
                              void** state) noexcept;
  static void OnCompleted(void* server, MHD_Connection*, void** state,
                          MHD_RequestTerminationCode) noexcept;
  static void OnConnection(void* server, MHD_Connection* connection, void**,
                           MHD_ConnectionNotificationCode code) noexcept;
  /// Called before the head is read any further; what it gives is the request's state.
  static void* OnTarget(void* server, const char* target, MHD_Connection* connection) noexcept;

 private:
  static MHD_Result OnArgument(void* exchange, MHD_ValueKind, const char* name,
                               std::size_t nameSize, const char* value,
                               std::size_t valueSize) noexcept;
  /// What a body that comes by and by is read from.
  struct Reader {
    HttpServer& server;
    MHD_Connection* connection;
    std::shared_ptr<HttpStream> stream;
  };
  static MHD_Result Serve(HttpServer& self, MHD_Connection* connection, const char* url,
                          const char* method, std::size_t* bodySize, void** state);
  static void Resume(HttpServer& self, MHD_Connection* connection);
  static MHD_Result Begin(HttpServer& self, MHD_Connection* connection, const char* url,
                          std::string_view method, void** state);
  /// Behind TLS nobody has looked at the head before.
  static HeadVerdict JudgeUnseen(HttpServer& self, MHD_Connection* connection,
                                 std::string_view method);
  static ssize_t Read(void* state, std::uint64_t, char* target, std::size_t size) noexcept;
  static void FreeReader(void* state) noexcept;
  static MHD_Response* Respond(HttpServer& self, MHD_Connection* connection,
                               const HttpExchange& exchange);
  static MHD_Result Send(HttpServer& self, MHD_Connection* connection, HttpExchange& exchange);
};
