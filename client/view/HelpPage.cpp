#include "client/view/HelpPage.h"

#include <algorithm>
#include <string_view>

#include "client/view/KeyHelp.h"

namespace {

constexpr std::size_t kKeyRoom = 22;

}  // namespace

bool HelpPage::Take(const Key& key, const Area& area) {
  const std::size_t count = AllKeyHelp().size();
  const std::size_t last = count + 1 > area.height ? count + 1 - area.height : 0;
  const std::size_t page = std::max<std::size_t>(area.height, 3) - 2;
  switch (key.code) {
    case KeyCode::kDown:
    case KeyCode::kWheelDown:
      m_top = std::min(m_top + 1, last);
      return true;
    case KeyCode::kUp:
    case KeyCode::kWheelUp:
      m_top -= m_top > 0 ? 1 : 0;
      return true;
    case KeyCode::kPageDown:
      m_top = std::min(m_top + page, last);
      return true;
    case KeyCode::kPageUp:
      m_top -= std::min(m_top, page);
      return true;
    case KeyCode::kResize:
      return true;
    default:
      return false;
  }
}

void HelpPage::Draw(Canvas& canvas, const Area& area) const {
  if (area.height == 0) {
    return;
  }
  canvas.Put(area.line, 0, "Keys   (any other key closes this page)", Tone::kBold);
  const auto keys = AllKeyHelp();
  for (std::size_t i = 0; i + 1 < area.height && m_top + i < keys.size(); ++i) {
    const KeyHelp& help = keys[m_top + i];
    const std::size_t line = area.line + 1 + i;
    const std::string_view name = help.keys;
    if (name.empty()) {
      canvas.Put(line, 0, help.text, Tone::kTitle);
      continue;
    }
    const std::size_t behind = canvas.Put(line, 2, name, Tone::kBold);
    canvas.Put(line, std::max(behind + 2, kKeyRoom), help.text);
  }
}
