#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

/// Memory for what the I/O library keeps of one wait, taken beforehand, so that waiting again can't
/// fail for want of some. For one thread. A second wait beside the first, or a larger one, has its
/// own from the allocator.
class WaitRoom {
 public:
  void* Take(std::size_t size) {
    if (m_isTaken || size > kSize) {
      return ::operator new(size);
    }
    m_isTaken = true;
    return m_bytes.data();
  }
  void Give(void* memory) noexcept {
    if (memory == m_bytes.data()) {
      m_isTaken = false;
    } else {
      ::operator delete(memory);
    }
  }

 private:
  static constexpr std::size_t kSize = 256;
  alignas(std::max_align_t) std::array<std::byte, kSize> m_bytes;
  bool m_isTaken = false;
};

/// The allocator that has the library take such a room; each copy holds it. It is not moved: the
/// library gives memory back by the handler that it has moved from.
template <class T>
class WaitAllocator {
 public:
  using value_type = T;

  explicit WaitAllocator(std::shared_ptr<WaitRoom> room) noexcept : m_room(std::move(room)) {}
  WaitAllocator(const WaitAllocator&) noexcept = default;
  WaitAllocator& operator=(const WaitAllocator&) noexcept = default;
  ~WaitAllocator() = default;
  template <class Other>
  explicit(false) WaitAllocator(const WaitAllocator<Other>& other) noexcept
      : m_room(other.Room()) {}

  T* allocate(std::size_t count) { return static_cast<T*>(m_room->Take(count * sizeof(T))); }
  void deallocate(T* memory, std::size_t) noexcept { m_room->Give(memory); }
  [[nodiscard]] const std::shared_ptr<WaitRoom>& Room() const noexcept { return m_room; }
  friend bool operator==(const WaitAllocator& one, const WaitAllocator& other) noexcept {
    return one.m_room == other.m_room;
  }

 private:
  std::shared_ptr<WaitRoom> m_room;
};

/// A handler of the library's whose wait lies in a room.
template <class Handler>
class RoomedHandler {
 public:
  using allocator_type = WaitAllocator<std::byte>;

  RoomedHandler(std::shared_ptr<WaitRoom> room, Handler handler)
      : m_room(std::move(room)), m_handler(std::move(handler)) {}

  [[nodiscard]] allocator_type get_allocator() const noexcept { return m_room; }
  template <class... Arguments>
  void operator()(Arguments&&... arguments) {
    m_handler(std::forward<Arguments>(arguments)...);
  }

 private:
  allocator_type m_room;
  Handler m_handler;
};

template <class Handler>
[[nodiscard]] RoomedHandler<std::decay_t<Handler>> InRoom(std::shared_ptr<WaitRoom> room,
                                                          Handler&& handler) {
  return {std::move(room), std::forward<Handler>(handler)};
}
