#pragma once

#include <sys/ipc.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/UtlError.h"

/// Seconds since 1970 as the System V structures hold them.
struct IPCTime {
  std::int64_t seconds = 0;
  std::uint64_t reserved = 0;  ///< always 0
};

/// The fields that every object has of its owner and its rights.
template <class Record>
void FillPermissions(Record& record, const ::ipc_perm& permissions) {
  record.key = permissions.__key;
  record.cuid = permissions.cuid;
  record.cgid = permissions.cgid;
  record.uid = permissions.uid;
  record.gid = permissions.gid;
  record.mode = static_cast<std::uint16_t>(permissions.mode);
}

/// One kind of System V object: its two commands, each of which returns -1 with errno on failure.
template <class Description>
struct IPCKind {
  /// The highest slot in use (SEM_INFO and kin).
  int (*highestSlot)();
  /// Fills the description of a slot's object and returns the object's id (SEM_STAT and kin).
  int (*describe)(int slot, Description& description);
  const char* infoFailed;
  const char* noneConfigured;
};

/// One object as it was taken.
template <class Description>
struct IPCObject {
  int id = -1;
  int slot = 0;
  Description description{};
};

/// The objects of one kind, taken once from the kernel's table of slots.
template <class Description>
class IPCWalk {
 public:
  using Object = IPCObject<Description>;

  /// Takes all objects that this process may see. One that vanishes meanwhile keeps a zero
  /// description; objects that appear meanwhile may be left out. Null, or an error that the caller
  /// owns: the table cannot be asked, or is empty.
  [[nodiscard]] UtlError* Take(const IPCKind<Description>& kind) {
    const int maxIndex = kind.highestSlot();
    if (maxIndex < 0) {
      return new UtlError(kind.infoFailed, __FILE__, __LINE__);
    }
    Description ignored{};
    if (maxIndex == 0 && kind.describe(0, ignored) < 0) {
      return new UtlError(kind.noneConfigured, __FILE__, __LINE__);
    }
    const auto count = static_cast<std::size_t>(std::max(0, CountObjects(kind, maxIndex)));
    m_objects.reserve(count);
    for (int slot = 0; slot <= maxIndex && m_objects.size() < count; ++slot) {
      if (const int id = kind.describe(slot, ignored); id >= 0) {
        m_objects.push_back({id, slot, {}});
      }
    }
    for (Object& object : m_objects) {
      if (kind.describe(object.slot, object.description) < 0) {
        object.description = {};
      }
    }
    return nullptr;
  }

  /// The current object; null behind the last.
  [[nodiscard]] const Object* Current() const {
    return m_current < m_objects.size() ? &m_objects[m_current] : nullptr;
  }
  void Advance() { ++m_current; }

 private:
  static int CountObjects(const IPCKind<Description>& kind, int maxIndex) {
    Description ignored{};
    int count = 0;
    for (int slot = 0; slot <= maxIndex; ++slot) {
      count += kind.describe(slot, ignored) >= 0 ? 1 : 0;
    }
    return count;
  }

  std::vector<Object> m_objects;
  std::size_t m_current = 0;
};
