#pragma once

#include <cstddef>
#include <cstring>
#include <unordered_set>

#include "node/RecordRequest.h"
#include "records/RecordClasses.h"

/// The rows of a request's last answer, found by their identity; owned by the framework.
template <class Record>
class FormerRows {
 public:
  /// Those of another record are left out.
  explicit FormerRows(const CMBRecordRequestEvent& event) {
    for (const CMBRecord* record : event.PreviousRecords()) {
      if (record->GetRecSize() == static_cast<int>(sizeof(Record)) &&
          std::strcmp(record->GetRecType(), RecordTraits<Record>::kName) == 0) {
        m_rows.insert(static_cast<const Record*>(record->GetRecStart()));
      }
    }
  }

  /// The first row of that identity; null for none.
  [[nodiscard]] const Record* Find(const Record& row) const {
    const auto found = m_rows.find(&row);
    return found == m_rows.end() ? nullptr : *found;
  }

 private:
  struct Hash {
    std::size_t operator()(const Record* row) const { return HashOfKeys(*row); }
  };
  struct Equal {
    bool operator()(const Record* a, const Record* b) const { return SameKeys(*a, *b); }
  };

  std::unordered_set<const Record*, Hash, Equal> m_rows;
};
