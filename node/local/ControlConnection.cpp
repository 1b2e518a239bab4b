#include "node/local/ControlConnection.h"

#include <asio/buffer.hpp>
#include <asio/write.hpp>
#include <utility>

using Socket = asio::local::stream_protocol::socket;

ControlConnection::ControlConnection(const Surroundings& surroundings, Socket socket,
                                     PeerIdentity peer, Rights rights)
    : m_around(surroundings),
      m_socket(std::move(socket)),
      m_peer(std::move(peer)),
      m_rights(rights) {}

void ControlConnection::Start() {
  WatchHangUp();
  Read();
}

void ControlConnection::Close() {
  if (std::exchange(m_isClosed, true)) {
    return;
  }
  asio::error_code ignored;
  m_socket.close(ignored);
  m_pending.clear();
  m_around.loop.Retire(std::move(m_requests));
  m_around.onClosed(*this);
}

void ControlConnection::WatchHangUp() {
  // Completes when both directions are shut. A client that has only ended its requests still gets
  // its answers.
  m_socket.async_wait(Socket::wait_error, [self = shared_from_this()](asio::error_code error) {
    if (!error) {
      self->m_isGone = true;
    }
  });
}

void ControlConnection::Read() {
  m_socket.async_read_some(asio::buffer(m_chunk),
                           [self = shared_from_this()](asio::error_code error, std::size_t size) {
                             if (self->m_isClosed) {
                               return;
                             }
                             if (error) {
                               self->m_isEnded = true;
                             } else {
                               self->m_input.Append({self->m_chunk.data(), size});
                             }
                             self->ServeNextLine();
                           });
}

void ControlConnection::ServeNextLine() {
  std::string line;
  LineBuffer::Found found = m_input.Next(line);
  for (; found == LineBuffer::Found::kTooLong && !m_isClosed; found = m_input.Next(line)) {
    const ControlError error{"too-long",
                             "the line is longer than " + std::to_string(kMaxLine) + " bytes", ""};
    Put(JsonText(Json{{"ok", false}, {"error", ErrorJson(error)}}));
  }
  if (m_isClosed) {
    return;
  }
  if (found == LineBuffer::Found::kLine) {
    ServeLine(line);
  } else if (!m_isEnded) {
    Read();
  } else if (OutputSize() == 0) {
    Close();
  }
}

void ControlConnection::ServeLine(const std::string& line) {
  m_isServing = true;
  const auto serve = [self = shared_from_this(), line] {
    if (!self->m_isClosed) {
      self->m_around.operations.Handle(line, self);
    }
  };
  LoopTask task;
  task.run = [serve](CMBNode&) { serve(); };
  // The operations know by themselves that the daemon stops.
  task.drop = serve;
  m_around.loop.Post(std::move(task));
}

void ControlConnection::Answer(std::string line) {
  m_isServing = false;
  if (m_isClosed) {
    return;
  }
  if (!m_isGone) {
    Put(std::move(line));
  }
  if (!m_isClosed) {
    ServeNextLine();
  }
}

void ControlConnection::Put(std::string line) {
  line += '\n';
  if (OutputSize() + line.size() > m_around.maxOutput) {
    m_around.report("A control client (process " + std::to_string(m_peer.process) + ", user " +
                    std::to_string(m_peer.user) + ") is dropped: more than " +
                    std::to_string(m_around.maxOutput) + " bytes of answers wait for it.");
    Close();
    return;
  }
  m_pending += line;
  if (m_inFlight.empty()) {
    Write();
  }
}

void ControlConnection::Write() {
  m_inFlight.swap(m_pending);
  asio::async_write(m_socket, asio::buffer(m_inFlight),
                    [self = shared_from_this()](asio::error_code error, std::size_t) {
                      self->m_inFlight.clear();
                      if (self->m_isClosed) {
                        return;
                      }
                      if (error) {
                        self->Close();
                      } else if (!self->m_pending.empty()) {
                        self->Write();
                      } else if (self->m_isEnded && !self->m_isServing) {
                        self->ServeNextLine();
                      }
                    });
}
