#include "gate/daemon/DaemonFollow.h"

#include <chrono>
#include <utility>

#include "json/JsonText.h"

DaemonFollow::DaemonFollow(DaemonDesk& desk, const Json& request, Hooks hooks)
    : m_desk(desk), m_hooks(std::move(hooks)), m_ask(desk.Loop(), std::chrono::milliseconds(0)) {
  m_ask.Start(
      m_desk.Path(), JsonText(request), [this](std::string_view bytes) { Take(bytes); },
      [this](DaemonAsk::End) { End(); });
}

void DaemonFollow::Take(std::string_view bytes) {
  m_desk.Memory().NoteBytes(bytes.size());
  while (!bytes.empty() && !m_isOver) {
    const std::size_t end = bytes.find('\n');
    m_line += bytes.substr(0, end);
    if (m_line.size() > kMaxLine) {
      End();
      return;
    }
    if (end == std::string_view::npos) {
      return;
    }
    bytes.remove_prefix(end + 1);
    TakeLine(std::exchange(m_line, {}));
  }
}

void DaemonFollow::TakeLine(std::string_view line) {
  if (std::exchange(m_isAnswered, true)) {
    m_hooks.onLine(line);
    return;
  }
  const bool isGood = line.starts_with("{\"ok\":true");
  m_isOver = !isGood;
  m_hooks.onAnswer(isGood, line);
}

void DaemonFollow::End() {
  m_line = {};
  if (!std::exchange(m_isOver, true)) {
    m_hooks.onEnd();
  }
}
