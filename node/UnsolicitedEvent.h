#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "node/BusService.h"
#include "node/Event.h"
#include "node/Trace.h"

template <class RecType>
class CMBRecordEvent : public CMBEvent {
 public:
  explicit CMBRecordEvent(CMBMessage* message) : CMBEvent(message) {}
};

/// A record that the framework sends without being asked. Owns its records.
template <class RecType>
class CMBUnsolicitedEvent : public CMBRecordEvent<RecType> {
 public:
  explicit CMBUnsolicitedEvent(CMBMessage* message = nullptr)
      : CMBRecordEvent<RecType>(message), m_name(MakeName()) {}

  [[nodiscard]] const char* IsA() const override { return m_name.get(); }
  [[nodiscard]] void* GetThis() override { return this; }

  /// Acknowledges messages of kind 1, 5 and 6 through the node's bus. Returns 0 in every case.
  int Execute(CMBNode* node, int, void* data, _tagMBMessageHeader* header, int length) override {
    AcknowledgeMessage(node, data, header, length);
    return 0;
  }

  std::vector<RecType> m_records;

 private:
  struct Free {
    void operator()(char* text) const { std::free(text); }
  };
  using Name = std::unique_ptr<char, Free>;

  static Name MakeName() {
    const RecType sample;
    const std::size_t size = std::strlen(sample.IsA()) + 22;
    Name name(static_cast<char*>(std::malloc(size)));
    if (!name) {
      MBDebugAssertLog("pszIsA", "UnsolicitedEvent.h", 239);
      std::abort();
    }
    std::snprintf(name.get(), size, "CMBUnsolicitedEvent::%s", sample.IsA());
    return name;
  }

  Name m_name;
};
