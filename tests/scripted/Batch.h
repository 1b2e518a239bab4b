#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "node/RecordRequest.h"

/// One asker with one request: what it was answered last time is its previous records.
struct Asker {
  Asker(const std::string& record, unsigned char category, tagPQLAUI how)
      : request(record, category), asker(WithPrevious(how)), event(&asker) {
    event.m_requests.push_back(&request);
  }
  ~Asker() {
    Forget(previous);
    Forget(event.m_records);
  }
  Asker(const Asker&) = delete;
  Asker& operator=(const Asker&) = delete;

  /// The rows of the answer, as their record.
  template <class Row>
  [[nodiscard]] std::vector<Row> Rows() const {
    std::vector<Row> rows;
    for (const CMBRecord* record : event.m_records) {
      rows.push_back(*static_cast<const Row*>(record->GetRecStart()));
    }
    return rows;
  }
  /// The answer becomes the previous records of the next one.
  void NextAnswer() {
    Forget(previous);
    previous.swap(event.m_records);
  }

  CMBRecordRequest request;
  std::list<CMBRecord*> previous;
  tagPQLAUI asker;
  CMBRecordRequestEvent event;

 private:
  tagPQLAUI WithPrevious(tagPQLAUI how) {
    how.previous = &previous;
    return how;
  }
  static void Forget(std::list<CMBRecord*>& records) {
    for (const CMBRecord* record : records) {
      delete record;
    }
    records.clear();
  }
};

/// A batch of askers with one request each.
struct Batch {
  void Add(const std::string& record, unsigned char category, tagPQLAUI how) {
    entries.push_back(std::make_unique<Asker>(record, category, how));
    event.m_events.push_back(&entries.back()->event);
  }

  std::vector<std::unique_ptr<Asker>> entries;
  CMBMultipleRecordRequestEvent event;
};
