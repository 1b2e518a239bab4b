#pragma once

#include "json/Json.h"
#include "node/FigureRegistry.h"

/// What the agent says of itself in words: {"host_profile": "classic"}.
[[nodiscard]] inline Json FactsJson() {
  Json facts = Json::Object();
  for (const Fact& fact : FigureRegistry::Instance().Facts()) {
    facts.Members().push_back({fact.name, fact.text});
  }
  return facts;
}
