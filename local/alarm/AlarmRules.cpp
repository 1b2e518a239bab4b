#include "local/alarm/AlarmRules.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "json/JsonText.h"
#include "local/alarm/AgentRow.h"
#include "local/metrics/MetricFamily.h"
#include "local/metrics/RowBound.h"
#include "node/RecordCategory.h"

namespace {

constexpr std::string_view kRange = "[5m]";
constexpr double kRuleIntervalWithout = 60;

/// Why a condition can't be a rule.
class NoRule : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The daemon's own figures, which no record has.
struct AgentMetric {
  std::string_view label;
  std::string_view metric;
  std::string_view other{};  ///< a counter that counts as well
};
constexpr std::array kAgentMetrics{
    AgentMetric{"History Lost Batches", "qmt_agent_history_lost_batches_total"},
    AgentMetric{"Skipped Times", "qmt_agent_schedule_skipped_total"},
    AgentMetric{"Failed Records", "qmt_agent_batch_failed_records"},
    AgentMetric{"Collect Errors", "qmt_agent_collect_errors_total"},
    AgentMetric{"Failed Commands", "qmt_agent_alarm_command_failures_total",
                "qmt_agent_alarm_dropped_commands_total"},
    AgentMetric{"Batch Seconds", "qmt_agent_batch_duration_seconds"}};

std::string NumberText(double value) {
  std::array<char, 64> digits{};
  return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr};
}

std::string RuleSign(std::string_view sign) { return sign == "=" ? "==" : std::string(sign); }

std::string InQuotationMarks(std::string_view text) { return JsonText(Json(text)); }

/// A shell pattern as a regular expression of the rule language.
std::string RegexOf(std::string_view pattern) {
  std::string regex;
  for (std::size_t at = 0; at < pattern.size(); ++at) {
    const char c = pattern[at];
    if (c == '*') {
      regex += ".*";
    } else if (c == '?') {
      regex += '.';
    } else if (c == '[') {
      throw NoRule("its pattern has a set of letters");
    } else {
      const char letter = c == '\\' && at + 1 < pattern.size() ? pattern[++at] : c;
      if (std::string_view("\\.+()|^${}[]*?").find(letter) != std::string_view::npos) {
        regex += '\\';
      }
      regex += letter;
    }
  }
  return regex;
}

/// What a label must be, as it stands between braces.
std::string Matcher(const std::string& label, const RowCondition& condition) {
  const std::string_view sign = condition.Sign();
  const std::string name = SnakeCase(label.c_str());
  if (sign == "=" || sign == "!=") {
    return name + std::string(sign) + InQuotationMarks(condition.Operand());
  }
  if (sign == "~" || sign == "!~") {
    return name + (sign == "~" ? "=~" : "!~") + InQuotationMarks(RegexOf(condition.Operand()));
  }
  throw NoRule("\"" + label + "\" is a text, which rules don't sort");
}

/// Makes the rule of one alarm.
class RuleMaker {
 public:
  RuleMaker(const AlarmDefinition& definition, double interval)
      : m_alarm(definition), m_metrics(MetricsOf(*definition.layout)), m_interval(interval) {}

  std::string Expression() {
    if (!IsExposable(*m_alarm.layout)) {
      throw NoRule("its record has a row per process, which is no metric");
    }
    LeaveOutSum();
    // The first one gives a rule its value.
    SortOut(m_alarm.condition, true);
    SortOut(m_alarm.where, false);
    std::string expression;
    for (const auto& [condition, isCondition] : m_numbers) {
      expression += (expression.empty() ? "" : " and ") + Term(*condition, isCondition);
    }
    if (m_infoMatchers.empty()) {
      if (expression.empty()) {
        throw NoRule("it compares keys alone, which is no figure");
      }
      return expression;
    }
    const std::string info = m_metrics.families.back().name + "_info" + Braces(true);
    return expression.empty() ? info + " == 1"
                              : expression + " and on (" + OnLabels() + ") " + info;
  }

  /// The text in the template language of rules.
  [[nodiscard]] std::string Summary() const {
    std::string text;
    for (const AlarmText::Part& part : m_alarm.text.Parts()) {
      if (!part.field) {
        text += Literal(part.text);
      } else if (std::ranges::find(m_alarm.keys, *part.field) != m_alarm.keys.end()) {
        text += "{{ $labels." + SnakeCase(part.text.c_str()) + " }}";
      } else {
        text += Literal('(' + part.text + ')');
      }
    }
    return text;
  }

 private:
  static std::string Literal(const std::string& text) {
    std::string literal;
    for (const char c : text) {
      literal += c == '{' ? "{{ \"{\" }}" : std::string(1, c);
    }
    return literal;
  }

