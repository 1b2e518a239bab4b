#pragma once

#include <cstddef>
#include <ctime>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "node/RecordRequest.h"

/// One asker's lasting request for one record: the request with its user object, the event that
/// carries it into a batch, and the rows of its last answer.
class RecordAsker {
 public:
  enum class Look { kScheduled, kOnDemand };

  RecordAsker(std::string record, unsigned char category, Look look, bool calcRates);
  ~RecordAsker();
  RecordAsker(const RecordAsker&) = delete;
  RecordAsker& operator=(const RecordAsker&) = delete;

  [[nodiscard]] const char* Record() const { return m_request.GetRecordType(); }
  [[nodiscard]] unsigned char Category() const { return m_request.GetStructType(); }
  [[nodiscard]] CMBRecordRequestEvent& Event() { return m_event; }
  /// See CMBRecordRequest::NamedRows().
  void NameRows(std::vector<std::string> values) { m_request.NameRows(std::move(values)); }
  /// The rows of the last answer, until the next answer. None is null.
  [[nodiscard]] const std::list<CMBRecord*>& Rows() const { return m_rows; }
  /// Keeps the records of Rows() for as long as it is held.
  [[nodiscard]] const std::shared_ptr<const void>& Owner() const { return m_owner; }
  /// Bytes of these rows.
  [[nodiscard]] std::size_t Bytes() const { return m_bytes; }
  /// Bytes of the rows that all askers on demand hold.
  [[nodiscard]] static std::size_t HeldBytes() { return s_heldBytes; }
  /// When they were built, in seconds since the epoch: what the first row says or, where no row
  /// says it, when the answer was taken.
  [[nodiscard]] std::time_t AnswerTime() const { return m_answerTime; }

  /// See CMBRecordRequestEvent::m_lacksFigures; of the last batch.
  [[nodiscard]] bool LacksFigures() const { return m_event.m_lacksFigures; }

  /// Makes what the batch has put into the event the last answer, and frees the answer before.
  void TakeAnswer();
  /// Frees what the batch has put into the event; the last answer stays.
  void DropAnswer();

 private:
  void CountRows();

  static inline std::size_t s_heldBytes = 0;

  std::list<CMBRecord*> m_rows;  ///< of m_owner; the event knows its address
  std::shared_ptr<const void> m_owner;
  std::size_t m_bytes = 0;
  bool m_isOnDemand;
  std::time_t m_answerTime = 0;
  tagPQLAUI m_identity;
  CMBRecordRequest m_request;
  CMBRecordRequestEvent m_event;
};
