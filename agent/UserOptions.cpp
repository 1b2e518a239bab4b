#include <array>
#include <cstddef>

#include "agent/UnixAgent.h"
#include "support/ProductOptions.h"
#include "support/TraceLog.h"

namespace {

constexpr std::size_t kMaxOption = 257;

struct UserSection {
  const char* name;
  const char* section;
};
constexpr std::array kUserRecords{
    UserSection{"UPI", "Interval Records"}, UserSection{"UPIB", "Interval Records"},
    UserSection{"UPD", "Detail Records"}, UserSection{"UPDB", "Detail Records"}};

struct UserOption {
  const char* key;
  std::size_t size;
  const char* substitute;  ///< for an empty value; null: it is not stored
};
constexpr std::array kUserOptions{
    UserOption{"Flushtime", 80, "FLUSHTIME"},     UserOption{"Datamaxcount", 80, "DATAMAXCOUNT"},
    UserOption{"Pipedir", kMaxOption, nullptr},   UserOption{"Pipeuser", kMaxOption, nullptr},
    UserOption{"Pipegroup", kMaxOption, nullptr}, UserOption{"Pipemode", kMaxOption, nullptr}};

void TakeOption(CMBIniFile& ini, const UserSection& record, const UserOption& option) {
  std::array<char, kMaxOption> buffer{};
  ini.ReadString(buffer.data(), static_cast<int>(option.size), option.key, record.section,
                 record.name, nullptr, 0);
  const char* value = buffer[0] == '\0' ? option.substitute : buffer.data();
  if (value != nullptr) {
    ProductOptions::Instance().Set(record.name, option.key, value);
  }
}

}  // namespace

int UnixAgent::ExtractUserRecordOptions() {
  TraceEntry("UnixAgent::ExtractUserRecordOptions");
  CMBIniFile* ini = GetIniFile();
  if (ini != nullptr) {
    for (const UserSection& record : kUserRecords) {
      for (const UserOption& option : kUserOptions) {
        TakeOption(*ini, record, option);
      }
    }
  }
  const int rc = ini == nullptr ? -1 : 0;
  TraceExit("UnixAgent::ExtractUserRecordOptions", rc);
  return rc;
}
