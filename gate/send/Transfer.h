#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <string>

#include "gate/send/SendRequest.h"

/// One request as the HTTP library takes it, and what came of it. It stays in its place, as the
/// library writes to it.
class Transfer {
 public:
  /// Throws AccessError for a fault of the identity's files or of the request.
  explicit Transfer(SendRequest request);
  ~Transfer();
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  /// The library's handle, a CURL*.
  [[nodiscard]] void* Handle() const { return m_handle.get(); }
  /// What has come, when it has ended with `code`, one of the library's.
  [[nodiscard]] SendResult Result(int code);

 private:
  struct FreeHandle {
    void operator()(void* handle) const;
  };
  struct FreeList {
    void operator()(void* list) const;
  };
  static constexpr std::size_t kErrorSize = 256;

  static std::size_t OnBody(char* bytes, std::size_t one, std::size_t count, void* self);
  static std::size_t OnHead(char* bytes, std::size_t one, std::size_t count, void* self);
  void SetRequest();
  void SetLimits();
  void SetIdentity();
  void AddHeader(const std::string& header);

  SendRequest m_request;
  std::unique_ptr<void, FreeHandle> m_handle;
  std::unique_ptr<void, FreeList> m_headers;
  std::array<char, kErrorSize> m_error{};
  std::string m_body;
  std::size_t m_bodySize = 0;
  std::size_t m_headSize = 0;
  int m_status = 0;  ///< once the heads are whole
};
