#include "support/UserFileFormat.h"

#include <algorithm>
#include <vector>

namespace {

/// Fields of one type that stand next to each other, their labels numbered from `first`; a single
/// field without a number has `count` 0.
struct FieldRun {
  const char* label;
  int first;
  int count;
  UserFieldType type;
  std::size_t size;
};

constexpr std::array kKeys{
    FieldRun{"Trans Type", 0, 0, UserFieldType::kText, 20},
    FieldRun{"Trans String Key", 0, 0, UserFieldType::kText, 20},
    FieldRun{"Trans Data Key", 0, 0, UserFieldType::kUnsigned, 4},
    FieldRun{"Collect Time", 0, 0, UserFieldType::kTime, 4},
};

constexpr FieldRun Longs(const char* label, int count) {
  return {label, 1, count, UserFieldType::kSigned, 4};
}
constexpr FieldRun UnsignedLongs(const char* label, int count) {
  return {label, 1, count, UserFieldType::kUnsigned, 4};
}
constexpr FieldRun Floats(const char* label, int count) {
  return {label, 1, count, UserFieldType::kDouble, 8};
}
constexpr FieldRun Strings(int first, int count, std::size_t size) {
  return {"User String", first, count, UserFieldType::kText, size};
}
constexpr FieldRun kTime{"User Time", 1, 1, UserFieldType::kTime, 4};

constexpr std::array kUPIFields{
    Longs("User Long", 2),
    Longs("User Long Roll", 2),
    UnsignedLongs("User Unsigned Long", 2),
    UnsignedLongs("User Unsigned Long Roll", 2),
    Floats("User Float", 2),
    Floats("User Float Roll", 2),
    kTime,
    Strings(1, 4, 16),
    Strings(5, 2, 32),
    Strings(7, 1, 64),
};
constexpr std::array kUPIBFields{
    Longs("User Long", 5),
    Longs("User Long Roll", 5),
    UnsignedLongs("User Unsigned Long", 5),
    UnsignedLongs("User Unsigned Long Roll", 5),
    Floats("User Float", 5),
    Floats("User Float Roll", 5),
    kTime,
    Strings(1, 5, 16),
    Strings(6, 5, 32),
    Strings(11, 5, 64),
};
constexpr std::array kUPDFields{
    Longs("User Long", 2),   UnsignedLongs("User Unsigned Long", 2),
    Floats("User Float", 2), kTime,
    Strings(1, 4, 16),       Strings(5, 2, 32),
    Strings(7, 1, 64),
};
constexpr std::array kUPDBFields{
    Longs("User Long", 5),   UnsignedLongs("User Unsigned Long", 5),
    Floats("User Float", 5), kTime,
    Strings(1, 5, 16),       Strings(6, 5, 32),
    Strings(11, 5, 64),
};

constexpr std::size_t RecordSize(std::span<const FieldRun> runs) {
  std::size_t size = 0;
  for (const FieldRun& run : runs) {
    size += run.size * static_cast<std::size_t>(std::max(run.count, 1));
  }
  return size;
}

std::vector<UserField> MakeFields(std::span<const FieldRun> runs) {
  std::vector<UserField> fields;
  std::size_t offset = 0;
  const auto add = [&fields, &offset](const FieldRun& run, std::string label) {
    fields.push_back({std::move(label), run.type, offset, run.size});
    offset += run.size;
  };
  const auto addRun = [&add](const FieldRun& run) {
    if (run.count == 0) {
      add(run, run.label);
    }
    for (int number = run.first; number < run.first + run.count; ++number) {
      add(run, std::string(run.label) + ' ' + std::to_string(number));
    }
  };
  std::ranges::for_each(kKeys, addRun);
  std::ranges::for_each(runs, addRun);
  return fields;
}

constexpr std::array<std::span<const FieldRun>, 4> kRuns{kUPIFields, kUPIBFields, kUPDFields,
                                                         kUPDBFields};

constexpr bool AreSizesRight() {
  for (std::size_t kind = 0; kind < kRuns.size(); ++kind) {
    if (RecordSize(kKeys) + RecordSize(kRuns[kind]) != kUserRecordSizes[kind]) {
      return false;
    }
  }
  return true;
}
static_assert(AreSizesRight());

}  // namespace

std::span<const UserFileKind> UserFileKinds() {
  static const std::array kFields{MakeFields(kRuns[kUPI]), MakeFields(kRuns[kUPIB]),
                                  MakeFields(kRuns[kUPD]), MakeFields(kRuns[kUPDB])};
  static const std::array kKinds{
      UserFileKind{"UPI", "qmtuser_UPI", 0x4B, kUserRecordSizes[kUPI], kFields[kUPI]},
      UserFileKind{"UPIB", "qmtuser_UPIB", 0x4C, kUserRecordSizes[kUPIB], kFields[kUPIB]},
      UserFileKind{"UPD", "qmtuser_UPD", 0x4D, kUserRecordSizes[kUPD], kFields[kUPD]},
      UserFileKind{"UPDB", "qmtuser_UPDB", 0x4E, kUserRecordSizes[kUPDB], kFields[kUPDB]},
  };
  return kKinds;
}

const UserFileKind* FindUserFileKind(std::string_view name) {
  const auto kinds = UserFileKinds();
  const auto found = std::ranges::find(kinds, name, &UserFileKind::name);
  return found == kinds.end() ? nullptr : &*found;
}

std::array<char, kUserFileHeaderSize> MakeUserFileHeader() {
  std::array<char, kUserFileHeaderSize> header{};
  std::ranges::copy(kUserFileTag, header.begin());
  std::ranges::copy(kUserFileVersion, header.begin() + kUserFileVersionOffset);
  return header;
}

bool IsUserFileHeader(std::span<const char, kUserFileHeaderSize> header) {
  const std::string_view bytes(header.data(), header.size());
  const auto text = [](std::string_view field) { return field.substr(0, field.find('\0')); };
  return text(bytes.substr(0, kUserFileVersionOffset)) == kUserFileTag &&
         text(bytes.substr(kUserFileVersionOffset)) == kUserFileVersion;
}
