#include "client/view/Head.h"

#include <algorithm>
#include <optional>

#include "client/ask/SafeText.h"
#include "client/show/Render.h"
#include "client/show/RowValues.h"
#include "client/view/RowMembers.h"
#include "client/view/Sparkline.h"
#include "json/RowText.h"

namespace {

using Figure = HeadFigures::Figure;

constexpr std::size_t kAllLines = 6;
constexpr std::size_t kLabelWidth = 7;
/// Seconds of one character of a picture of the last minutes.
constexpr std::int64_t kStep = 10;
constexpr double kBusy = 80;
constexpr double kFull = 95;

std::string PercentText(const Figure& figure) {
  return figure ? FixedText(*figure, 1) + " %" : "-";
}

std::string SizeText(const Figure& figure) { return figure ? BytesText(*figure) : "-"; }

std::string PlainText(const Figure& figure, int decimals) {
  return figure ? FixedText(*figure, decimals) : "-";
}

Tone LoadTone(const Figure& percent) {
  return percent.value_or(0) >= kFull   ? Tone::kBad
         : percent.value_or(0) >= kBusy ? Tone::kWarning
                                        : Tone::kGood;
}

/// Draws from the left to the right of one line.
class Line {
 public:
  Line(Canvas& canvas, std::size_t line, std::size_t column = 0)
      : m_canvas(canvas), m_line(line), m_column(column) {}

  Line& Put(const std::string& text, Tone tone = Tone::kPlain) {
    m_column = m_canvas.Put(m_line, m_column, text, tone);
    return *this;
  }
  Line& Gap(std::size_t width = 2) {
    m_column += width;
    return *this;
  }
  [[nodiscard]] std::size_t Column() const { return m_column; }
  [[nodiscard]] std::size_t Left() const {
    return m_canvas.Width() > m_column ? m_canvas.Width() - m_column : 0;
  }

