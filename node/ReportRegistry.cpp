#include "node/ReportRegistry.h"

#include <utility>

ReportRegistry& ReportRegistry::Instance() {
  static ReportRegistry registry;
  return registry;
}

void ReportRegistry::Add(const std::string& name, ReportFunction function) {
  m_reports.insert_or_assign(name, std::move(function));
}

void ReportRegistry::Remove(const std::string& name) { m_reports.erase(name); }

const ReportFunction* ReportRegistry::Find(const std::string& name) const {
  const auto found = m_reports.find(name);
  return found == m_reports.end() ? nullptr : &found->second;
}
