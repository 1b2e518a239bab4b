#include "client/view/Prompt.h"

#include <utility>

#include "client/ask/Errors.h"
#include "client/ask/SafeText.h"

namespace {

/// Longer than any condition that the daemon takes.
constexpr std::size_t kLongest = 256;

}  // namespace

Prompt::Prompt(std::string question, std::string text, std::function<void(const std::string&)> done)
    : m_question(std::move(question)), m_text(std::move(text)), m_done(std::move(done)) {}

void Prompt::RemoveLast() {
  // Bytes that go on a character of UTF-8.
  while (!m_text.empty() && (static_cast<unsigned char>(m_text.back()) & 0xC0U) == 0x80U) {
    m_text.pop_back();
  }
  if (!m_text.empty()) {
    m_text.pop_back();
  }
}

bool Prompt::Take(const Key& key) {
  constexpr char kControlU = 21;
  switch (key.code) {
    case KeyCode::kEscape:
      return false;
    case KeyCode::kEnter:
      try {
        m_done(m_text);
        return false;
      } catch (const UsageError& error) {
        m_fault = error.what();
        return true;
      }
    case KeyCode::kBackspace:
      RemoveLast();
      break;
    case KeyCode::kCharacter:
      m_text += m_text.size() < kLongest ? key.text : "";
      break;
    default:
      if (key.text == std::string(1, kControlU)) {
        m_text.clear();
      }
  }
  m_fault.clear();
  return true;
}

void Prompt::Draw(Canvas& canvas, std::size_t line) const {
  std::size_t column = canvas.Put(line, 0, m_question + " ", Tone::kTitle);
  const std::string text = SafeText(m_text);
  column = canvas.Put(line, column, text, Tone::kBold);
  canvas.Paint(line, column, 1, Tone::kSelected);
  canvas.Put(line, column + 2, SafeText(m_fault), Tone::kBad);
}
