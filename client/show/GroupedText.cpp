#include "client/show/GroupedText.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "client/ask/SafeText.h"
#include "client/show/Table.h"
namespace {

constexpr std::size_t kDefaultWidth = 80;
constexpr std::size_t kIndent = 2;
constexpr std::size_t kColumnGap = 4;
constexpr std::size_t kMostColumns = 3;

struct Pair {
  std::string label;
  std::string value;
  /// The columns that it takes at least.
  [[nodiscard]] std::size_t Width() const { return TextWidth(label) + kGap + TextWidth(value); }
};

struct Group {
  std::string heading;
  std::vector<Pair> pairs;

  [[nodiscard]] std::size_t PairWidth() const {
    std::size_t width = 0;
    for (const Pair& pair : pairs) {
      width = std::max(width, pair.Width());
    }
    return width;
  }
};

/// Where a heading stands on the screen: those that an operator looks at first come first.
std::size_t RankOf(const std::string& heading) {
  static constexpr std::array kFirstHeadings{"",       "Load",   "CPU", "Memory", "Swap",
                                             "Paging", "Faults", "I/O", "Packets"};
  return static_cast<std::size_t>(std::find(kFirstHeadings.begin(), kFirstHeadings.end(), heading) -
                                  kFirstHeadings.begin());
}

std::vector<Group> GroupsOf(const Json& row, const std::vector<ColumnStyle>& styles) {
  std::vector<Group> groups(1);
  for (const ColumnStyle& style : styles) {
    const auto same = [&](const Group& group) { return group.heading == style.group; };
    auto group = std::find_if(groups.begin(), groups.end(), same);
    if (group == groups.end()) {
      group = groups.insert(groups.end(), Group{style.group, {}});
    }
    group->pairs.push_back(
        {SafeText(style.label), CellOf(ValueOf(row, style.place, style.label), style).text});
  }
  std::stable_sort(groups.begin(), groups.end(), [](const Group& a, const Group& b) {
    return RankOf(a.heading) < RankOf(b.heading);
  });
  return groups;
}

/// How many pairs of that width fit side by side.
std::size_t ColumnsOf(std::size_t pairWidth, std::size_t room) {
  return std::clamp((room + kColumnGap) / (pairWidth + kColumnGap), std::size_t{1}, kMostColumns);
}

/// The pairs down one column after the other; labels to the left, values to the right.
std::string PairsText(const std::vector<Pair>& pairs, std::size_t pairWidth, std::size_t room) {
  const std::size_t columns = ColumnsOf(pairWidth, room);
  const std::size_t lines = (pairs.size() + columns - 1) / columns;
  std::string text;
  for (std::size_t line = 0; line < lines; ++line) {
    text.append(kIndent, ' ');
    for (std::size_t i = line; i < pairs.size(); i += lines) {
      const Pair& pair = pairs[i];
      text.append(i == line ? 0 : kColumnGap, ' ');
      text += pair.label;
      text.append(kGap + pairWidth - std::min(pairWidth, pair.Width()), ' ');
      text += pair.value;
    }
    text += '\n';
  }
  return text;
}

std::string RowText(const std::vector<Group>& groups, const Screen& screen) {
  const std::size_t width = screen.width == 0 ? kDefaultWidth : screen.width;
  const std::size_t room = width - std::min(width, kIndent);
  std::size_t shared = 0;
  for (const Group& group : groups) {
    shared = std::max(shared, group.PairWidth());
  }
  std::string text;
  for (const Group& group : groups) {
    if (group.pairs.empty()) {
      continue;
    }
    text += text.empty() ? "" : "\n";
    if (!group.heading.empty()) {
      text += Emphasize(SafeText(group.heading), screen) + '\n';
    }
    // One pair that is too wide costs its own group the columns, not all of them.
    const bool isShared = ColumnsOf(shared, room) > 1;
    text += PairsText(group.pairs, isShared ? shared : group.PairWidth(), room);
  }
  return text;
}

}  // namespace

bool HasGroups(const std::vector<ColumnStyle>& styles) {
  return std::any_of(styles.begin(), styles.end(),
                     [](const ColumnStyle& style) { return !style.group.empty(); });
}

std::string GroupedText(const Json& rows, const std::vector<ColumnStyle>& styles,
                        const Screen& screen) {
  std::string text;
  for (const Json& row : rows.Elements()) {
    text += text.empty() ? "" : "\n";
    text += RowText(GroupsOf(row, styles), screen);
  }
  return text;
}
