#include "local/alarm/AlarmDefinition.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "json/RowText.h"
#include "local/alarm/AgentRow.h"
#include "local/alarm/ConditionRange.h"
#include "local/history/HistoryTables.h"
#include "local/history/RowFields.h"

namespace {

/// Of conditions of one kind: each is held against every row, and each star multiplies what that
/// takes.
constexpr std::size_t kMostConditions = 16;
constexpr std::size_t kMostConditionBytes = 256;
constexpr std::ptrdiff_t kMostStars = 8;
constexpr std::size_t kMostCaptured = 8;
constexpr std::size_t kMostFaultsOfOne = 20;
/// What stands in one line of an alarm; the others may have several. `record` is read by itself.
constexpr std::array<std::string_view, 6> kOnceKeywords{"for",  "keep",     "predict",
                                                        "over", "severity", "text"};

void AddOnce(std::vector<std::size_t>& places, std::size_t place) {
  if (std::ranges::find(places, place) == places.end()) {
    places.push_back(place);
  }
}

/// Makes one definition of one entry.
class AlarmMaker {
 public:
  AlarmMaker(const AlarmEntry& entry, std::vector<IniProblem>& faults)
      : m_entry(entry), m_faults(faults) {}

  AlarmDefinition Make() {
    m_made.name = m_entry.name;
    m_made.line = m_entry.line;
    for (const IniProblem& fault : m_entry.faults) {
      Fault(fault.line, fault.text);
    }
    TakeRecord();
    for (const AlarmLine& line : m_entry.lines) {
      try {
        Take(line);
      } catch (const std::invalid_argument& error) {
        Fault(line.line, error.what());
      }
    }
    if (m_made.layout != nullptr) {
      Complete();
    }
    if (m_leftOut != 0) {
      m_faults.push_back({m_entry.line, "and " + std::to_string(m_leftOut) +
                                            " more faults of the alarm " + m_made.name});
    }
    return std::move(m_made);
  }

 private:
  void Fault(std::size_t line, std::string text) {
    if (m_made.why.empty()) {
      m_made.why = "line " + std::to_string(line) + ": " + text;
    }
    if (++m_faultCount > kMostFaultsOfOne) {
      ++m_leftOut;
      return;
    }
    m_faults.push_back({line, std::move(text)});
  }

  /// Before all else, since the other lines name its fields, wherever they stand.
  void TakeRecord() {
    for (const AlarmLine& line : m_entry.lines) {
      if (line.keyword != "record") {
        continue;
      }
      if (m_made.recordLine != 0) {
        Fault(line.line,
              "the alarm has a record already, in line " + std::to_string(m_made.recordLine));
        continue;
      }
      m_made.recordLine = line.line;
      m_made.record = line.value;
      std::string why;
      m_made.layout = FindAlarmLayout(line.value, why);
      if (m_made.layout == nullptr) {
        Fault(line.line, why);
      }
    }
    if (m_made.recordLine == 0) {
      Fault(m_entry.line, "the alarm has no \"record\"");
    }
  }

  void Take(const AlarmLine& line) {
    const std::string& keyword = line.keyword;
    if (std::ranges::find(kOnceKeywords, keyword) != kOnceKeywords.end()) {
      const auto [first, isFirst] = m_firstLines.emplace(keyword, line.line);
      if (!isFirst) {
        throw std::invalid_argument("the alarm has a line \"" + keyword + "\" already, line " +
                                    std::to_string(first->second));
      }
    }
    if (keyword == "where") {
      TakeCondition(line, m_made.where, false);
    } else if (keyword == "condition") {
      TakeCondition(line, m_made.condition, true);
    } else if (keyword == "until") {
      TakeCondition(line, m_made.until, true);
    } else if (keyword == "capture") {
      TakeCapture(line.value);
    } else if (keyword == "severity") {
      if (!IsAlarmWord(line.value)) {
        throw std::invalid_argument("a severity is a word, not \"" + line.value + "\"");
      }
      m_made.severity = line.value;
    } else if (keyword == "text") {
      m_textLine = line.line;
      m_text = line.value;
    } else {
      TakeTime(line);
    }
  }

