#include "node/FigureRegistry.h"

#include <algorithm>

FigureRegistry& FigureRegistry::Instance() {
  static FigureRegistry registry;
  return registry;
}

void FigureRegistry::Add(Figure figure) {
  const auto place = std::find_if(m_figures.begin(), m_figures.end(),
                                  [&](const Figure& other) { return other.name == figure.name; });
  if (place != m_figures.end()) {
    *place = std::move(figure);
  } else {
    m_figures.push_back(std::move(figure));
  }
}

void FigureRegistry::SetFact(const std::string& name, std::string text) {
  const auto place = std::find_if(m_facts.begin(), m_facts.end(),
                                  [&](const Fact& other) { return other.name == name; });
  if (place != m_facts.end()) {
    place->text = std::move(text);
  } else {
    m_facts.push_back({name, std::move(text)});
  }
}
