#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

/// One server-sent event, shared by all who take it.
struct EventFrame {
  std::shared_ptr<const std::string> text;
  std::string record;  ///< whose rows it holds; empty for one that is for all
};

/// The event of a line that the operation `follow` has sent, without its newline.
[[nodiscard]] EventFrame FrameOfLine(std::string_view line);
/// The event of a line that the operation `alarm_follow` has sent; without a text if it tells none.
[[nodiscard]] EventFrame FrameOfAlarm(std::string_view line);
/// An event of rows of one time that were kept: `rows` are the elements of an array of JSON.
[[nodiscard]] EventFrame FrameOfRows(const std::string& record, const std::string& category,
                                     std::int64_t time, std::string_view rows);
/// An event of the name with one line of data.
[[nodiscard]] EventFrame FrameOf(std::string_view event, std::string_view data);
