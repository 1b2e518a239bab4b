#include "client/view/RowLines.h"

#include <algorithm>
#include <compare>
#include <string_view>
#include <unordered_map>

#include "json/JsonText.h"

namespace {

constexpr std::size_t kNoParent = static_cast<std::size_t>(-1);
/// A tree that is deeper goes on at this level.
constexpr std::size_t kDeepest = 64;

std::string IdentityText(const Json& row, const char* label) {
  const Json* value = row.Find(label);
  return value == nullptr ? std::string() : value->IsString() ? value->Text() : JsonText(*value);
}

/// Less: `a` is listed before `b`.
std::weak_ordering CompareValues(const Json* a, const Json* b, bool isDescending) {
  const bool hasA = a != nullptr && !a->IsNull();
  const bool hasB = b != nullptr && !b->IsNull();
  if (!hasA || !hasB) {
    return hasB <=> hasA;
  }
  std::weak_ordering order = std::weak_ordering::equivalent;
  if (a->IsNumber() && b->IsNumber()) {
    order = std::weak_order(a->Number(), b->Number());
  } else if (a->IsString() && b->IsString()) {
    order = a->Text() <=> b->Text();
  }
  return isDescending ? 0 <=> order : order;
}

/// The places of the rows as they are listed without a tree.
std::vector<std::size_t> SortedPlaces(const std::vector<Json>& rows, const RowArrangement& how) {
  std::vector<std::size_t> places(rows.size());
  std::vector<const Json*> values(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    places[i] = i;
    values[i] = how.sort.empty() ? nullptr : rows[i].Find(how.sort);
  }
  std::stable_sort(places.begin(), places.end(), [&](std::size_t a, std::size_t b) {
    return CompareValues(values[a], values[b], how.isDescending) < 0;
  });
  return places;
}

std::vector<std::size_t> ParentsByNumber(const std::vector<Json>& rows) {
  std::unordered_map<std::string, std::size_t> places;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    places.try_emplace(IdentityText(rows[i], "PID"), i);
  }
  std::vector<std::size_t> parents(rows.size(), kNoParent);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const auto parent = places.find(IdentityText(rows[i], "Parent PID"));
    if (parent != places.end() && parent->second != i) {
      parents[i] = parent->second;
    }
  }
  return parents;
}

constexpr int kMostLevels = 256;
constexpr std::size_t kLongestPath = 4096;

/// The nearest group above that has a row.
std::vector<std::size_t> ParentsByPath(const std::vector<Json>& rows) {
  std::unordered_map<std::string, std::size_t> places;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    places.try_emplace(IdentityText(rows[i], "Path"), i);
  }
  std::vector<std::size_t> parents(rows.size(), kNoParent);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    std::string path = IdentityText(rows[i], "Path");
    // What a daemon sends may be of any length.
    for (int level = 0; level < kMostLevels && path.size() > 1 && path.size() <= kLongestPath &&
                        parents[i] == kNoParent;
         ++level) {
      const std::size_t slash = path.rfind('/');
      path.resize(slash == std::string::npos ? 0 : std::max<std::size_t>(slash, 1));
      const auto parent = places.find(path);
      if (parent != places.end() && parent->second != i) {
        parents[i] = parent->second;
      }
    }
  }
  return parents;
}

/// Lists rows below their parents.
class TreeList {
 public:
  TreeList(const std::vector<Json>& rows, const std::vector<std::size_t>& order,
           const std::vector<std::size_t>& parents, const std::vector<bool>& isTaken)
      : m_rows(rows), m_children(rows.size()), m_isTaken(isTaken), m_isListed(rows.size()) {
    for (const std::size_t place : order) {
      if (parents[place] != kNoParent) {
        m_children[parents[place]].push_back(place);
      }
    }
    for (const std::size_t place : order) {
      if (parents[place] == kNoParent) {
        Add(place);
      }
    }
    // Those that call each other parent have nobody above them.
    for (const std::size_t place : order) {
      Add(place);
    }
  }

  [[nodiscard]] std::vector<RowLine> Take() { return std::move(m_lines); }

 private:
  struct Waiting {
    std::size_t place;
    std::size_t depth;
  };

  void Add(std::size_t root) {
    std::vector<Waiting> waiting{{root, 0}};
    while (!waiting.empty()) {
      const auto [place, depth] = waiting.back();
      waiting.pop_back();
      if (m_isListed[place]) {
        continue;
      }
      m_isListed[place] = true;
      if (m_isTaken[place]) {
        m_lines.push_back({&m_rows[place], std::min(depth, kDeepest)});
      }
      const std::vector<std::size_t>& children = m_children[place];
      for (auto child = children.rbegin(); child != children.rend(); ++child) {
        waiting.push_back({*child, depth + 1});
      }
    }
  }

  const std::vector<Json>& m_rows;
  std::vector<std::vector<std::size_t>> m_children;
  const std::vector<bool>& m_isTaken;
  std::vector<bool> m_isListed;
  std::vector<RowLine> m_lines;
};

/// Takes those above a taken row too, so that it is seen where it hangs.
void TakeParents(std::vector<bool>& isTaken, const std::vector<std::size_t>& parents) {
  const std::vector<bool> filtered = isTaken;
  for (std::size_t i = 0; i < filtered.size(); ++i) {
    if (!filtered[i]) {
      continue;
    }
    for (std::size_t above = parents[i]; above != kNoParent && !isTaken[above];
         above = parents[above]) {
      isTaken[above] = true;
    }
  }
}

}  // namespace

std::vector<RowLine> ArrangeRows(const Json& rows, const RowFilter& filter,
                                 const RowArrangement& arrangement) {
  const std::vector<Json>& elements = rows.Elements();
  std::vector<bool> isTaken(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) {
    isTaken[i] = filter.Holds(elements[i]);
  }
  const std::vector<std::size_t> order = SortedPlaces(elements, arrangement);
  if (arrangement.tree != TreeKind::kNone) {
    const std::vector<std::size_t> parents = arrangement.tree == TreeKind::kParents
                                                 ? ParentsByNumber(elements)
                                                 : ParentsByPath(elements);
    TakeParents(isTaken, parents);
    return TreeList(elements, order, parents, isTaken).Take();
  }
  std::vector<RowLine> lines;
  for (const std::size_t place : order) {
    if (isTaken[place]) {
      lines.push_back({&elements[place], 0});
    }
  }
  return lines;
}

std::vector<std::string> TreeLabels(TreeKind kind) {
  switch (kind) {
    case TreeKind::kParents:
      return {"PID", "Parent PID"};
    case TreeKind::kPaths:
      return {"Path"};
    case TreeKind::kNone:
      break;
  }
  return {};
}

std::string RowKey(const Json& row, const Schema& schema) {
  std::string key;
  for (const Field& field : schema.fields) {
    if (field.meaning == "key") {
      const Json* value = row.Find(field.label);
      key += (value == nullptr ? "" : JsonText(*value)) + ' ';
    }
  }
  return key;
}
