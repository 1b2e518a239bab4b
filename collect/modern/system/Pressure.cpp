#include "collect/modern/system/Pressure.h"

#include <algorithm>
#include <charconv>
#include <system_error>

#include "collect/modern/HostFolder.h"
#include "collect/modern/HostText.h"

namespace {

constexpr const char* kPressureFolder = "/proc/pressure";
constexpr std::string_view kPressureBlanks = " \t\r";
constexpr double kMicrosecondsPerSecond = 1e6;

/// Takes a word from the front of the line; empty at its end.
std::string_view NextPressureWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(kPressureBlanks), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(kPressureBlanks));
  line.remove_prefix(word.size());
  return word;
}

/// A number without a sign; kNotTold if the text is no such number.
double PressureNumber(std::string_view text) {
  double number = 0;
  // What begins with a digit is neither negative nor one of the names of no number.
  if (text.empty() || text.front() < '0' || text.front() > '9') {
    return kNotTold;
  }
  const char* const end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  return code == std::errc{} && stop == end ? number : kNotTold;
}

void PutPressure(double& figure, double number) { figure = IsTold(figure) ? figure : number; }

void TakePressureLine(std::string_view line, PressureLine& figures) {
  for (std::string_view word = NextPressureWord(line); !word.empty();
       word = NextPressureWord(line)) {
    const std::size_t equals = word.find('=');
    if (equals == std::string_view::npos) {
      continue;
    }
    const std::string_view key = word.substr(0, equals);
    const double number = PressureNumber(word.substr(equals + 1));
    if (key == "avg10") {
      PutPressure(figures.average10, number);
    } else if (key == "avg60") {
      PutPressure(figures.average60, number);
    } else if (key == "avg300") {
      PutPressure(figures.average300, number);
    } else if (key == "total") {
      PutPressure(figures.stalledSeconds, number / kMicrosecondsPerSecond);
    }
  }
}

}  // namespace

PressureText ParsePressure(std::string_view text) {
  PressureText figures;
  for (std::string_view line; NextTextLine(text, line);) {
    const std::string_view key = NextPressureWord(line);
    if (key == "some") {
      TakePressureLine(line, figures.some);
    } else if (key == "full") {
      TakePressureLine(line, figures.full);
    }
  }
  return figures;
}

PressureText ParseHostCpuPressure(std::string_view text) {
  PressureText figures = ParsePressure(text);
  if (figures.full.stalledSeconds == 0) {
    figures.full = {};
  }
  return figures;
}

void ReadPressure(std::vector<PressureFigures>& rows) {
  rows.clear();
  const HostFolder folder(kPressureFolder);
  std::string text;
  for (const char* resource : {"cpu", "memory", "io", "irq"}) {
    if (folder.IsOpen() && folder.Read(resource, text)) {
      const bool isCpu = std::string_view(resource) == "cpu";
      rows.push_back({resource, isCpu ? ParseHostCpuPressure(text) : ParsePressure(text)});
    }
  }
}
