#include "client/show/PushText.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "client/ask/SafeText.h"
#include "client/show/Render.h"
#include "client/show/RowValues.h"
#include "client/show/Table.h"

namespace {

/// "-" where no row waits.
std::string OldestText(std::int64_t oldest, std::int64_t now) {
  // The daemon's clock may be ahead by a part of a second.
  return oldest == 0
             ? "-"
             : DurationText(std::max(static_cast<double>(now) - static_cast<double>(oldest), 0.0));
}

/// The mean time of a request.
std::string MeanText(const PushTarget& target) {
  std::array<char, 32> text{};
  if (target.requests == 0) {
    return "-";
  }
  std::snprintf(text.data(), text.size(), "%.3f s",
                target.seconds / static_cast<double>(target.requests));
  return text.data();
}

Cell CountCell(std::uint64_t count) { return {std::to_string(count), true}; }

}  // namespace

std::string PushText(const PushStatus& push, std::int64_t now, const Screen& screen) {
  std::string text;
  if (!push.targets.empty()) {
    Table table({"Target", "URL", "State", "Oldest Not Sent", "Rows", "Samples", "Refused",
                 "Skipped", "Requests", "Failures", "Mean Time", "Bytes"},
                {true});
    std::string errors;
    for (const PushTarget& target : push.targets) {
      const std::string name = SafeText(target.name);
      table.AddRow({{name},
                    {SafeText(target.url)},
                    {target.error.empty() ? "good" : "fails"},
                    {OldestText(target.oldest, now), true},
                    CountCell(target.rows),
                    CountCell(target.samples),
                    CountCell(target.refused),
                    CountCell(target.skipped),
                    CountCell(target.requests),
                    CountCell(target.failures),
                    {MeanText(target), true},
                    {BytesText(static_cast<double>(target.bytes)), true}});
      errors += target.error.empty() ? "" : name + ": " + SafeText(target.error) + '\n';
    }
    text = table.Text(screen) + (errors.empty() ? "" : '\n' + errors);
  }
  if (!push.receivers.empty()) {
    Table table({"Receiver of Alarms", "Sent", "Failures", "Dropped"}, {true});
    for (const NoticeTarget& receiver : push.receivers) {
      table.AddRow({{SafeText(receiver.url)},
                    CountCell(receiver.sent),
                    CountCell(receiver.failures),
                    CountCell(receiver.dropped)});
    }
    text += (text.empty() ? "" : "\n") + table.Text(screen);
  }
  return text;
}
