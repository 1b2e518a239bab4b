#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "node/Event.h"

/// An element of the tree that a configuration request is answered with. Owns its children.
class CMBNodeConfigBase {
 public:
  CMBNodeConfigBase() = default;
  CMBNodeConfigBase(const CMBNodeConfigBase&) = delete;
  CMBNodeConfigBase& operator=(const CMBNodeConfigBase&) = delete;
  virtual ~CMBNodeConfigBase() = default;

  /// Takes ownership of the child; null adds nothing.
  void push_back(CMBNodeConfigBase* child) {
    if (child != nullptr) {
      m_children.emplace_back(child);
    }
  }
  [[nodiscard]] const std::vector<std::unique_ptr<CMBNodeConfigBase>>& Children() const {
    return m_children;
  }

 private:
  std::vector<std::unique_ptr<CMBNodeConfigBase>> m_children;
};

/// A folder of the tree; the request that the agent gets is itself the root.
class CMBNodeConfigRequest : public CMBEvent, public CMBNodeConfigBase {
 public:
  explicit CMBNodeConfigRequest(const char* label = "", const char* help = "")
      : CMBEvent(nullptr), m_label(label), m_help(help) {}
  [[nodiscard]] const char* IsA() const override { return "CMBNodeConfigRequest"; }
  [[nodiscard]] void* GetThis() override { return this; }
  [[nodiscard]] const std::string& Label() const { return m_label; }
  [[nodiscard]] const std::string& Help() const { return m_help; }

 private:
  std::string m_label;
  std::string m_help;
};

/// A text item, or a choice from a CMBNodeConfigPossibleValues table. All texts are copied.
class CMBNodeConfigItem : public CMBNodeConfigBase {
 public:
  CMBNodeConfigItem(std::uint16_t id, const char* label, const char* help, char* value,
                    int maxLength, int flagA, int flagB)
      : m_id(id),
        m_label(label),
        m_help(help),
        m_value(value == nullptr ? "" : value),
        m_maxLength(maxLength),
        m_flagA(flagA),
        m_flagB(flagB) {}
  CMBNodeConfigItem(std::uint16_t id, const char* label, const char* help,
                    std::uint16_t possibleValuesId, std::uint16_t currentIndex, int flag)
      : m_id(id),
        m_label(label),
        m_help(help),
        m_isChoice(true),
        m_possibleValuesId(possibleValuesId),
        m_currentIndex(currentIndex),
        m_flagA(flag) {}

  [[nodiscard]] std::uint16_t Id() const { return m_id; }
  [[nodiscard]] const std::string& Label() const { return m_label; }
  [[nodiscard]] const std::string& Help() const { return m_help; }
  [[nodiscard]] bool IsChoice() const { return m_isChoice; }
  [[nodiscard]] const std::string& Value() const { return m_value; }
  [[nodiscard]] int MaxLength() const { return m_maxLength; }
  [[nodiscard]] std::uint16_t PossibleValuesId() const { return m_possibleValuesId; }
  [[nodiscard]] std::uint16_t CurrentIndex() const { return m_currentIndex; }
  [[nodiscard]] int FlagA() const { return m_flagA; }
  [[nodiscard]] int FlagB() const { return m_flagB; }

 private:
  std::uint16_t m_id;
  std::string m_label;
  std::string m_help;
  bool m_isChoice = false;
  std::string m_value;
  int m_maxLength = 0;
  std::uint16_t m_possibleValuesId = 0;
  std::uint16_t m_currentIndex = 0;
  int m_flagA = 0;
  int m_flagB = 0;
};

/// A table of fixed-width texts, referred to by its identifier.
class CMBNodeConfigPossibleValues : public CMBNodeConfigBase {
 public:
  /// `values` holds totalBytes / entrySize entries; each ends at its first terminator or width.
  CMBNodeConfigPossibleValues(std::uint16_t id, int totalBytes, char* values, int entrySize);
  [[nodiscard]] std::uint16_t Id() const { return m_id; }
  [[nodiscard]] const std::vector<std::string>& Values() const { return m_values; }

 private:
  std::uint16_t m_id;
  std::vector<std::string> m_values;
};

/// A change that an operator asks for.
class CMBNodeConfigUpdate : public CMBEvent {
 public:
  CMBNodeConfigUpdate() : CMBEvent(nullptr) {}
  CMBNodeConfigUpdate(std::uint16_t id, std::string text)
      : CMBEvent(nullptr), m_id(id), m_text(std::move(text)) {}
  CMBNodeConfigUpdate(std::uint16_t id, std::uint16_t choice)
      : CMBEvent(nullptr), m_id(id), m_choice(choice), m_hasChoice(true) {}
  /// For who can't tell which of the two the item takes.
  CMBNodeConfigUpdate(std::uint16_t id, std::string text, std::uint16_t choice)
      : CMBEvent(nullptr), m_id(id), m_choice(choice), m_hasChoice(true), m_text(std::move(text)) {}
  [[nodiscard]] const char* IsA() const override { return "CMBNodeConfigUpdate"; }
  [[nodiscard]] void* GetThis() override { return this; }

  [[nodiscard]] std::uint16_t id() const { return m_id; }
  /// Whether the operator chose by an index.
  [[nodiscard]] bool HasChoice() const { return m_hasChoice; }
  /// The index of a choice; 0 without one.
  [[nodiscard]] std::uint16_t currentValue() const { return m_choice; }
  /// The text of a text item; owned by the event.
  operator char*() { return m_text.data(); }
  operator const char*() const { return m_text.c_str(); }

 private:
  std::uint16_t m_id = 0;
  std::uint16_t m_choice = 0;
  bool m_hasChoice = false;
  std::string m_text;
};
