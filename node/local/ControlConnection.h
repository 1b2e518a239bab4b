#pragma once

#include <array>
#include <asio/local/stream_protocol.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "node/local/ControlOperations.h"
#include "node/local/LineBuffer.h"
#include "node/local/ProblemReport.h"

/// One client's connection. Lines are served one after the other: while one is under way nothing
/// more is read. Made and held by shared pointers.
class ControlConnection : public ControlPeer,
                          public std::enable_shared_from_this<ControlConnection> {
 public:
  /// Bytes of a request line with its newline.
  static constexpr std::size_t kMaxLine = 65536;

  /// What a connection works with; all of it outlives the connection.
  struct Surroundings {
    EventLoop& loop;
    ControlOperations& operations;
    std::size_t maxOutput;  ///< bytes of answers that may wait
    ProblemReport report;
    std::function<void(ControlConnection&)> onClosed;
  };

  ControlConnection(const Surroundings& surroundings, asio::local::stream_protocol::socket socket,
                    PeerIdentity peer, Rights rights);

  void Start();
  /// Ends the connection at once. The client's requests are freed when no task runs.
  void Close();
  [[nodiscard]] bool HasOutput() const { return !m_isClosed && OutputSize() != 0; }

  [[nodiscard]] Rights PeerRights() const override { return m_rights; }
  [[nodiscard]] bool IsGone() const override { return m_isGone || m_isClosed; }
  [[nodiscard]] std::size_t OutputLimit() const override { return m_around.maxOutput; }
  [[nodiscard]] RequestBook& Requests() override { return *m_requests; }
  void Answer(std::string line) override;

 private:
  void WatchHangUp();
  void Read();
  void ServeNextLine();
  void ServeLine(const std::string& line);
  void Put(std::string line);
  void Write();
  [[nodiscard]] std::size_t OutputSize() const { return m_pending.size() + m_inFlight.size(); }

  const Surroundings& m_around;
  asio::local::stream_protocol::socket m_socket;
  PeerIdentity m_peer;
  Rights m_rights;
  std::shared_ptr<RequestBook> m_requests = std::make_shared<RequestBook>();
  std::array<char, 16384> m_chunk{};
  LineBuffer m_input{kMaxLine};
  std::string m_pending;   ///< answers that wait for the write under way
  std::string m_inFlight;  ///< what is being written
  bool m_isServing = false;
  bool m_isEnded = false;  ///< the client sends nothing more
  bool m_isGone = false;   ///< the client reads nothing more
  bool m_isClosed = false;
};
