#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "node/Packed.h"

/// One row of a record's descriptor table, 5 bytes: the type code, offset and width of one numeric
/// field. Text fields have no row; a time value has one row for each of its two words.
struct FieldDescriptor {
  std::uint8_t type = 0;
  Packed<std::uint16_t> offset;
  Packed<std::uint16_t> width;
};
static_assert(sizeof(FieldDescriptor) == 5);

/// The base of all that a request yields. The virtual operations stand in the framework's order.
class CMBRecord {
 public:
  CMBRecord() = default;
  CMBRecord(const CMBRecord&) = default;
  CMBRecord& operator=(const CMBRecord&) = default;
  virtual ~CMBRecord() = default;

  virtual int operator==(const CMBRecord& other) const = 0;
  /// Not a strict order: never hand it to a sort or a set.
  virtual int operator<(const CMBRecord& other) const = 0;
  [[nodiscard]] virtual const char* IsA() const = 0;
  /// The category letter: '4' interval, '3' detail, '7' log.
  [[nodiscard]] virtual unsigned char GetDataType() const = 0;
  /// Bytes of the structure at GetRecStart().
  [[nodiscard]] virtual int GetRecSize() const = 0;
  /// The structure's first byte; owned by the record.
  [[nodiscard]] virtual const void* GetRecStart() const = 0;
  /// The record's short name, which stands first in the structure.
  [[nodiscard]] virtual const char* GetRecType() const = 0;
  /// `Record Time`, seconds since the epoch; 0 where the structure is too short to hold one.
  [[nodiscard]] virtual std::time_t GetRecTime() const;
  [[nodiscard]] virtual const FieldDescriptor* GetFieldTypeArray() const = 0;
  [[nodiscard]] virtual int GetFieldTypeCount() const = 0;
  [[nodiscard]] virtual int IsProductRecord() const;
};

/// A record whose content is one text.
class CMBStringRecord : public CMBRecord {
 public:
  explicit CMBStringRecord(unsigned char dataType) : m_dataType(dataType) {}

  int operator==(const CMBRecord& other) const override;
  int operator<(const CMBRecord& other) const override;
  [[nodiscard]] const char* IsA() const override { return "CMBStringRecord"; }
  [[nodiscard]] unsigned char GetDataType() const override { return m_dataType; }
  [[nodiscard]] int GetRecSize() const override { return static_cast<int>(m_text.size() + 1); }
  [[nodiscard]] const void* GetRecStart() const override { return m_text.c_str(); }
  [[nodiscard]] const char* GetRecType() const override { return m_text.c_str(); }
  [[nodiscard]] std::time_t GetRecTime() const override { return 0; }
  [[nodiscard]] const FieldDescriptor* GetFieldTypeArray() const override { return nullptr; }
  [[nodiscard]] int GetFieldTypeCount() const override { return 0; }
  [[nodiscard]] int IsProductRecord() const override { return 0; }

  void SetText(std::string text) { m_text = std::move(text); }

 private:
  unsigned char m_dataType;
  std::string m_text;
};

class CMBPQLStatement : public CMBStringRecord {
 public:
  CMBPQLStatement() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBPQLStatement"; }
};
class CMBLogifStatement : public CMBStringRecord {
 public:
  CMBLogifStatement() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBLogifStatement"; }
};
class CMBShutdown : public CMBStringRecord {
 public:
  CMBShutdown() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBShutdown"; }
};
class CMBCancelPQL : public CMBStringRecord {
 public:
  CMBCancelPQL() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBCancelPQL"; }
};
class CMBIniInfo : public CMBStringRecord {
 public:
  CMBIniInfo() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBIniInfo"; }
};
class CMBTableBinding : public CMBStringRecord {
 public:
  CMBTableBinding() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBTableBinding"; }
};
class CMBAlarm : public CMBStringRecord {
 public:
  CMBAlarm() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBAlarm"; }
};
class CMBDictionary : public CMBStringRecord {
 public:
  CMBDictionary() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBDictionary"; }
};
class CMBAction : public CMBStringRecord {
 public:
  CMBAction() : CMBStringRecord(0) {}
  [[nodiscard]] const char* IsA() const override { return "CMBAction"; }
};
