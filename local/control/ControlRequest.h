#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>

#include "local/control/AccessRule.h"
#include "local/history/RecordJson.h"
#include "local/schedule/RequestBook.h"

/// Gives an answer piece by piece: puts the next piece in place of `piece`; false if it was the
/// last one. It is called when the client has taken what went before, so an answer may be longer
/// than what may wait.
using AnswerPieces = std::function<bool(std::string& piece)>;

/// One client of the control socket, as the operations see it.
class ControlPeer {
 public:
  virtual ~ControlPeer() = default;
  [[nodiscard]] virtual Rights PeerRights() const = 0;
  /// Whether it is the gate, by its process or user.
  [[nodiscard]] virtual bool IsGate() const = 0;
  /// Whether nobody is left to read an answer.
  [[nodiscard]] virtual bool IsGone() const = 0;
  /// The client's lasting requests. Not to be asked for once the client is gone.
  [[nodiscard]] virtual RequestBook& Requests() = 0;
  /// Ends the request under way with one line, given without its newline.
  virtual void Answer(std::string line) = 0;
  /// The same in pieces, the last of which ends without the newline. Throws std::bad_alloc where
  /// there is no memory for the first one: the request is then under way still.
  virtual void AnswerInPieces(AnswerPieces pieces) = 0;
  /// Ends the request under way with a line, given without its newline, and bytes behind it.
  virtual void AnswerRaw(std::string line, std::string bytes) = 0;
  /// An answer that goes on for as long as the connection: `pieces` gives false where it has
  /// nothing more to say at present, and is asked again after Continue.
  virtual void AnswerWithoutEnd(AnswerPieces pieces) = 0;
  /// There is something to say again. Nothing happens where the answer is not at rest.
  virtual void Continue() = 0;
  /// Ends the connection with the request unanswered, where there is no memory for an answer.
  virtual void Abandon() = 0;
};

/// What a client is told when its request fails. `field` is the member at fault, empty if none is.
struct ControlError {
  const char* code;
  std::string message;
  std::string field;
};

/// What a request is told that the end of the daemon overtakes.
[[nodiscard]] ControlError StoppingError();
/// What a request is told that needs more memory than there is; it fails alone.
[[nodiscard]] ControlError MemoryError();

/// The error as clients see it: code, message and, where there is one, field.
[[nodiscard]] Json ErrorJson(const ControlError& error);

/// One request of a client. It is answered exactly once.
class ControlRequest {
 public:
  /// `message` is an object.
  ControlRequest(Json message, std::shared_ptr<ControlPeer> peer)
      : m_message(std::move(message)), m_peer(std::move(peer)) {}

  [[nodiscard]] const Json& Message() const { return m_message; }
  [[nodiscard]] ControlPeer& Peer() const { return *m_peer; }
  [[nodiscard]] const std::shared_ptr<ControlPeer>& SharedPeer() const { return m_peer; }

  /// Answers that all went well, with one member besides; a null name adds none.
  void Succeed(const char* name = nullptr, Json value = nullptr) const;
  void Fail(const ControlError& error) const;
  /// Answers that all went well, with one member and raw bytes behind the line.
  void SucceedRaw(const char* name, const Json& value, std::string bytes) const;
  /// Fails with MemoryError; abandons the client if there is no memory for that either.
  void FailForMemory() const;
  /// An answer that is put together by the caller, piece by piece: the begin of one that all went
  /// well, still without the closing brace.
  [[nodiscard]] std::string AnswerHead() const;

 private:
  [[nodiscard]] Json Head(bool isOk) const;

  Json m_message;
  std::shared_ptr<ControlPeer> m_peer;
};

/// The object that a line holds, or why it holds none. The line is hostile: what is nested more
/// than 16 deep is refused before it is parsed.
[[nodiscard]] std::variant<Json, ControlError> ParseRequestLine(const std::string& line);

/// The first member that is not among `allowed`; null entries are passed over.
[[nodiscard]] std::optional<ControlError> CheckMembers(const Json& object,
                                                       std::span<const char* const> allowed);
