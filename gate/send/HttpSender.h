#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "gate/send/SendRequest.h"

class IoLoop;

/// Sends requests by HTTP, without holding the loop: only what the files of an identity take to be
/// read. No redirect is followed and no proxy taken, TLS is 1.2 or newer, heads beyond 64 KB break
/// the request off, and nothing takes longer than its timeout. Once the heads have come their
/// status is the result, whatever becomes of the text, of which no more than 1 MB is read: a server
/// that has said yes would else be sent the same for ever. Connections are kept for the next
/// request. For the loop's thread.
class HttpSender {
 public:
  /// One request on its way; freeing it takes it back.
  class Sending;
  using SendingPtr = std::shared_ptr<Sending>;
  using Done = std::function<void(SendResult)>;

  static constexpr std::size_t kMostKept = std::size_t{64} << 10;
  static constexpr std::size_t kMostHeads = std::size_t{64} << 10;
  static constexpr std::size_t kMostAnswer = std::size_t{1} << 20;

  /// `loop` outlives it.
  explicit HttpSender(IoLoop& loop);
  /// What is on its way ends without a word.
  ~HttpSender();
  HttpSender(const HttpSender&) = delete;
  HttpSender& operator=(const HttpSender&) = delete;

  /// `done` is called from the loop, once, unless the request is taken back before; it may free the
  /// request and this object. A fault of a file of the identity, or of the URL, is told so too.
  [[nodiscard]] SendingPtr Send(SendRequest request, Done done);

 private:
  class Library;

  /// Throws std::runtime_error if there can be none.
  [[nodiscard]] const std::shared_ptr<Library>& Get();

  IoLoop& m_loop;
  std::shared_ptr<Library> m_library;  ///< from the first request on
};
