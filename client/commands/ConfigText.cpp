#include "client/commands/ConfigText.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

#include "client/ask/SafeText.h"
namespace {

/// Off a terminal no line is parted, so that other programs find what they look for.
constexpr std::size_t kUnlimited = 1U << 20;
constexpr std::size_t kLeastWidth = 20;
constexpr std::size_t kLevelIndent = 2;
constexpr std::size_t kIdWidth = 5;

enum class Look { kPlain, kBold, kDim };

/// A piece of safe text that is not parted if it fits into a line.
struct Word {
  std::string text;
  Look look = Look::kPlain;
};

void AddWords(std::vector<Word>& words, const std::string& text, Look look) {
  const std::string safe = SafeText(text);
  for (std::size_t begin = 0; begin < safe.size();) {
    const std::size_t end = std::min(safe.find(' ', begin), safe.size());
    if (end > begin) {
      words.push_back({safe.substr(begin, end - begin), look});
    }
    begin = end + 1;
  }
}

/// Puts words into lines of a limited width, with a blank between two words.
class Paragraph {
 public:
  /// `indent` blanks, fewer than `width`, stand in front of each line.
  Paragraph(std::size_t indent, std::size_t width, const Screen& screen)
      : m_screen(screen), m_indent(indent), m_room(width - indent) {
    StartLine();
  }

  void Add(const Word& word) {
    std::string_view rest = word.text;
    const std::size_t needed = TextWidth(rest) + (m_used == 0 ? 0 : 1);
    if (m_used != 0 && m_used + needed > m_room) {
      EndLine();
    }
    if (m_used != 0) {
      m_text += ' ';
      ++m_used;
    }
    while (TextWidth(rest) > m_room - m_used) {
      const std::string_view part = CutText(rest, m_room - m_used);
      Append(std::string(part), word.look);
      rest.remove_prefix(part.size());
      EndLine();
    }
    Append(std::string(rest), word.look);
  }

  [[nodiscard]] std::string Text() && { return std::move(m_text) + '\n'; }

 private:
  void StartLine() {
    m_text.append(m_indent, ' ');
    m_used = 0;
  }
  void EndLine() {
    m_text += '\n';
    StartLine();
  }
  void Append(const std::string& text, Look look) {
    m_text += look == Look::kBold  ? Emphasize(text, m_screen)
              : look == Look::kDim ? Dim(text, m_screen)
                                   : text;
    m_used += TextWidth(text);
  }

  const Screen& m_screen;
  std::size_t m_indent;
  std::size_t m_room;
  std::size_t m_used = 0;
  std::string m_text;
};

void AddChoices(std::vector<Word>& words, const ConfigNode& item) {
  for (std::size_t i = 0; i < item.choices.size(); ++i) {
    const bool isCurrent = i == item.current;
    const std::string name = SafeText(item.choices[i]);
    const std::string comma = i + 1 < item.choices.size() ? "," : "";
    words.push_back(
        {(isCurrent ? "[" + name + "]" : name) + comma, isCurrent ? Look::kBold : Look::kPlain});
  }
  if (item.current >= item.choices.size()) {
    words.push_back({"(index " + std::to_string(item.current) + ", which has no text)"});
  }
}

class TreeWriter {
 public:
  explicit TreeWriter(const Screen& screen)
      : m_screen(screen),
        m_width(std::max(screen.width == 0 ? kUnlimited : screen.width, kLeastWidth)) {}

  [[nodiscard]] std::string Text(const std::vector<ConfigNode>& nodes, std::size_t indent) const {
    std::string text;
    for (const ConfigNode& node : nodes) {
      if (node.kind == ConfigNode::Kind::kFolder) {
        // The great parts of the tree stand apart.
        text += indent == 0 && !text.empty() ? "\n" : "";
        text += FolderText(node, indent);
      } else {
        text += ItemText(node, indent);
      }
    }
    return text;
  }

 private:
  /// A tree however deep leaves room for words.
  [[nodiscard]] std::size_t Indented(std::size_t indent, std::size_t more) const {
    return std::min(indent + more, m_width - kLeastWidth / 2);
  }

  [[nodiscard]] std::string Wrapped(const std::vector<Word>& words, std::size_t indent) const {
    if (words.empty()) {
      return "";
    }
    Paragraph paragraph(indent, m_width, m_screen);
    for (const Word& word : words) {
      paragraph.Add(word);
    }
    return std::move(paragraph).Text();
  }

  [[nodiscard]] std::string HelpText(const ConfigNode& node, std::size_t indent) const {
    std::vector<Word> words;
    AddWords(words, node.help, Look::kDim);
    return Wrapped(words, indent);
  }

  [[nodiscard]] std::string FolderText(const ConfigNode& folder, std::size_t indent) const {
    std::vector<Word> words;
    AddWords(words, folder.label, Look::kBold);
    const std::size_t inner = Indented(indent, kLevelIndent);
    return Wrapped(words, indent) + HelpText(folder, inner) + Text(folder.children, inner);
  }

  [[nodiscard]] std::string ItemText(const ConfigNode& item, std::size_t indent) const {
    const std::string id = std::to_string(item.id);
    std::vector<Word> words;
    AddWords(words, item.label + ":", Look::kBold);
    if (item.kind == ConfigNode::Kind::kChoice) {
      AddChoices(words, item);
    } else if (item.value.empty()) {
      words.push_back({"(empty)", Look::kDim});
    } else {
      words.push_back({SafeText(item.value)});
    }
    const std::size_t inner = Indented(indent, kIdWidth + kLevelIndent);
    std::string text = Wrapped(words, inner);
    // The identifier stands in the blanks of the first line.
    text.replace(inner - kLevelIndent - id.size(), id.size(), id);
    return text + HelpText(item, Indented(inner, kLevelIndent));
  }

  const Screen& m_screen;
  std::size_t m_width;
};

}  // namespace

std::string ConfigText(const std::vector<ConfigNode>& tree, const Screen& screen,
                       const std::string& hostProfile) {
  const std::string profile = hostProfile.empty() ? ""
                                                  : Emphasize("Host profile:", screen) + ' ' +
                                                        SafeText(hostProfile) + "\n\n";
  return profile + TreeWriter(screen).Text(tree, 0);
}
