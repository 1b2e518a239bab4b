#pragma once

#include "node/FigureRegistry.h"
#include "tests/support/Testing.h"

/// What the agent has to say of itself under that name; -1, and a failure, if nothing.
inline double FigureOf(const std::string& name) {
  for (const Figure& figure : FigureRegistry::Instance().Figures()) {
    if (figure.name == name) {
      return figure.read();
    }
  }
  ADD_FAILURE() << "no figure " << name;
  return -1.0;
}
