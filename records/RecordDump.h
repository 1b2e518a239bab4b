#pragma once

#include <string_view>

#include "records/RecordLayouts.h"
#include "support/UtlDebug.h"

template <std::size_t N>
void AppendValue(UtlDebug& line, const Text<N>& value) {
  line.Append(value.view());
}
template <class T>
void AppendValue(UtlDebug& line, const Packed<T>& value) {
  line.Append(static_cast<T>(value));
}

/// Writes the row's values to the data trace in layout order, for row index 0 after a line of the
/// labels. Does nothing while dumps are off.
template <class Record>
void DumpRecord(const Record& record, int rowIndex) {
  if (!UtlDebug::IsDumpEnabled()) {
    return;
  }
  UtlDebug header;
  UtlDebug values;
  VisitFields(record, [&](const char* label, const auto& value, FieldMeaning) {
    if (label != nullptr) {
      header.Append(std::string_view{label});
      AppendValue(values, value);
    }
  });
  if (rowIndex == 0) {
    header.Flush();
  }
  values.Flush();
}
