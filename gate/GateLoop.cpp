#include "gate/GateLoop.h"

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <csignal>
#include <exception>
#include <new>
#include <utility>

#include "gate/GateLog.h"

namespace {

/// The words on it may want some themselves.
void LogNoMemory() {
  try {
    GateLog(
        "out of memory: what was asked for is left out, and tried again where it is the gate's");
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace

struct GateLoop::Library {
  explicit Library(asio::io_context& io) : work(io.get_executor()), signals(io) {}

  asio::executor_work_guard<asio::io_context::executor_type> work;
  asio::signal_set signals;
};

GateLoop::GateLoop() : m_library(std::make_unique<Library>(Io())) {}

GateLoop::~GateLoop() = default;

void GateLoop::Run() {
  while (!Io().stopped()) {
    try {
      Io().run();
    } catch (const std::bad_alloc&) {
      LogNoMemory();
    } catch (const std::exception& error) {
      // What one reader or question could not be given must not end the others.
      GateLog(error.what());
    }
  }
  // So that it may run again.
  Io().restart();
}

void GateLoop::Stop() { Io().stop(); }

void GateLoop::StopBySignals() {
  m_library->signals.add(SIGTERM);
  m_library->signals.add(SIGINT);
  m_library->signals.async_wait([this](asio::error_code error, int) {
    if (!error) {
      Stop();
    }
  });
}

void GateLoop::Post(std::function<void()> action) { asio::post(Io(), std::move(action)); }

void GateLoop::After(std::chrono::milliseconds time, std::function<void()> action) {
  const auto timer = std::make_shared<asio::steady_timer>(Io(), time);
  timer->async_wait([timer, action = std::move(action)](asio::error_code error) {
    if (!error) {
      action();
    }
  });
}
