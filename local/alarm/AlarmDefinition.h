#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "json/RowCondition.h"
#include "local/alarm/AlarmFile.h"
#include "local/alarm/AlarmText.h"
#include "node/LayoutRegistry.h"

/// An alarm as it is evaluated.
struct AlarmDefinition {
  std::string name;
  std::size_t line = 0;        ///< in its file, of the keyword `alarm`
  std::size_t recordLine = 0;  ///< of the keyword `record`; 0 without one
  std::string record;
  const RecordLayout* layout = nullptr;  ///< of the record; null if there is none
  std::vector<RowCondition> where;       ///< which rows it is about
  std::vector<RowCondition> condition;   ///< all of them: the alarm begins
  std::vector<RowCondition> until;       ///< all of them: it ends; none: once `condition` fails
  std::chrono::seconds holdFor{0};       ///< how long `condition` holds before it begins
  std::chrono::seconds keep{0};          ///< how long its end must hold
  std::chrono::seconds predict{0};       ///< how far ahead numbers are told; 0: present ones
  std::chrono::seconds over{0};          ///< the past that they are told from
  std::string severity = "warning";
  AlarmText text;
  std::vector<std::string> capture;    ///< records whose rows are kept with it
  std::vector<std::size_t> keys;       ///< places of the fields that tell rows apart
  std::vector<std::size_t> values;     ///< places of the fields of `condition` and `until`
  std::vector<std::size_t> predicted;  ///< those of them that are numbers, where `predict` is set
  std::string why;  ///< what is wrong with it, so that it can't be evaluated; empty if nothing
};

/// The layout of a record that alarms may be about: a published one that is served, or that of
/// kAgentRecord. Null with the reason in `why`.
[[nodiscard]] const RecordLayout* FindAlarmLayout(const std::string& record, std::string& why);

/// Looks up what the entry names. Each fault is added to `faults`, but for the number of those
/// beyond twenty; the first one is the definition's `why`.
[[nodiscard]] AlarmDefinition MakeAlarmDefinition(const AlarmEntry& entry,
                                                  std::vector<IniProblem>& faults);
