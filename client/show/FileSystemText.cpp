#include "client/show/FileSystemText.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "client/show/RowValues.h"
#include "client/show/Table.h"

namespace {

constexpr const char* kTime = "Record Time";
constexpr const char* kMount = "File System";
constexpr const char* kType = "File System Type";
constexpr const char* kDevice = "Device Name";
constexpr const char* kHost = "Host";
constexpr const char* kRemote = "Remote File System";
constexpr const char* kSize = "Total Size Mbytes";
constexpr const char* kUsed = "Mbytes in Use";
constexpr const char* kAvailable = "Available Space Mbytes";
constexpr std::array kNeeded{kMount, kType, kSize, kUsed, kAvailable};

std::string TextOf(const Json& row, const char* label) {
  return CellOf(ValueOf(row, 0, label), {}).text;
}

/// Not a number for anything else.
double NumberOf(const Json& row, const char* label) {
  const Json& value = ValueOf(row, 0, label);
  return value.IsNumber() ? value.Number() : std::nan("");
}

/// As df(1) has it.
std::string SizeText(double mbytes) {
  constexpr double kBytesPerMbyte = 1048576;
  return BytesText(mbytes * kBytesPerMbyte);
}

std::string PercentText(double used, double available) {
  const double all = used + available;
  return all > 0 && used >= 0 ? FixedText(std::ceil(100 * used / all), 0) + "%" : "-";
}

std::string SourceOf(const Json& row) {
  return row.Find(kDevice) != nullptr ? TextOf(row, kDevice)
                                      : TextOf(row, kHost) + ":" + TextOf(row, kRemote);
}

}  // namespace

bool AreFileSystems(const RecordAnswer& answer) {
  const Json& rows = answer.rows;
  if ((answer.record != "FSL" && answer.record != "FSR") || rows.Elements().empty()) {
    return false;
  }
  const Json& time = ValueOf(rows[0], 0, kTime);
  return !time.IsNull() && std::ranges::all_of(rows.Elements(), [&](const Json& row) {
    const bool isWhole = std::all_of(kNeeded.begin(), kNeeded.end(),
                                     [&](const char* label) { return row.Find(label) != nullptr; });
    return isWhole && ValueOf(row, 0, kTime) == time &&
           (row.Find(kDevice) != nullptr ||
            (row.Find(kHost) != nullptr && row.Find(kRemote) != nullptr));
  });
}

std::string FileSystemText(const RecordAnswer& answer, const Screen& screen) {
  Table table({"Filesystem", "Type", "Size", "Used", "Avail", "Use%", "Mounted on"});
  for (const Json& row : answer.rows.Elements()) {
    const double used = NumberOf(row, kUsed);
    const double available = NumberOf(row, kAvailable);
    table.AddRow({{SourceOf(row)},
                  {TextOf(row, kType)},
                  {SizeText(NumberOf(row, kSize)), true},
                  {SizeText(used), true},
                  {SizeText(available), true},
                  {PercentText(used, available), true},
                  {TextOf(row, kMount)}});
  }
  return table.Text(screen);
}
