#include "local/control/ControlConnection.h"

#include <poll.h>

#include <asio/buffer.hpp>
#include <asio/write.hpp>
#include <new>
#include <string_view>
#include <utility>

#include "json/JsonText.h"
#include "local/control/ControlSocket.h"

namespace {

/// A buffer that held more gives its memory back.
constexpr std::size_t kKeptCapacity = std::size_t{256} << 10;
/// A client's patience lasts for so many bytes of what it is sent.
constexpr std::size_t kSliceSize = std::size_t{64} << 10;

bool IsHungUp(int descriptor) {
  ::pollfd state{descriptor, 0, 0};
  return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace

ControlConnection::ControlConnection(const Surroundings& surroundings,
                                     std::unique_ptr<Socket> socket, PeerIdentity peer,
                                     Rights rights, bool isGate)
    : m_around(surroundings),
      m_socket(std::move(socket)),
      m_peer(std::move(peer)),
      m_rights(rights),
      m_isGate(isGate),
      m_patience(m_around.loop) {}

ControlConnection::~ControlConnection() = default;

void ControlConnection::Start() {
  WatchHangUp();
  Read();
}

void ControlConnection::Close() {
  if (std::exchange(m_isClosed, true)) {
    return;
  }
  m_patience.Cancel();
  asio::error_code ignored;
  m_socket->stream.close(ignored);
  const auto self = shared_from_this();
  m_around.onClosed(*this);
  // What is being written is counted until the library lets it go.
  m_around.budget.used -= m_pending.size();
  m_pending.clear();
  if (m_pieces) {
    m_around.loop.Retire(std::make_shared<AnswerPieces>(std::exchange(m_pieces, nullptr)));
  }
  m_around.loop.Retire(std::move(m_requests));
}

template <class Action>
void ControlConnection::Guarded(Action action) {
  try {
    action();
  } catch (const std::bad_alloc&) {
    // A client whose socket nobody reads or writes any more would wait without end.
    Close();
    TellDropped("no memory");
  }
}

void ControlConnection::WatchHangUp() {
  // Completes when both directions are shut. A client that has only ended its requests still gets
  // its answers.
  m_socket->stream.async_wait(asio::socket_base::wait_error,
                              [self = shared_from_this()](asio::error_code error) {
                                if (error || self->m_isClosed) {
                                  return;
                                }
                                // The library may wake a socket with what happened to an earlier
                                // one of the same number.
                                self->m_isGone = IsHungUp(self->m_socket->stream.native_handle());
                                if (!self->m_isGone) {
                                  self->Guarded([&] { self->WatchHangUp(); });
                                } else if (self->m_isWithoutEnd) {
                                  // At rest it would never find out by a write.
                                  self->Close();
                                }
                              });
}

void ControlConnection::Read() {
  m_socket->stream.async_read_some(
      asio::buffer(m_chunk), [self = shared_from_this()](asio::error_code error, std::size_t size) {
        if (!self->m_isClosed) {
          self->m_isEnded = bool(error);
          self->Guarded([&] { self->OnRead(size); });
        }
      });
}

void ControlConnection::OnRead(std::size_t size) {
  if (!m_isEnded) {
    m_input.Append({m_chunk.data(), size});
  }
  ServeNextLine();
}

void ControlConnection::ServeNextLine() {
  std::string line;
  switch (m_input.Next(line)) {
    case LineBuffer::Found::kLine:
      ServeLine(line);
      break;
    case LineBuffer::Found::kTooLong: {
      const ControlError error{
          "too-long", "the line is longer than " + std::to_string(kMaxLine) + " bytes", ""};
      Answer(JsonText(Json{{"ok", false}, {"error", ErrorJson(error)}}));
      break;
    }
    case LineBuffer::Found::kNothing:
      m_isEnded ? Close() : Read();
      break;
  }
}

void ControlConnection::ServeLine(const std::string& line) {
  m_isServing = true;
  if (m_around.isStopping) {
    Serve(line);
    return;
  }
  const auto serve = [self = shared_from_this(), line] { self->Serve(line); };
  LoopTask task;
  task.run = [serve](CMBNode&) { serve(); };
  // The operations know by themselves that the daemon stops.
  task.drop = serve;
  m_around.loop.Post(std::move(task));
}

void ControlConnection::Serve(const std::string& line) {
  if (m_isClosed) {
    return;
  }
  try {
    m_around.operations.Handle(line, shared_from_this());
  } catch (const std::bad_alloc&) {
    if (m_isServing) {
      ControlRequest(Json::Object(), shared_from_this()).FailForMemory();
    } else {
      Close();
    }
  }
}

void ControlConnection::Answer(std::string line) {
  line += '\n';
  End(std::move(line));
}

void ControlConnection::AnswerRaw(std::string line, std::string bytes) {
  line += '\n';
  bytes.insert(0, line);
  End(std::move(bytes));
}

void ControlConnection::End(std::string answer) {
  m_isServing = false;
  if (m_isClosed) {
    return;
  }
  if (m_isGone && m_around.isStopping) {
    // Its other lines are served right here, one within the other, and nothing is done for any.
    Close();
    return;
  }
  if (m_isGone) {
    ServeNextLine();
    return;
  }
  Put(std::move(answer));
}

void ControlConnection::AnswerInPieces(AnswerPieces pieces) {
  if (m_isClosed || m_isGone) {
    Answer("");
    return;
  }
  m_pieces = std::move(pieces);
  try {
    SendPiece();
  } catch (const std::bad_alloc&) {
    // Nothing has gone out yet.
    m_pieces = nullptr;
    m_isWithoutEnd = false;
    throw;
  }
}

void ControlConnection::SendPiece() {
  std::string piece;
  const bool isMore = m_pieces(piece);
  if (m_isWithoutEnd) {
    m_isAtRest = !isMore;
    if (m_isAtRest && piece.empty()) {
      return;
    }
  } else if (!isMore) {
    piece += '\n';
    m_pieces = nullptr;
    m_isServing = false;
  }
  Put(std::move(piece));
}

void ControlConnection::SendFurtherPiece() {
  // Half of an answer can't be taken back.
  Guarded([this] { SendPiece(); });
}

void ControlConnection::AnswerWithoutEnd(AnswerPieces pieces) {
  m_isWithoutEnd = true;
  if (m_isGone) {
    Close();
    return;
  }
  AnswerInPieces(std::move(pieces));
}

void ControlConnection::Continue() {
  if (m_isClosed || !m_isAtRest) {
    return;
  }
  LoopTask task;
  task.run = [self = shared_from_this()](CMBNode&) { self->SendRest(); };
  m_around.loop.Post(std::move(task));
  // Without memory for the task it rests on, and the next call tries again.
  m_isAtRest = false;
}

void ControlConnection::SendRest() {
  // What goes out now asks for the next piece when it is gone.
  if (!m_isClosed && m_inFlight.empty()) {
    SendFurtherPiece();
  }
}

void ControlConnection::Put(std::string text) {
  OutputBudget& budget = m_around.budget;
  if (text.size() > budget.limit - budget.used) {
    Close();
    TellDropped("more than " + std::to_string(budget.limit) + " bytes of answers wait for clients");
    return;
  }
  const std::size_t size = text.size();
  m_around.operations.Memory().NoteBytes(size);
  if (m_pending.empty()) {
    m_pending = std::move(text);
  } else {
    m_pending += text;
  }
  // What could not be added is not counted.
  budget.used += size;
  if (m_inFlight.empty()) {
    Write();
  }
}

void ControlConnection::TellDropped(const std::string& why) {
  m_around.report("A control client (process " + std::to_string(m_peer.process) + ", user " +
                  std::to_string(m_peer.user) + ") is dropped: " + why + ".");
}

void ControlConnection::Write() {
  m_inFlight.swap(m_pending);
  WriteSlice();
}

void ControlConnection::WriteSlice() {
  try {
    BeginSlice();
  } catch (const std::bad_alloc&) {
    OnWritten();
    Close();
  }
}

void ControlConnection::BeginSlice() {
  m_patience.After(m_around.patience, [this] { OnImpatience(); });
  const std::string_view slice = std::string_view(m_inFlight).substr(m_written, kSliceSize);
  asio::async_write(m_socket->stream, asio::buffer(slice),
                    [self = shared_from_this()](asio::error_code error, std::size_t size) {
                      self->OnSliceEnd(bool(error), size);
                    });
}

void ControlConnection::OnImpatience() {
  const auto self = shared_from_this();
  Close();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(m_around.patience);
  TellDropped("it has not read on for " + std::to_string(seconds.count()) + " seconds");
}

void ControlConnection::OnSliceEnd(bool isFailed, std::size_t size) {
  m_written += size;
  if (!isFailed && !m_isClosed && m_written < m_inFlight.size()) {
    WriteSlice();
    return;
  }
  OnWritten();
  if (!m_isClosed) {
    OnWriteEnd(isFailed);
  }
}

void ControlConnection::OnWriteEnd(bool isFailed) {
  if (isFailed) {
    Close();
  } else if (m_pieces) {
    if (!m_isAtRest) {
      SendFurtherPiece();
    }
  } else if (!m_isServing) {
    Guarded([this] { ServeNextLine(); });
  }
}

void ControlConnection::OnWritten() {
  m_patience.Cancel();
  m_around.budget.used -= m_inFlight.size();
  m_written = 0;
  if (m_inFlight.capacity() > kKeptCapacity) {
    std::string().swap(m_inFlight);
  } else {
    m_inFlight.clear();
  }
}
