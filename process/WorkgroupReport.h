#pragma once

#include "collect/Collector.h"
#include "node/ReportRegistry.h"
#include "userdata/WorkGroup.h"

/// Publishes the report "workgroups" for its own life: which rule of which workgroup takes which
/// process of a list that is collected at once. Arguments, both optional: `name` of a workgroup,
/// `pid` of a process.
class WorkgroupReport {
 public:
  /// Both are referred to.
  WorkgroupReport(const WgMap& map, Collector& collector);
  ~WorkgroupReport();
  WorkgroupReport(const WorkgroupReport&) = delete;
  WorkgroupReport& operator=(const WorkgroupReport&) = delete;

 private:
  [[nodiscard]] Report Make(const ReportArguments& arguments) const;

  const WgMap& m_map;
  Collector& m_collector;
};
