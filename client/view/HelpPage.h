#pragma once

#include <cstddef>

#include "client/view/Area.h"
#include "client/view/Canvas.h"
#include "client/view/Key.h"

/// The keys, told over the panes.
class HelpPage {
 public:
  /// Takes a key; false if it closes the page.
  [[nodiscard]] bool Take(const Key& key, const Area& area);
  void Draw(Canvas& canvas, const Area& area) const;

 private:
  std::size_t m_top = 0;
};
