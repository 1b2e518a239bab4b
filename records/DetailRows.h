#pragma once

#include <cstdint>

#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/OsCalls.h"

/// Gives the event a record for each source, in their order: the row that `rowOf(source, now)`
/// makes, all of one time. `file` and `line` are the place that tells how many they were.
template <class Record, class Sources, class RowOf>
void BuildDetailRows(Sources&& sources, CMBRecordRequestEvent& event, const RowOf& rowOf,
                     const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  int count = 0;
  for (const auto& source : sources) {
    const Record row = rowOf(source, now);
    DumpRecord(row, count++);
    event.AddRecord(std::make_unique<typename RecordTraits<Record>::Class>(&row));
  }
  RecordBuilder::TraceCreated(file, line, RecordTraits<Record>::kName, count);
}
