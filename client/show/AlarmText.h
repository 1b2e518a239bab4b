#pragma once

#include <string>
#include <vector>

#include "client/ask/AlarmAnswers.h"
#include "client/show/Terminal.h"

/// A line for each alarm. An empty text for none.
[[nodiscard]] std::string AlarmsText(const std::vector<Alarm>& alarms, const Screen& screen);

/// One alarm as lines of label and value, those of its conditions' fields among them.
[[nodiscard]] std::string AlarmText(const Alarm& alarm, const Screen& screen);