  /// The sum of many rows is no row of the agent, and its counters may fall.
  void LeaveOutSum() {
    if (IsBounded(*m_alarm.layout)) {
      for (const std::string& key : m_metrics.keyNames) {
        m_keyMatchers.push_back(key + "!=" + InQuotationMarks(kSummedKey));
      }
    }
  }

  void SortOut(const std::vector<RowCondition>& conditions, bool isCondition) {
    for (const RowCondition& condition : conditions) {
      const FieldLayout& field = m_alarm.layout->fields[condition.Field().place];
      if (m_alarm.layout == &AgentLayout()) {
        m_numbers.emplace_back(&condition, isCondition);
      } else if (field.meaning == FieldMeaning::key) {
        m_keyMatchers.push_back(KeyMatcher(field, condition));
      } else if (std::ranges::find(m_metrics.texts, &field) != m_metrics.texts.end()) {
        if (m_metrics.families.empty() || m_metrics.families.back().kind != MetricKind::kInfo) {
          throw NoRule(std::string("\"") + field.label + "\" is in no metric");
        }
        m_infoMatchers.push_back(Matcher(field.label, condition));
      } else if (field.type == FieldType::kText) {
        throw NoRule(std::string("\"") + field.label + "\" is in no metric");
      } else {
        m_numbers.emplace_back(&condition, isCondition);
      }
    }
  }

  static std::string KeyMatcher(const FieldLayout& field, const RowCondition& condition) {
    if (condition.IsNumeric() && condition.Sign() != "=" && condition.Sign() != "!=") {
      throw NoRule(std::string("\"") + field.label +
                   "\" is a label of its metrics, which rules don't compare as a number");
    }
    return Matcher(field.label, condition);
  }

  [[nodiscard]] std::string Braces(bool withInfo) const {
    std::string text;
    for (const std::string& matcher : m_keyMatchers) {
      text += (text.empty() ? "" : ",") + matcher;
    }
    if (withInfo) {
      for (const std::string& matcher : m_infoMatchers) {
        text += (text.empty() ? "" : ",") + matcher;
      }
    }
    return text.empty() ? "" : '{' + text + '}';
  }

  [[nodiscard]] std::string OnLabels() const {
    std::string labels = "instance, job";
    for (const FieldLayout* key : m_metrics.keys) {
      labels += ", " + SnakeCase(key->label);
    }
    return labels;
  }

  [[nodiscard]] const MetricFamily* FindFamily(std::string_view label) const {
    const auto found = std::ranges::find_if(m_metrics.families, [&](const MetricFamily& family) {
      return family.field != nullptr && label == family.field->label;
    });
    return found == m_metrics.families.end() ? nullptr : &*found;
  }

  [[nodiscard]] const MetricFamily* FindCounter(std::string_view label) const {
    const MetricFamily* const family = FindFamily(label);
    return family != nullptr && family->kind == MetricKind::kCounter ? family : nullptr;
  }

  [[nodiscard]] std::string Series(const MetricFamily& family) const {
    return family.name + (family.kind == MetricKind::kCounter ? "_total" : "") + Braces(false);
  }

  std::string Term(const RowCondition& condition, bool isCondition) const {
    const FieldLayout& field = m_alarm.layout->fields[condition.Field().place];
    const std::string sign = ' ' + RuleSign(condition.Sign()) + ' ';
    if (!condition.IsNumeric()) {
      throw NoRule("\"" + condition.Field().label + "\" is compared as a text");
    }
    const double bound = condition.Number();
    if (m_alarm.layout == &AgentLayout()) {
      return AgentTerm(field, sign, bound);
    }
    const bool isAhead = isCondition && m_alarm.predict.count() > 0;
    const MetricFamily* family = FindFamily(field.label);
    if (family != nullptr && family->kind != MetricKind::kCounter) {
      const std::string limit = sign + NumberText(bound * family->factor / family->divisor);
      return isAhead ? "predict_linear(" + Series(*family) + '[' + AlarmTimeText(m_alarm.over) +
                           "], " + std::to_string(m_alarm.predict.count()) + ')' + limit
                     : Series(*family) + limit;
    }
    if (isAhead) {
      throw NoRule("\"" + condition.Field().label +
                   "\" is no metric by itself, so that no line can be drawn through it");
    }
    return CounterTerm(field, family, sign, bound);
  }

