#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "io/LoopTimer.h"
#include "local/control/ControlOperations.h"
#include "local/control/LineBuffer.h"
#include "local/log/ProblemReport.h"

/// Bytes of answers that wait for all clients together.
struct OutputBudget {
  std::size_t limit;
  std::size_t used = 0;
};

/// One client's connection. Lines are served one after the other: while one is under way, or its
/// answer has not been taken, nothing more is read. Made and held by shared pointers.
class ControlConnection : public ControlPeer,
                          public std::enable_shared_from_this<ControlConnection> {
 public:
  /// Bytes of a request line with its newline.
  static constexpr std::size_t kMaxLine = 65536;

  /// What a connection works with; all of it outlives the connection.
  struct Surroundings {
    EventLoop& loop;
    ControlOperations& operations;
    OutputBudget& budget;
    ProblemReport report;
    std::chrono::milliseconds patience;  ///< with a client that takes none of what it is sent
    std::function<void(ControlConnection&)> onClosed;
    bool isStopping = false;  ///< the loop runs no task any more
  };

  struct Socket;

  ControlConnection(const Surroundings& surroundings, std::unique_ptr<Socket> socket,
                    PeerIdentity peer, Rights rights, bool isGate);
  ~ControlConnection() override;

  void Start();
  /// Ends the connection at once. The client's requests are freed when no task runs.
  void Close();
  /// Whether the client has not taken all of what it asked for; an answer without end is not
  /// waited for.
  [[nodiscard]] bool HasOutput() const {
    return !m_isClosed && (OutputSize() != 0 || (m_pieces && !m_isWithoutEnd));
  }

  [[nodiscard]] const PeerIdentity& Peer() const { return m_peer; }
  [[nodiscard]] Rights PeerRights() const override { return m_rights; }
  [[nodiscard]] bool IsGate() const override { return m_isGate; }
  [[nodiscard]] bool IsGone() const override { return m_isGone || m_isClosed; }
  [[nodiscard]] RequestBook& Requests() override { return *m_requests; }
  void Answer(std::string line) override;
  void AnswerInPieces(AnswerPieces pieces) override;
  void AnswerRaw(std::string line, std::string bytes) override;
  void AnswerWithoutEnd(AnswerPieces pieces) override;
  void Continue() override;
  void Abandon() override { Close(); }

 private:
  void WatchHangUp();
  void Read();
  void ServeNextLine();
  void ServeLine(const std::string& line);
  void Serve(const std::string& line);
  void SendPiece();
  void SendFurtherPiece();
  /// Runs what the library or the loop has called; the connection ends where memory does.
  template <class Action>
  void Guarded(Action action);
  void OnRead(std::size_t size);
  void OnWriteEnd(bool isFailed);
  /// Ends the request under way.
  void End(std::string answer);
  /// The turn of the loop after a Continue.
  void SendRest();
  void Put(std::string text);
  void Write();
  void WriteSlice();
  void BeginSlice();
  void OnSliceEnd(bool isFailed, std::size_t size);
  void OnImpatience();
  void OnWritten();
  /// Says in the log why the connection has been ended. The end comes first: there may be no memory
  /// for words.
  void TellDropped(const std::string& why);
  [[nodiscard]] std::size_t OutputSize() const { return m_pending.size() + m_inFlight.size(); }

  const Surroundings& m_around;
  std::unique_ptr<Socket> m_socket;
  PeerIdentity m_peer;
  Rights m_rights;
  bool m_isGate;
  std::shared_ptr<RequestBook> m_requests = std::make_shared<RequestBook>();
  LoopTimer m_patience;  ///< runs while a slice is being written
  std::array<char, 16384> m_chunk{};
  LineBuffer m_input{kMaxLine};
  std::string m_pending;      ///< answers that wait for the write under way
  std::string m_inFlight;     ///< what is being written
  std::size_t m_written = 0;  ///< bytes of it that are
  AnswerPieces m_pieces;      ///< the rest of an answer, if it comes in pieces
  bool m_isServing = false;
  bool m_isWithoutEnd = false;  ///< `m_pieces` may be asked again when they have ended
  bool m_isAtRest = false;      ///< they have ended, and Continue has not been called since
  bool m_isEnded = false;       ///< the client sends nothing more
  bool m_isGone = false;        ///< the client reads nothing more
  bool m_isClosed = false;
};
