#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "json/Json.h"
#include "local/alarm/AlarmDefinition.h"
#include "local/alarm/AlarmSeries.h"

/// What is known of one alarm of one key.
struct AlarmState {
  enum class Phase {
    kPending,  ///< its condition holds, not long enough yet
    kActive,
    kEnded,  ///< kept for a while, since one that comes and goes is damped
  };
  Phase phase = Phase::kPending;
  std::int64_t held = 0;             ///< seconds for which the condition has held while pending
  std::optional<std::int64_t> over;  ///< seconds for which its end has held while active
  std::int64_t id = 0;               ///< of the alarm, once it has begun
  std::time_t since = 0;             ///< when it began
  std::time_t until = 0;             ///< when it ended
  Json key = Json::Object();
  Json values = Json::Object();
  std::string text;
  std::vector<std::string> captured;  ///< records whose rows were kept with it
  std::deque<std::time_t> begins;     ///< the last ones, see AlarmWatch::kFlaps
  std::uint64_t seen = 0;             ///< the last batch that had its row
};

/// The names in the member `captured` of an alarm's object; what is something else is left out.
[[nodiscard]] std::vector<std::string> CapturedNames(const Json& alarm);

/// Holds one definition against the rows of each batch, and keeps the states of its keys.
///
/// Time counts as rows tell it: between two batches of the record their distance, of which no more
/// than two intervals count, so that what nobody saw counts neither for nor against. A row that is
/// gone from its record ends what was pending and counts as one whose alarm is over. An alarm that
/// has begun kFlaps times within kFlapTime is over only after kFlapKeep. A clock that is set back
/// takes what has been seen along.
class AlarmWatch {
 public:
  static constexpr std::size_t kMostStates = 1000;
  static constexpr std::size_t kMostSeries = 500;
  static constexpr std::size_t kFlaps = 5;
  static constexpr std::chrono::seconds kFlapTime{3600};
  static constexpr std::chrono::seconds kFlapKeep{600};

  /// The begin or end of an alarm; `state` is changed by whoever gives it its number.
  using Change = std::function<void(AlarmWatch& watch, AlarmState& state)>;

  /// Whether the time of a turn is used up.
  using IsOver = std::function<bool()>;

  explicit AlarmWatch(AlarmDefinition definition);

  [[nodiscard]] const AlarmDefinition& Definition() const { return m_definition; }
  /// Why it is not evaluated at present; empty if it is.
  [[nodiscard]] const std::string& Why() const { return m_why; }
  void SetWhy(std::string why) { m_why = std::move(why); }

  /// A batch of the record made rows at `time`; `interval` is that of its schedule. Of one that is
  /// not whole a row that is not there is not gone.
  void Begin(std::time_t time, std::chrono::seconds interval, bool isWhole = true);
  void Row(std::span<const unsigned char> bytes, const Change& change);
  /// All rows of the batch have been given. True if the turn is over and it is to be called again.
  [[nodiscard]] bool End(const Change& change, const IsOver& isOver);
  /// Ends what is active and forgets the rest. True as of End.
  [[nodiscard]] bool EndAll(std::time_t time, const Change& change, const IsOver& isOver);
  /// Rows of the record were kept with the alarm of that number; null if it is not known any more.
  AlarmState* NoteCaptured(std::int64_t id, const std::string& record);

  /// Whether a batch says nothing for being the first one of its schedule, and empty: the first
  /// look makes no rows of an interval. To be asked once of each batch, before Begin.
  [[nodiscard]] bool IsFirstLook(std::uint64_t schedule, bool isEmpty) {
    return std::exchange(m_schedule, schedule) != schedule && isEmpty;
  }

  /// Takes a number of a row of the past.
  void AddPast(const std::string& key, std::size_t field, std::time_t time, double value);

  [[nodiscard]] std::size_t Active() const { return Count(AlarmState::Phase::kActive); }
  [[nodiscard]] std::size_t Pending() const { return Count(AlarmState::Phase::kPending); }
  [[nodiscard]] const std::map<std::string, AlarmState>& States() const { return m_states; }
  /// Keys whose alarm there was no room for.
  [[nodiscard]] std::uint64_t LeftOut() const { return m_leftOut; }
  /// Whether anything has changed that a restart should find, and whether an alarm has begun or
  /// ended; asking forgets it.
  [[nodiscard]] bool TakeIsChanged() { return std::exchange(m_isChanged, false); }
  [[nodiscard]] bool TakeHasTold() { return std::exchange(m_hasTold, false); }

  /// Whether time is counted for or against any of its alarms.
  [[nodiscard]] bool IsCounting() const;

  /// The states, and when they were looked at last, for a file; and from there.
  [[nodiscard]] Json ToJson() const;
  void FromJson(const Json& kept);
  /// An alarm that is active by another source.
  void Adopt(AlarmState state);
  void Forget(const std::set<std::int64_t>& ids);

 private:
  [[nodiscard]] std::size_t Count(AlarmState::Phase phase) const;
  void SetBack(std::time_t time, std::chrono::seconds interval);
  [[nodiscard]] Json KeyOf(std::span<const unsigned char> bytes) const;
  /// The bytes of the key's fields: two rows have the same where their keys are one.
  [[nodiscard]] std::string RawKeyOf(std::span<const unsigned char> bytes) const;
  /// Holds the first row of its key in the batch, which counts, against the definition.
  void Judge(std::span<const unsigned char> bytes, const Change& change);
  /// Puts the numbers that are foretold for the row in place; false if they can't be told yet.
  [[nodiscard]] bool Foretell(const std::string& key, std::span<const unsigned char> bytes);
  void Note(AlarmState& state, bool holds, bool isOver, std::span<const unsigned char> bytes,
            const Change& change);
  void NoteOver(AlarmState& state, const Change& change);
  void Start(AlarmState& state, const Change& change);
  void Fill(AlarmState& state, std::span<const unsigned char> bytes) const;
  [[nodiscard]] std::int64_t KeepOf(const AlarmState& state) const;

  AlarmDefinition m_definition;
  std::string m_why;
  std::map<std::string, AlarmState> m_states;  ///< by the text of the key
  /// By the key: one for each foretold field.
  std::map<std::string, std::vector<AlarmSeries>> m_series;
  std::vector<double> m_foretold;
  std::unordered_set<std::string> m_batchKeys;  ///< of the rows of the batch at work
  std::time_t m_time = 0;                       ///< of the last batch, or the one at work
  std::int64_t m_elapsed = 0;                   ///< of it: seconds that count
  std::uint64_t m_batch = 1;
  bool m_isWhole = true;
  std::uint64_t m_leftOut = 0;
  std::optional<std::uint64_t> m_schedule;  ///< the number of that which has made the last batch
  bool m_isChanged = false;
  bool m_hasTold = false;
};