  /// Of what the rows have by the interval, rules have the counter behind it.
  std::string CounterTerm(const FieldLayout& field, const MetricFamily* family,
                          const std::string& sign, double bound) const {
    if (family != nullptr) {
      const double base = bound * family->factor / family->divisor;
      return m_alarm.layout->category == kIntervalCategory
                 ? Rate(*family) + " * " + NumberText(m_interval) + sign + NumberText(base)
                 : Series(*family) + sign + NumberText(base);
    }
    if (*field.rateOf != '\0') {
      if (const MetricFamily* counter = FindCounter(field.rateOf); counter != nullptr) {
        return Rate(*counter) + sign + NumberText(bound * counter->factor / counter->divisor);
      }
    }
    if (const MetricFamily* part = FindCounter(field.growthOf); part != nullptr) {
      const bool isPercent = field.meaning == FieldMeaning::percent;
      const std::string limit =
          sign + NumberText(isPercent ? bound / 100 : bound * part->factor / part->divisor);
      if (*field.growthBy == '\0') {
        return Rate(*part) + limit;
      }
      if (const MetricFamily* whole = FindCounter(field.growthBy); whole != nullptr) {
        return Rate(*part) + " / " + Rate(*whole) + limit;
      }
    }
    throw NoRule(std::string("no metric tells \"") + field.label + '"');
  }

  [[nodiscard]] std::string Rate(const MetricFamily& family) const {
    return "rate(" + Series(family) + std::string(kRange) + ')';
  }

  static std::string AgentTerm(const FieldLayout& field, const std::string& sign, double bound) {
    const auto found = std::ranges::find(kAgentMetrics, field.label, &AgentMetric::label);
    if (found == kAgentMetrics.end()) {
      throw NoRule(std::string("no metric tells \"") + field.label + '"');
    }
    if (field.meaning != FieldMeaning::counter) {
      // Without the further labels of a target, which the sums below have lost.
      return "max by (instance, job) (" + std::string(found->metric) + ')' + sign +
             NumberText(bound);
    }
    const auto growth = [](std::string_view metric) {
      return "sum by (instance, job) (increase(" + std::string(metric) + std::string(kRange) + "))";
    };
    return growth(found->metric) + (found->other.empty() ? "" : " + " + growth(found->other)) +
           sign + NumberText(bound);
  }

  const AlarmDefinition& m_alarm;
  RecordMetrics m_metrics;
  double m_interval;
  std::vector<std::string> m_keyMatchers;
  std::vector<std::string> m_infoMatchers;
  std::vector<std::pair<const RowCondition*, bool>> m_numbers;  ///< and whether of `condition`
};

/// Why there is none. A fault quotes the file, whose letters may be any.
std::string NoRuleComment(const AlarmDefinition& definition, const std::string& reason) {
  std::string words = ValidUtf8(reason);
  std::ranges::replace_if(
      words, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
  return "      # " + definition.name + ": no rule, since " + words + ".\n";
}

void AddRule(std::string& text, const AlarmDefinition& definition, double interval) {
  RuleMaker maker(definition, interval);
  std::string expression;
  try {
    if (!definition.why.empty()) {
      throw NoRule("it is off, " + definition.why);
    }
    expression = maker.Expression();
  } catch (const NoRule& reason) {
    text += NoRuleComment(definition, reason.what());
    return;
  }
  if (!definition.until.empty()) {
    text += "      # " + definition.name +
            ": rules know no other condition to end at, so \"until\" is left out.\n";
  }
  text += "      - alert: " + InQuotationMarks(definition.name) + '\n';
  text += "        expr: " + InQuotationMarks(expression) + '\n';
  if (definition.holdFor.count() > 0) {
    text += "        for: " + AlarmTimeText(definition.holdFor) + '\n';
  }
  if (definition.keep.count() > 0) {
    text += "        keep_firing_for: " + AlarmTimeText(definition.keep) + '\n';
  }
  text += "        labels:\n          severity: " + InQuotationMarks(definition.severity) + '\n';
  text += "          record: " + InQuotationMarks(definition.record) + '\n';
  text += "        annotations:\n          summary: " + InQuotationMarks(maker.Summary()) + '\n';
}

}  // namespace

std::string AlarmRules(const std::vector<const AlarmDefinition*>& definitions,
                       const AlarmInterval& intervalOf) {
  std::string rules;
  for (const AlarmDefinition* definition : definitions) {
    if (definition->layout == nullptr) {
      rules += NoRuleComment(*definition, "it is off, " + definition->why);
      continue;
    }
    const auto interval = static_cast<double>(intervalOf(definition->record).count());
    AddRule(rules, *definition, interval > 0 ? interval : kRuleIntervalWithout);
  }
  const bool hasRule = rules.find("- alert:") != std::string::npos;
  return "# The alarms of this host as Prometheus rules.\ngroups:\n  - name: "
         "qmtdmon-host-alarms\n" +
         std::string(hasRule ? "    rules:\n" : "    rules: []\n") + rules;
}
