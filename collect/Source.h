#pragma once

#include <sys/time.h>

#include <cstdint>
#include <utility>

#include "collect/HostFile.h"
#include "support/OsCalls.h"
#include "support/TimeValues.h"
#include "support/TraceLog.h"
#include "support/UtlError.h"

class Collector;

/// What one source class has done since the process started.
struct SourceStatistics {
  std::uint32_t constructed = 0;
  std::uint32_t destroyed = 0;
  std::uint32_t reads = 0;  ///< completed `read` calls
  tagUTIME readTime;        ///< wall-clock time spent inside `read`
};

/// The base of all sources: one category's way to read the system. A source lives for one run, so
/// whatever it opens is opened afresh each time.
///
/// `XFoo` is the plain structure that one `read` fills, `Foo` the data class on it that builders
/// see; `Foo::name()` is the category's name in the traces of reading.
///
/// How `read` behaves: it sets `m_more` to false first and returns at once if `m_pendingError` is
/// set. With a record filled it sets `m_more` to true. With nothing left it leaves it false, and
/// the structure is dropped. A failure of the whole category goes into `m_pendingError`; one that
/// concerns a single entity is only traced.
template <class XFoo, class Foo, class Container>
class PtrSource {
 public:
  PtrSource() = default;
  PtrSource(const PtrSource&) = delete;
  PtrSource& operator=(const PtrSource&) = delete;
  virtual ~PtrSource() {
    if (m_pendingError != nullptr) {
      m_pendingError->LogError("Source.H", __LINE__);
    }
  }

  /// The one record of the class.
  [[nodiscard]] virtual SourceStatistics& statistics() = 0;
  /// Fills one record, which comes zero-filled.
  virtual void read(XFoo* record) = 0;

  /// Replaces the container's contents by all that the source yields. The caller owns the error;
  /// what was read before it stays in the container.
  [[nodiscard]] UtlError* readAll(Collector* collector, Container& container) {
    m_pCollector = collector;
    container.clear();
    Trace(30, kInformation, "Start read routine for %1 Category.", Foo::name());
    Foo foo{};
    while (m_more) {
      if (UtlError* error = readNext(foo); error != nullptr) {
        m_more = true;
        return error;
      }
      if (m_more) {
        container.push_back(foo);
      }
    }
    m_more = true;
    Trace(30, kInformation, "Completed read routine for %1 Category.", Foo::name());
    return nullptr;
  }

  /// Fills the one object of a category; after an error it holds what was read until then. The
  /// caller owns the error.
  [[nodiscard]] UtlError* readOne(Collector* collector, Foo& foo) {
    m_pCollector = collector;
    Trace(30, kInformation, "Start read routine for %1 Category.", Foo::name());
    if (m_more) {
      if (UtlError* error = readNext(foo); error != nullptr) {
        m_more = true;
        return error;
      }
    }
    m_more = true;
    Trace(30, kInformation, "Completed read routine for %1 Category.", Foo::name());
    return nullptr;
  }

 protected:
  bool m_more = true;
  UtlErrorPtr m_pendingError;
  Collector* m_pCollector = nullptr;

 private:
  UtlError* readNext(XFoo& record) {
    record = XFoo{};
    if (m_more) {
      const tagUTIME begin = Now();
      read(&record);
      statistics().readTime = statistics().readTime + (Now() - begin);
    }
    // A figure made of half a file is worse than none.
    if (UtlErrorPtr error = TakeHostFileError()) {
      m_pendingError = std::move(error);
    }
    if (m_pendingError != nullptr) {
      return m_pendingError.release();
    }
    ++statistics().reads;
    return nullptr;
  }

  static tagUTIME Now() {
    timeval now{};
    Os().gettimeofday(&now);
    return {static_cast<std::int32_t>(now.tv_sec), static_cast<std::int32_t>(now.tv_usec)};
  }
};
