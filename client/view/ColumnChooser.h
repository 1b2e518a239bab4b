#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "client/ask/Answers.h"
#include "client/view/Area.h"
#include "client/view/Canvas.h"
#include "client/view/Key.h"

/// The fields of a record to choose columns from.
class ColumnChooser {
 public:
  /// `chosen` are the labels that are columns now, in their order. `done` gets the new ones: none
  /// for those of the beginning.
  ColumnChooser(const Schema& schema, const std::vector<std::string>& chosen,
                std::function<void(const std::vector<std::string>&)> done);

  /// Takes a key; false once the choice is made or given up.
  [[nodiscard]] bool Take(const Key& key, const Area& area);
  void Draw(Canvas& canvas, const Area& area);

 private:
  struct Entry {
    std::string label;
    std::string help;
    bool isChosen = false;
  };

  void Shift(bool isUp);

  std::vector<Entry> m_entries;  ///< the columns first, in their order
  std::size_t m_cursor = 0;
  std::size_t m_top = 0;
  std::function<void(const std::vector<std::string>&)> m_done;
};
