#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/show/Table.h"
#include "json/RowText.h"

/// How the values of one label are shown.
struct ColumnStyle {
  std::string label;
  std::string heading;    ///< what stands above it
  std::size_t place = 0;  ///< where the label stands in a row as a rule
  std::string group;      ///< the heading that it stands under, empty for none
  bool time = false;
  bool key = false;
  int decimals = 0;
  bool bytes = false;  ///< shown by BytesText
};

/// The labels of all rows, in the order of their first coming. Throws ClientError for more of them
/// than any record has.
[[nodiscard]] std::vector<std::string> LabelsOf(const Json& rows);

/// The value of `label` in `row`, or null; `place` is where it stands as a rule.
[[nodiscard]] const Json& ValueOf(const Json& row, std::size_t place, const std::string& label);

/// One style for each column that the schema shows, or else for each label in the order of
/// LabelsOf. A schema without fields is fine.
[[nodiscard]] std::vector<ColumnStyle> StylesOf(const Json& rows, const Schema& schema);

/// Gives the columns the decimals that these rows want, where those are more.
void RaiseDecimals(std::vector<ColumnStyle>& styles, const Json& rows);

/// The value as people read it.
[[nodiscard]] Cell CellOf(const Json& value, const ColumnStyle& style);

/// Bytes in the unit that leaves few digits, rounded up as df(1) does: "512", "1.5K", "12G"; "-"
/// for no size.
[[nodiscard]] std::string BytesText(double bytes);