 private:
  Canvas& m_canvas;
  std::size_t m_line;
  std::size_t m_column;
};

std::string Label(const std::string& text) {
  return text + std::string(text.size() < kLabelWidth ? kLabelWidth - text.size() : 1, ' ');
}

void DrawTitle(Canvas& canvas, const Sight& sight, const HeadFigures& figures,
               const HeadWords& words) {
  Line line(canvas, 0);
  line.Put(SafeText(sight.status.host.substr(0, 40)), Tone::kBold).Gap();
  line.Put(words.moment, words.tone).Gap();
  if (!words.marked.empty()) {
    line.Put(words.marked, Tone::kMark).Gap();
  }
  const std::size_t active =
      sight.alarms
          ? static_cast<std::size_t>(std::ranges::count_if(
                sight.alarms->alarms,
                [&](const Alarm& alarm) {
                  return alarm.since <= sight.time && (!alarm.until || *alarm.until > sight.time);
                }))
          : 0;
  if (active > 0) {
    line.Put(std::to_string(active) + (active == 1 ? " alarm" : " alarms"), Tone::kBad).Gap();
  }
  const auto host = sight.records.find(kHostRecord);
  if (host != sight.records.end() && host->second->isFar) {
    line.Put(std::string(kHostRecord) + " MISSING", Tone::kBad).Gap();
  }
  for (const std::string& name : sight.abnormal) {
    line.Put(SafeText(name) + " ABNORMAL", Tone::kBad).Gap();
  }
  line.Put("up " + (figures.upSeconds ? DurationText(*figures.upSeconds) : "-")).Gap();
  line.Put(PlainText(figures.processes, 0) + " processes");
}

void DrawCpu(Canvas& canvas, std::size_t at, const HeadFigures& figures, const HeadTrends& trends,
             std::int64_t time, bool hasUtf8) {
  const std::size_t bar = std::clamp<std::size_t>(canvas.Width() / 5, 4, 32);
  Line line(canvas, at);
  line.Put(Label("CPU"), Tone::kTitle);
  line.Put(BarText(figures.cpuPercent.value_or(0) / 100, bar), LoadTone(figures.cpuPercent)).Gap(1);
  line.Put(PercentText(figures.cpuPercent)).Gap();
  line.Put("wait " + PercentText(figures.waitPercent)).Gap();
  line.Put("load " + PlainText(figures.load[0], 2) + " " + PlainText(figures.load[1], 2) + " " +
           PlainText(figures.load[2], 2))
      .Gap();
  const std::size_t width = std::min<std::size_t>(line.Left(), 30);
  line.Put(trends.cpu.Text(time, width, kStep, 100, hasUtf8), Tone::kGood);
}

/// A bar for each processor, or a picture of all where these don't fit.
void DrawProcessors(Canvas& canvas, std::size_t at, const HeadFigures& figures, bool hasUtf8) {
  Line line(canvas, at);
  line.Put(Label("Each"), Tone::kTitle);
  const std::size_t count = figures.processors.size();
  if (count == 0) {
    line.Put("-");
    return;
  }
  constexpr std::size_t kLeastBar = 14;
  const std::size_t each = line.Left() / count;
  if (each >= kLeastBar) {
    const std::size_t bar = std::min<std::size_t>(each - 8, 24);
    for (std::size_t i = 0; i < count; ++i) {
      const Figure& figure = figures.processors[i];
      line.Put(BarText(figure.value_or(0) / 100, bar), LoadTone(figure)).Gap(1);
      const std::string text = figure ? FixedText(*figure, 0) : "-";
      line.Put(text).Gap(text.size() < 5 ? 6 - text.size() : 1);
    }
    return;
  }
  // Where there are more processors than columns, a character is the busiest of several.
  const std::size_t room =
      std::max<std::size_t>(line.Left() - std::min<std::size_t>(line.Left(), 1), 1);
  const std::size_t perCharacter = (count + room - 1) / room;
  for (std::size_t i = 0; i < count; i += perCharacter) {
    Figure most;
    for (std::size_t j = i; j < std::min(count, i + perCharacter); ++j) {
      if (figures.processors[j]) {
        most = std::max(most.value_or(0), *figures.processors[j]);
      }
    }
    line.Put(most ? HeightText(*most / 100, hasUtf8) : " ", LoadTone(most));
  }
}

void DrawMemory(Canvas& canvas, std::size_t at, const HeadFigures& figures) {
  const std::size_t bar = std::clamp<std::size_t>(canvas.Width() / 5, 4, 32);
  Line line(canvas, at);
  line.Put(Label("Memory"), Tone::kTitle).Gap(0);
  line.Put(BarText(figures.memoryPercent.value_or(0) / 100, bar), LoadTone(figures.memoryPercent))
      .Gap(1);
  line.Put(PercentText(figures.memoryPercent) + " of " + SizeText(figures.memoryBytes)).Gap();
  line.Put("Swap ", Tone::kTitle);
  if (figures.swapBytes && *figures.swapBytes == 0) {
    line.Put("none");
    return;
  }
  line.Put(BarText(figures.swapPercent.value_or(0) / 100, bar / 2), LoadTone(figures.swapPercent))
      .Gap(1);
  line.Put(PercentText(figures.swapPercent) + " of " + SizeText(figures.swapBytes));
}

void DrawPressure(Canvas& canvas, std::size_t at, const HeadFigures& figures) {
  Line line(canvas, at);
  line.Put(Label("Waits"), Tone::kTitle);
  const auto put = [&](const char* name, const Figure& figure) {
    const bool isMuch = figure.value_or(0) >= 10;
    line.Put(std::string(name) + " " + PercentText(figure), isMuch ? Tone::kWarning : Tone::kPlain)
        .Gap();
  };
  put("processor", figures.cpuPressure);
  put("memory", figures.memoryPressure);
  put("I/O", figures.ioPressure);
}

void DrawThroughput(Canvas& canvas, std::size_t at, const HeadFigures& figures,
                    const HeadTrends& trends, std::int64_t time, bool hasUtf8) {
  const bool hasBytes = figures.netIn || !figures.packetsIn;
  const bool isSplit = figures.diskRead || !figures.diskBoth;
  // The words of a line of 80 columns leave four pictures this much.
  constexpr std::size_t kWords = 56;
  const std::size_t picture =
      std::clamp<std::size_t>(canvas.Width() > kWords ? (canvas.Width() - kWords) / 4 : 0, 0, 30);
  Line line(canvas, at);
  const auto put = [&](const std::string& name, const std::string& text, const Trend& trend) {
    line.Put(name + " ").Put(text).Gap(1);
    line.Put(trend.Text(time, picture, kStep, std::nullopt, hasUtf8), Tone::kGood).Gap(1);
  };
  line.Put(Label("Disk"), Tone::kTitle);
  if (isSplit) {
    put("read", SizeText(figures.diskRead) + "/s", trends.diskRead);
    put("write", SizeText(figures.diskWrite) + "/s", trends.diskWrite);
  } else {
    put("both", SizeText(figures.diskBoth) + "/s", trends.diskRead);
  }
  line.Put("Net ", Tone::kTitle);
  if (hasBytes) {
    put("in", SizeText(figures.netIn) + "/s", trends.netIn);
    put("out", SizeText(figures.netOut) + "/s", trends.netOut);
  } else {
    put("in", PlainText(figures.packetsIn, 0) + " pkt/s", trends.netIn);
    put("out", PlainText(figures.packetsOut, 0) + " pkt/s", trends.netOut);
  }
}

}  // namespace

std::size_t HeadHeight(std::size_t frameHeight) {
  constexpr std::size_t kRoomBelow = 10;
  constexpr std::size_t kLeastBelow = 4;
  if (frameHeight >= kAllLines + kRoomBelow) {
    return kAllLines;
  }
  return frameHeight > kLeastBelow ? std::min<std::size_t>(frameHeight - kLeastBelow, 2) : 1;
}

void DrawHead(Canvas& canvas, const Sight& sight, const HeadFigures& figures,
              const HeadTrends& trends, const HeadWords& words, bool hasUtf8) {
  const std::size_t height = HeadHeight(canvas.Height());
  DrawTitle(canvas, sight, figures, words);
  if (height > 1) {
    DrawCpu(canvas, 1, figures, trends, sight.time, hasUtf8);
  }
  if (height < kAllLines) {
    return;
  }
  DrawProcessors(canvas, 2, figures, hasUtf8);
  DrawMemory(canvas, 3, figures);
  DrawPressure(canvas, 4, figures);
  DrawThroughput(canvas, 5, figures, trends, sight.time, hasUtf8);
}
