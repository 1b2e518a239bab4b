#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A share of what the bodies of all answers may hold together, given back at its end.
class BodyRoom {
 public:
  static constexpr std::size_t kMaxBytes = std::size_t{96} << 20;

  BodyRoom() = default;
  BodyRoom(BodyRoom&& other) noexcept : m_bytes(std::exchange(other.m_bytes, 0)) {}
  BodyRoom& operator=(BodyRoom&& other) noexcept {
    std::swap(m_bytes, other.m_bytes);
    return *this;
  }
  BodyRoom(const BodyRoom&) = delete;
  BodyRoom& operator=(const BodyRoom&) = delete;
  ~BodyRoom() { s_used -= m_bytes; }

  /// False if there is not so much left.
  [[nodiscard]] bool Grow(std::size_t bytes) {
    if (bytes > kMaxBytes - s_used) {
      return false;
    }
    s_used += bytes;
    m_bytes += bytes;
    return true;
  }

 private:
  static inline std::size_t s_used = 0;
  std::size_t m_bytes = 0;
};

/// An answer to an HTTP request.
struct HttpAnswer {
  unsigned status = 200;
  std::string contentType = "text/plain; charset=utf-8";
  std::string body;
  bool isGzip = false;  ///< the body is compressed by gzip
  std::vector<std::pair<std::string, std::string>> headers = {};  ///< further ones
  BodyRoom room = {};
};

/// The body of an answer that has no end yet. The pieces are shared with other readers.
class HttpStream {
 public:
  using Piece = std::shared_ptr<const std::string>;

  void Put(Piece piece) {
    if (!m_isGone) {
      m_pieces.push_back(std::move(piece));
      m_waiting += m_pieces.back()->size();
      Tell(m_onMore);
    }
  }
  /// No more comes behind what waits.
  void End() {
    m_isEnded = true;
    Tell(m_onMore);
  }
  /// The same, and what waits is dropped, which may part a piece.
  void Cut();
  /// Bytes that the reader has not taken.
  [[nodiscard]] std::size_t Waiting() const { return m_waiting; }
  [[nodiscard]] bool IsEnded() const { return m_isEnded; }
  /// Whether the reader has left.
  [[nodiscard]] bool IsGone() const { return m_isGone; }
  /// Whether the reader's side of the connection is closed, which the server notices only once more
  /// is sent there.
  [[nodiscard]] bool HasPeerEnded() const { return m_hasPeerEnded && m_hasPeerEnded(); }
  /// What to do when the reader leaves.
  void OnGone(std::function<void()> action) { m_onGone = std::move(action); }

  // For the server.
  /// Takes bytes off; 0 if none wait.
  std::size_t Take(char* target, std::size_t size);
  void OnMore(std::function<void()> action) { m_onMore = std::move(action); }
  /// Who tells HasPeerEnded until Leave.
  void AskPeerBy(std::function<bool()> hasEnded) { m_hasPeerEnded = std::move(hasEnded); }
  void Leave();

 private:
  static void Tell(const std::function<void()>& action) {
    if (action) {
      action();
    }
  }
  void Drop();

  std::deque<Piece> m_pieces;
  std::size_t m_taken = 0;  ///< of the first piece
  std::size_t m_waiting = 0;
  bool m_isEnded = false;
  bool m_isGone = false;
  std::function<void()> m_onMore;
  std::function<bool()> m_hasPeerEnded;
  std::function<void()> m_onGone;
};

/// One HTTP request on its way to its answer.
class HttpExchange {
 public:
  using Arguments = std::vector<std::pair<std::string, std::string>>;

  std::string path;
  Arguments arguments;  ///< of the query, decoded
  // Headers, empty if not sent.
  std::string accept;
  std::string authorization;
  std::string lastEventId;
  std::string ifNoneMatch;
  std::string requestedWith;
  bool takesGzip = false;
  std::string peer;         ///< the address of who asks, without the port
  bool isTls = false;       ///< it came by a listener with a certificate
  bool isLoopback = false;  ///< it came by a listener on a loopback address

  /// The first one counts, as does that of AnswerStream.
  void Answer(HttpAnswer answer) {
    if (std::exchange(m_isAnswered, true)) {
      return;
    }
    m_answer = std::move(answer);
    if (m_onAnswer) {
      m_onAnswer();
    }
  }
  /// The same with a body that comes by and by; `head` has none.
  void AnswerStream(HttpAnswer head, std::shared_ptr<HttpStream> stream) {
    if (!m_isAnswered) {
      m_stream = std::move(stream);
      Answer(std::move(head));
    }
  }
  [[nodiscard]] bool IsAnswered() const { return m_isAnswered; }
  [[nodiscard]] const HttpAnswer& TheAnswer() const { return m_answer; }
  [[nodiscard]] const std::shared_ptr<HttpStream>& Stream() const { return m_stream; }
  /// What to do if the answer comes later.
  void OnAnswer(std::function<void()> action) { m_onAnswer = std::move(action); }
  /// Whether nobody waits for the answer any more.
  [[nodiscard]] bool IsGone() const { return m_isGone; }
  /// Keeps what the answer waits for, until the connection has ended.
  void Hold(std::shared_ptr<void> work) { m_work = std::move(work); }
  /// The connection has ended, with or without an answer.
  void Leave() {
    m_isGone = true;
    m_onAnswer = nullptr;
    m_work.reset();
    if (m_stream != nullptr) {
      m_stream->Leave();
    }
  }

 private:
  HttpAnswer m_answer;
  std::shared_ptr<HttpStream> m_stream;
  bool m_isAnswered = false;
  bool m_isGone = false;
  std::shared_ptr<void> m_work;
  std::function<void()> m_onAnswer;
};
