#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "collect/userdata/UserSource.h"
#include "records/RecordBuilder.h"
#include "records/RecordClasses.h"
#include "records/RecordDump.h"
#include "support/OsCalls.h"
#include "support/TraceLog.h"

namespace {

/// How one field of the file comes into the row.
struct FieldCopy {
  UserFieldType type;
  std::size_t from;  ///< bytes from the start
  std::size_t size;
  std::size_t to;
  std::size_t width;
};

/// The fields of the file that the record has, by their labels.
std::vector<FieldCopy> MatchFields(const UserFileKind& kind, const RecordLayout& layout) {
  std::vector<FieldCopy> copies;
  for (const UserField& field : kind.fields) {
    const auto found =
        std::ranges::find(layout.fields, std::string_view(field.label),
                          [](const FieldLayout& row) { return std::string_view(row.label); });
    if (found != layout.fields.end()) {
      copies.push_back({field.type, field.offset, field.size, found->offset, found->width});
    }
  }
  return copies;
}

/// A text that fills its field loses its last character.
void CopyText(const FieldCopy& copy, const char* record, char* row) {
  const std::size_t length = std::min(::strnlen(record + copy.from, copy.size), copy.width - 1);
  std::memcpy(row + copy.to, record + copy.from, length);
}

/// Whole numbers with a sign are shown as doubles.
void CopySigned(const FieldCopy& copy, const char* record, char* row) {
  std::int32_t number = 0;
  std::memcpy(&number, record + copy.from, sizeof number);
  const double value = number;
  std::memcpy(row + copy.to, &value, sizeof value);
}

void CopyField(const FieldCopy& copy, const char* record, char* row) {
  switch (copy.type) {
    case UserFieldType::kText:
      CopyText(copy, record, row);
      break;
    case UserFieldType::kSigned:
      CopySigned(copy, record, row);
      break;
    case UserFieldType::kUnsigned:
    case UserFieldType::kTime:
    case UserFieldType::kDouble:
      std::memcpy(row + copy.to, record + copy.from, copy.size);
      break;
  }
}

/// Answers with one row for each record; returns how many.
template <class Row, std::size_t kind>
int BuildRows(CMBRecordRequestEvent& event, const std::vector<UserRecord<kind>>& records) {
  static const std::vector<FieldCopy> kCopies =
      MatchFields(UserFileKinds()[kind], RecordTraits<Row>::Layout());
  const auto now = static_cast<std::int32_t>(Os().time(nullptr));
  int count = 0;
  for (const UserRecord<kind>& record : records) {
    Row row = NewRow<Row>(now);
    for (const FieldCopy& copy : kCopies) {
      CopyField(copy, record.bytes.data(), reinterpret_cast<char*>(&row));
    }
    DumpRecord(row, count++);
    event.AddRecord(std::make_unique<typename RecordTraits<Row>::Class>(&row));
  }
  return count;
}

}  // namespace

void RecordBuilder::AwaitUserRecords(CMBMultipleRecordRequestEvent& batch) {
  std::vector<const UserFileKind*> kinds;
  for (const CMBRecordRequestEvent* event : batch.m_events) {
    for (const CMBRecordRequest* request : event->m_requests) {
      if (const UserFileKind* kind = FindUserFileKind(request->GetRecordType()); kind != nullptr) {
        kinds.push_back(kind);
      }
    }
  }
  // A thousand requests for one file are one look at its guard.
  std::ranges::sort(kinds);
  kinds.erase(std::unique(kinds.begin(), kinds.end()), kinds.end());
  AwaitUserFiles(kinds, [&batch] { return batch.hold(1); });
}

UtlError* RecordBuilder::Build_UPI(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_UPI", AddressOf(pEvent), AddressOf(pRequest));
  TraceCreated(__FILE__, __LINE__, "UPI",
               BuildRows<recordPI_UPI>(*pEvent, *m_pCollector->GetUPI()));
  TraceExit("RecordBuilder::Build_UPI", 0);
  return nullptr;
}

UtlError* RecordBuilder::Build_UPIB(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_UPIB", AddressOf(pEvent), AddressOf(pRequest));
  TraceCreated(__FILE__, __LINE__, "UPIB",
               BuildRows<recordPI_UPIB>(*pEvent, *m_pCollector->GetUPIB()));
  TraceExit("RecordBuilder::Build_UPIB", 0);
  return nullptr;
}

UtlError* RecordBuilder::Build_UPD(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_UPD", AddressOf(pEvent), AddressOf(pRequest));
  TraceCreated(__FILE__, __LINE__, "UPD",
               BuildRows<recordPD_UPD>(*pEvent, *m_pCollector->GetUPD()));
  TraceExit("RecordBuilder::Build_UPD", 0);
  return nullptr;
}

UtlError* RecordBuilder::Build_UPDB(CMBRecordRequestEvent* pEvent, CMBRecordRequest* pRequest) {
  TraceEntry("RecordBuilder::Build_UPDB", AddressOf(pEvent), AddressOf(pRequest));
  TraceCreated(__FILE__, __LINE__, "UPDB",
               BuildRows<recordPD_UPDB>(*pEvent, *m_pCollector->GetUPDB()));
  TraceExit("RecordBuilder::Build_UPDB", 0);
  return nullptr;
}