  void TakeTime(const AlarmLine& line) {
    const std::array<std::pair<std::string_view, std::chrono::seconds*>, 4> times{
        {{"for", &m_made.holdFor},
         {"keep", &m_made.keep},
         {"predict", &m_made.predict},
         {"over", &m_made.over}}};
    for (const auto& [keyword, time] : times) {
      if (line.keyword == keyword) {
        const auto read = ParseAlarmTime(line.value);
        if (!read) {
          throw std::invalid_argument("\"" + line.keyword +
                                      "\" is a time as in 90s, 5m, 6h or 2d, 31 days at most, "
                                      "not \"" +
                                      line.value + "\"");
        }
        *time = *read;
        if (keyword == "predict") {
          m_predictLine = line.line;
        } else if (keyword == "over") {
          m_overLine = line.line;
        }
      }
    }
  }

  void TakeCondition(const AlarmLine& line, std::vector<RowCondition>& conditions, bool isTold) {
    std::size_t& first =
        isTold ? (&conditions == &m_made.until ? m_untilLine : m_conditionLine) : m_whereLine;
    first = first == 0 ? line.line : first;
    if (m_made.layout == nullptr) {
      return;  // told already
    }
    if (line.value.size() > kMostConditionBytes ||
        std::ranges::count(line.value, '*') > kMostStars) {
      throw std::invalid_argument("a condition has " + std::to_string(kMostConditionBytes) +
                                  " bytes and " + std::to_string(kMostStars) + " stars at most");
    }
    if (conditions.size() >= kMostConditions) {
      throw std::invalid_argument("there are more than " + std::to_string(kMostConditions) +
                                  " lines \"" + line.keyword + "\"");
    }
    RowCondition condition(
        line.value, [this](std::string_view label) { return RowFieldOf(*m_made.layout, label); });
    const FieldLayout& field = m_made.layout->fields[condition.Field().place];
    if (!field.hasSource) {
      throw std::invalid_argument("nothing on this host tells \"" + condition.Field().label +
                                  "\" of " + m_made.record);
    }
    if (isTold && HoldsArguments(field)) {
      throw std::invalid_argument("\"" + condition.Field().label +
                                  "\" holds arguments, which an alarm doesn't tell; \"where\" may "
                                  "name it");
    }
    conditions.push_back(std::move(condition));
  }

  void TakeCapture(std::string_view list) {
    while (!list.empty()) {
      const std::string_view item = list.substr(0, list.find(','));
      list.remove_prefix(std::min(list.size(), item.size() + 1));
      const std::string record(Trimmed(item));
      if (record.empty() || std::ranges::find(m_made.capture, record) != m_made.capture.end()) {
        continue;
      }
      std::string why;
      const RecordLayout* layout = FindAlarmLayout(record, why);
      if (layout == nullptr || layout == &AgentLayout()) {
        throw std::invalid_argument(layout == nullptr ? why : "AGENT has no rows to capture");
      }
      if (m_made.capture.size() >= kMostCaptured) {
        throw std::invalid_argument("an alarm captures " + std::to_string(kMostCaptured) +
                                    " records at most");
      }
      m_made.capture.push_back(record);
    }
  }

  void Complete() {
    const RecordLayout& layout = *m_made.layout;
    for (std::size_t place = 0; place < layout.fields.size(); ++place) {
      if (layout.fields[place].meaning == FieldMeaning::key) {
        m_made.keys.push_back(place);
      }
    }
    for (const auto* conditions : {&m_made.condition, &m_made.until}) {
      for (const RowCondition& condition : *conditions) {
        AddOnce(m_made.values, condition.Field().place);
        if (m_made.predict.count() > 0 && condition.IsNumeric()) {
          AddOnce(m_made.predicted, condition.Field().place);
        }
      }
    }
    CheckConditions();
    CheckPrediction();
    MakeText();
  }

