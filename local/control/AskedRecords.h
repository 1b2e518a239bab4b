#pragma once

#include <cstddef>
#include <string>
#include <variant>
#include <vector>

#include "local/control/ControlRequest.h"
#include "local/control/RowChoices.h"
#include "local/schedule/BatchDesk.h"
#include "node/LayoutRegistry.h"

/// Elements in the array `records` of one request.
inline constexpr std::size_t kMaxAskedRecords = 1024;

/// A record that a client names, as the agent publishes it, and what of its rows is wanted.
struct AskedRecord {
  std::string name;
  RequestOutcome outcome;      ///< kDone if it can be shown
  const RecordLayout* layout;  ///< null unless the outcome is kDone
  RowChoices choices;  ///< none unless the outcome is kDone: there is nothing to choose from
};

/// The category that a member "category" names, 0 where there is none, or what is wrong with it.
[[nodiscard]] std::variant<unsigned char, ControlError> ReadCategory(const Json& object);

/// The records that the array `records` of a message names, in its order, each with its choices:
/// those of its element and those at the top of the message. There only `arguments` is taken with
/// more than one record, and no choice may stand in both places.
[[nodiscard]] std::variant<std::vector<AskedRecord>, ControlError> ReadAskedRecords(
    const Json& message);
