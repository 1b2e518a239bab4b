#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "json/Json.h"
#include "support/Descriptor.h"

/// Within what a daemon has to answer.
struct ConnectionLimits {
  std::chrono::milliseconds connect = std::chrono::seconds(5);
  std::chrono::milliseconds answer =
      std::chrono::seconds(30);  ///< silence of the daemon; sending the request included
  /// From sending a request to the end of its answer, however lively the daemon is.
  std::chrono::milliseconds whole = std::chrono::hours(24);
  /// Of an answer, or of what is held of it at a time. Without the newline.
  std::size_t answerBytes = std::size_t{128} << 20;
};

/// Takes the rows of an answer as they come.
struct RowTaker {
  /// The rows of the result at `place` begin, whose members so far `result` has.
  std::function<void(std::size_t place, const Json& result)> begin;
  /// The next row, an object of plain values. Returns whether it was let go: one that is kept goes
  /// on to count.
  std::function<bool(Json row)> row;
};

/// The longest request that the daemon takes, in bytes with its newline.
inline constexpr std::size_t kRequestBytes = 65536;

/// One connection to the daemon's control socket. Requests are answered one at a time.
class Connection {
 public:
  /// Connects to the Unix stream socket at `path`, of any length. `stop`, not owned, may be -1:
  /// once it is readable, waiting ends with Interrupted. Throws ClientError.
  explicit Connection(std::string path, int stop = -1, ConnectionLimits limits = {});

  /// Sends `request`, an object, under its "id", a fresh one if it has none, and returns the answer
  /// once it has proved to be an object of that id with "ok" true. Throws RefusedError for an error
  /// object, UsageError for a request that is too long or no UTF-8, and ClientError for everything
  /// else.
  [[nodiscard]] Json Ask(Json request);

  /// As Ask, of an answer with results, which may have any length: its rows go to `taker` as they
  /// come, and the answer returned has none. After an exception, that of `taker` included, the
  /// connection is of no more use, but for RefusedError.
  [[nodiscard]] Json AskRows(Json request, const RowTaker& taker);

 private:
  using TimePoint = std::chrono::steady_clock::time_point;
  class LineStream;

  struct Waiting {
    Json id;             ///< of the request
    TimePoint deadline;  ///< for the next bytes
    TimePoint end;       ///< for all of them
    bool hasBegun;       ///< some have come
  };

  void Connect();
  void Send(std::string_view line, TimePoint deadline);
  /// Sends the request, under an id.
  [[nodiscard]] Waiting SendRequest(Json request);
  [[nodiscard]] std::string ReceiveLine(Waiting& waiting);
  /// Until when bytes must come from now on.
  [[nodiscard]] TimePoint SilenceEnd(const Waiting& waiting) const;
  /// Appends the next bytes to m_received.
  void ReceiveMore(Waiting& waiting);
  /// Whether an answer, or what has come of it, is one of that id, and good.
  void CheckAnswer(const Json& answer, const Json& id) const;
  [[noreturn]] void FailLong() const;
  void Await(short events, TimePoint deadline) const;
  [[noreturn]] void FailLate() const;
  [[noreturn]] void FailConnect(int error) const;
  [[nodiscard]] std::string Where() const;

  std::string m_path;
  int m_stop;
  ConnectionLimits m_limits;
  Descriptor m_socket;
  std::string m_received;  ///< bytes that follow the last line taken
  std::uint64_t m_lastId = 0;
};

/// Parses one answer line. Nesting and the number of an object's members are bounded, so that no
/// line can take more than time and memory in its own measure. Throws ClientError.
[[nodiscard]] Json ParseAnswer(std::string_view line);