  void CheckConditions() {
    if (m_conditionLine == 0) {
      Fault(m_entry.line, "the alarm has no \"condition\"");
    }
    const bool isPredicted = m_made.predict.count() > 0;
    if (!MayHold(m_made.where, *m_made.layout, false)) {
      Fault(m_whereLine, "no row fulfils all lines \"where\"");
    }
    if (!MayHold(m_made.condition, *m_made.layout, isPredicted)) {
      Fault(m_conditionLine, "no row fulfils all lines \"condition\", so the alarm never begins");
    }
    if (!MayHold(m_made.until, *m_made.layout, isPredicted)) {
      Fault(m_untilLine, "no row fulfils all lines \"until\", so the alarm never ends");
    } else if (!m_made.condition.empty() && (m_untilLine != 0 || IsRowAlwaysThere()) &&
               Implies(m_made.until, m_made.condition, *m_made.layout, isPredicted)) {
      // It ends where `condition` does not hold besides.
      Fault(std::max(m_conditionLine, m_untilLine),
            m_untilLine == 0 ? "every row fulfils all lines \"condition\", so the alarm never ends"
                             : "a row that fulfils all lines \"until\" fulfils all lines "
                               "\"condition\" too, so the alarm never ends");
    }
  }

  /// Else an alarm ends when its row is gone.
  [[nodiscard]] bool IsRowAlwaysThere() const {
    return m_made.where.empty() &&
           std::ranges::none_of(m_made.layout->fields, [](const FieldLayout& field) {
             return field.meaning == FieldMeaning::key;
           });
  }

  void CheckPrediction() {
    if (m_predictLine == 0 && m_overLine == 0) {
      return;
    }
    if (m_made.predict.count() == 0 || m_made.over.count() == 0) {
      Fault(std::max(m_predictLine, m_overLine),
            "\"predict\" and \"over\" go together, and neither is 0");
    } else if (m_made.predicted.empty()) {
      Fault(m_predictLine, "\"predict\" needs a number in \"condition\" or \"until\"");
    }
  }

  void MakeText() {
    try {
      if (m_textLine != 0) {
        m_made.text = AlarmText(m_text, *m_made.layout);
        return;
      }
      std::string text;
      for (const std::size_t place : m_made.keys) {
        text += (text.empty() ? "{" : " {") + std::string(m_made.layout->fields[place].label) + '}';
      }
      for (const std::size_t place : m_made.values) {
        const std::string label = m_made.layout->fields[place].label;
        text += (text.empty() ? "" : ", ") + label + " {" + label + '}';
      }
      m_made.text = AlarmText(text, *m_made.layout);
    } catch (const std::invalid_argument& error) {
      Fault(m_textLine, error.what());
    }
  }

  const AlarmEntry& m_entry;
  std::vector<IniProblem>& m_faults;
  std::size_t m_faultCount = 0;
  std::size_t m_leftOut = 0;
  std::map<std::string, std::size_t> m_firstLines;  ///< by keyword
  AlarmDefinition m_made;
  std::string m_text;
  std::size_t m_textLine = 0;
  std::size_t m_whereLine = 0;
  std::size_t m_conditionLine = 0;
  std::size_t m_untilLine = 0;
  std::size_t m_predictLine = 0;
  std::size_t m_overLine = 0;
};

}  // namespace

const RecordLayout* FindAlarmLayout(const std::string& record, std::string& why) {
  if (record == kAgentRecord) {
    return &AgentLayout();
  }
  const RecordListing* listing = LayoutRegistry::Instance().FindListing(record);
  const RecordLayout* layout = LayoutRegistry::Instance().Find(record);
  if (listing == nullptr || layout == nullptr) {
    why = "no record \"" + record + "\"";
    return nullptr;
  }
  if (!listing->served || !HasTime(*layout)) {
    why = "the record " + record + (listing->served ? " has no time" : " is not served");
    return nullptr;
  }
  return layout;
}

AlarmDefinition MakeAlarmDefinition(const AlarmEntry& entry, std::vector<IniProblem>& faults) {
  return AlarmMaker(entry, faults).Make();
}
