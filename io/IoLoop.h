#pragma once

#include <memory>

namespace asio {
class io_context;
}

/// The I/O library's loop, which a loop of one of the programs is built on: what waits for
/// descriptors and times asks for this much alone.
class IoLoop {
 public:
  IoLoop(const IoLoop&) = delete;
  IoLoop& operator=(const IoLoop&) = delete;

  /// The library's own loop, for the sources that see the library.
  [[nodiscard]] asio::io_context& Io() { return *m_io; }

 protected:
  IoLoop();
  ~IoLoop();

 private:
  std::unique_ptr<asio::io_context> m_io;
};
