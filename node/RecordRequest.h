#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "node/Event.h"
#include "node/Record.h"

/// What a class keeps with a request between intervals.
class CMBUserObject {
 public:
  CMBUserObject() = default;
  CMBUserObject(const CMBUserObject&) = delete;
  CMBUserObject& operator=(const CMBUserObject&) = delete;
  virtual ~CMBUserObject() = default;
};

/// The record that a request names.
class CMBProductRecordEvent {
 public:
  CMBProductRecordEvent(std::string recordType, unsigned char structType)
      : m_recordType(std::move(recordType)), m_structType(structType) {}
  /// The record's name, "PI", "CPUP" and so on.
  [[nodiscard]] const char* GetRecordType() const { return m_recordType.c_str(); }
  /// The category letter, '4' or '3'.
  [[nodiscard]] unsigned char GetStructType() const { return m_structType; }

 private:
  std::string m_recordType;
  unsigned char m_structType;
};

/// One request for one record type. Owns its user object.
class CMBRecordRequest : public CMBProductRecordEvent {
 public:
  using CMBProductRecordEvent::CMBProductRecordEvent;
  [[nodiscard]] CMBUserObject* GetUserObject() const { return m_userObject.get(); }
  /// Takes ownership; the former object is destroyed.
  void SetUserObject(CMBUserObject* object) { m_userObject.reset(object); }
  /// Values by which a person names rows of the record, such as a process number: what is known of
  /// these is to be of this moment, whatever else is kept from one batch to the next.
  [[nodiscard]] const std::vector<std::string>& NamedRows() const { return m_namedRows; }
  void NameRows(std::vector<std::string> values) { m_namedRows = std::move(values); }

 private:
  std::vector<std::string> m_namedRows;
  std::unique_ptr<CMBUserObject> m_userObject;
};

/// What the framework knows of one asker. Nothing is owned; `previous` may be null.
struct tagPQLAUI {
  /// Non-zero for a one-shot look at current values, 0 for a stored interval.
  int realtime = 0;
  int calcRates = 0;
  /// The rows of this request's last answer.
  std::list<CMBRecord*>* previous = nullptr;
};

/// The requests of one asker, and the list that takes the records built for it. Neither the
/// requests nor the records are owned by the event.
class CMBRecordRequestEvent : public CMBEvent {
 public:
  explicit CMBRecordRequestEvent(tagPQLAUI* asker = nullptr);

  [[nodiscard]] const char* IsA() const override { return "CMBRecordRequestEvent"; }
  [[nodiscard]] void* GetThis() override { return this; }
  [[nodiscard]] int IsRealtime() const { return m_asker.realtime; }
  [[nodiscard]] int ShouldCalcRates() const { return m_asker.calcRates; }
  /// The rows of this request's last answer; empty if there was none. Owned by the framework.
  [[nodiscard]] const std::list<CMBRecord*>& PreviousRecords() const;
  /// Adds a finished record, which is freed if there is no memory for its place.
  void AddRecord(std::unique_ptr<CMBRecord> record) {
    m_records.push_back(record.get());
    static_cast<void>(record.release());
  }
  /// Gives the framework a turn between two builds: other events may be handled inside.
  void yield();

  std::vector<CMBRecordRequest*> m_requests;
  /// Takes the finished records, which the framework owns from then on.
  std::list<CMBRecord*> m_records;
  /// Figures that a request needs could not be taken in this batch: that a row is not there tells
  /// nothing. Set by who builds the records.
  bool m_lacksFigures = false;

 private:
  tagPQLAUI m_asker;
};

/// The batch: what is due at one time. The events are not owned.
class CMBMultipleRecordRequestEvent : public CMBEvent {
 public:
  CMBMultipleRecordRequestEvent() : CMBEvent(nullptr) {}
  [[nodiscard]] const char* IsA() const override { return "CMBMultipleRecordRequestEvent"; }
  [[nodiscard]] void* GetThis() override { return this; }

  /// Holds the batch back before its work has begun: for so long everything else is handled, other
  /// batches included. False, at once, if the batch is itself handled inside another one's wait;
  /// false too if a stop is asked for.
  [[nodiscard]] bool hold(long seconds);

  std::vector<CMBRecordRequestEvent*> m_events;
};
