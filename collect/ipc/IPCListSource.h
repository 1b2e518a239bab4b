#pragma once

#include <cstdint>
#include <vector>

#include "collect/Source.h"
#include "collect/ipc/IPCWalk.h"

/// What the sources of queues, segments and semaphores differ in.
template <class Structure, class Description>
struct IPCSide {
  IPCKind<Description> kind;
  /// How many rows the object gives; it may be one that has vanished.
  std::uint64_t (*rows)(const Description& description);
  /// Fills the row of that number, which counts from 0 in each object.
  void (*fill)(Structure& record, const IPCObject<Description>& object, std::uint64_t number);
  /// In the traces of entry and exit.
  const char* constructor;
  const char* read;
  const char* initializeFailed;
};

/// Reads the rows of all objects of a kind, which are those that there are when the source is made.
/// Fails as a whole if the host has none.
template <class Structure, class Row, class Description,
          const IPCSide<Structure, Description>& side>
class IPCListSource : public PtrSource<Structure, Row, std::vector<Row>> {
 public:
  IPCListSource() {
    TraceEntry(side.constructor);
    ++s_statistics.constructed;
    this->m_pendingError.reset(Initialize());
    if (this->m_pendingError != nullptr) {
      Trace(20, kError, side.initializeFailed, AddressOf(this->m_pendingError.get()));
    }
    TraceExit(side.constructor);
  }
  ~IPCListSource() override { ++s_statistics.destroyed; }

  [[nodiscard]] SourceStatistics& statistics() override { return s_statistics; }

  void read(Structure* record) override {
    TraceEntry(side.read, AddressOf(record));
    this->m_more = false;
    if (this->m_pendingError == nullptr) {
      ReadNextRow(*record);
    }
    TraceExit(side.read);
  }

  /// Takes the objects. Null, or an error that the caller owns.
  [[nodiscard]] UtlError* Initialize() { return m_objects.Take(side.kind); }

 private:
  void ReadNextRow(Structure& record) {
    const IPCObject<Description>* object = m_objects.Current();
    while (object != nullptr && m_number >= side.rows(object->description)) {
      m_number = 0;
      m_objects.Advance();
      object = m_objects.Current();
    }
    if (object != nullptr) {
      side.fill(record, *object, m_number++);
      this->m_more = true;
    }
  }

  inline static SourceStatistics s_statistics;

  IPCWalk<Description> m_objects;
  std::uint64_t m_number = 0;
};
