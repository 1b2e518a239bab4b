#pragma once

#include "node/Event.h"

/// The time for the daily scan of the file systems has come.
class UFSSEvent : public CMBEvent {
 public:
  UFSSEvent() : CMBEvent(nullptr) {}
  [[nodiscard]] const char* IsA() const override { return "UFSSEvent"; }
  [[nodiscard]] void* GetThis() override { return this; }
};
