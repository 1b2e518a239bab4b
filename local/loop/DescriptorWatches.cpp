#include "local/loop/DescriptorWatches.h"

#include <fcntl.h>
#include <poll.h>

#include <asio/posix/stream_descriptor.hpp>
#include <cerrno>
#include <new>

#include "io/WaitRoom.h"

namespace {

/// Whether a read would not block: there are bytes, or it is the end.
bool IsReadable(int descriptor) {
  ::pollfd state{descriptor, POLLIN, 0};
  return ::poll(&state, 1, 0) > 0;
}

}  // namespace

struct DescriptorWatches::Entry {
  explicit Entry(asio::io_context& io) : stream(io) {}
  // The owner closes the descriptor.
  ~Entry() { Release(); }
  Entry(const Entry&) = delete;
  Entry& operator=(const Entry&) = delete;

  void Release() {
    if (stream.is_open()) {
      stream.release();
    }
  }

  asio::posix::stream_descriptor stream;
  std::shared_ptr<WaitRoom> room = std::make_shared<WaitRoom>();
  int number = -1;
  bool isWatched = true;
};

DescriptorWatches::DescriptorWatches(EventLoop& loop, ProblemReport report)
    : m_loop(loop), m_report(std::move(report)) {}

DescriptorWatches::~DescriptorWatches() = default;

int DescriptorWatches::Watch(int descriptor) {
  Unwatch(descriptor);
  const int flags = ::fcntl(descriptor, F_GETFL);
  if (flags < 0) {
    return errno;
  }
  auto entry = std::make_shared<Entry>(m_loop.Io());
  asio::error_code error;
  entry->stream.assign(descriptor, error);
  if (error) {
    return error.value();
  }
  entry->number = descriptor;
  m_entries[descriptor] = entry;
  Arm(entry);
  // The first wait made the descriptor non-blocking, which a wait has no need of and which its
  // owner has not asked for.
  ::fcntl(descriptor, F_SETFL, flags);
  return 0;
}

int DescriptorWatches::Unwatch(int descriptor) {
  const auto place = m_entries.find(descriptor);
  if (place == m_entries.end()) {
    return 1;
  }
  place->second->isWatched = false;
  place->second->Release();
  m_entries.erase(place);
  return 0;
}

void DescriptorWatches::Arm(const std::shared_ptr<Entry>& entry) {
  entry->stream.async_wait(
      asio::posix::stream_descriptor::wait_read,
      InRoom(entry->room, [this, weak = std::weak_ptr<Entry>(entry)](asio::error_code error) {
        if (const std::shared_ptr<Entry> watched = weak.lock(); watched && watched->isWatched) {
          OnReadable(watched, error);
        }
      }));
}

void DescriptorWatches::OnReadable(const std::shared_ptr<Entry>& entry,
                                   const std::error_code& error) {
  if (error) {
    m_report("Descriptor " + std::to_string(entry->number) +
             " can't be watched: " + error.message());
    Unwatch(entry->number);
    return;
  }
  // The library may wake a descriptor with what happened to an earlier one of the same number.
  if (!IsReadable(entry->number)) {
    Arm(entry);
    return;
  }
  try {
    PostEvent(entry);
  } catch (const std::bad_alloc&) {
    // What is to be read is there still.
    Arm(entry);
    throw;
  }
}

void DescriptorWatches::PostEvent(const std::shared_ptr<Entry>& entry) {
  LoopTask task;
  task.run = [this, weak = std::weak_ptr<Entry>(entry)](CMBNode& node) {
    const std::shared_ptr<Entry> watched = weak.lock();
    if (!watched || !watched->isWatched) {
      return;
    }
    CMBSocketEvent event(watched->number);
    node.Dispatch(&event);
    if (watched->isWatched) {
      Arm(watched);
    }
  };
  task.fail = [this, weak = std::weak_ptr<Entry>(entry)] {
    if (const std::shared_ptr<Entry> watched = weak.lock(); watched && watched->isWatched) {
      Arm(watched);
    }
  };
  m_loop.Post(std::move(task));
}
