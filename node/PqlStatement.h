#pragma once

#include <array>
#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "node/Packed.h"

/// An entry of the framework's dictionary of fields; of its first 40 bytes nothing is known here.
struct tagPQLDictEntry {
  std::array<char, 40> head{};
  Text<64> name;
};
static_assert(offsetof(tagPQLDictEntry, name) == 40);

/// The parts of a parsed statement. All of them are made and owned by their CPqlPrs, in one flat
/// store, so that the depth of a statement costs no stack when it goes.
class CPqlPrsNode {
 public:
  CPqlPrsNode() = default;
  CPqlPrsNode(const CPqlPrsNode&) = delete;
  CPqlPrsNode& operator=(const CPqlPrsNode&) = delete;
  virtual ~CPqlPrsNode() = default;
};

/// The base of the lists. A position stands for one element; null is the end. The elements are not
/// owned.
class CObjList {
 public:
  CObjList() = default;
  CObjList(const CObjList&) = delete;
  CObjList& operator=(const CObjList&) = delete;

  /// Null if the list is empty.
  [[nodiscard]] void* GetHeadPosition() const;
  [[nodiscard]] bool IsEmpty() const { return m_links.empty(); }
  [[nodiscard]] int GetCount() const { return static_cast<int>(m_links.size()); }

 protected:
  void Append(CPqlPrsNode* element);
  /// The element at `position`, which moves on by one. `position` is one of this list.
  [[nodiscard]] static CPqlPrsNode* Take(void*& position);

 private:
  struct Link {
    CPqlPrsNode* element;
    Link* next;
  };
  std::list<Link> m_links;
};

/// A list of elements of one type.
template <class Element>
class CPqlPrsList : public CObjList {
 public:
  void Add(Element* element) { Append(element); }
  /// The element at `position`, which moves on by one. `position` is not null.
  [[nodiscard]] Element* GetNext(void*& position) const {
    return static_cast<Element*>(Take(position));
  }
  /// The first element, or null.
  [[nodiscard]] Element* GetHead() const {
    void* position = GetHeadPosition();
    return position == nullptr ? nullptr : GetNext(position);
  }
};

class CPqlPrsString : public CPqlPrsNode {
 public:
  explicit CPqlPrsString(std::string text) : m_text(std::move(text)) {}
  [[nodiscard]] const char* string() const { return m_text.c_str(); }

 private:
  std::string m_text;
};
class CPqlPrsStrings : public CPqlPrsList<CPqlPrsString> {};

/// The right side of a condition.
class CPqlPrsCondBase : public CPqlPrsNode {
 public:
  static constexpr int kStringType = 2;
  explicit CPqlPrsCondBase(int baseType) : m_baseType(baseType) {}
  [[nodiscard]] int baseType() const { return m_baseType; }

 private:
  int m_baseType;
};

/// One string, or several to choose from.
class CPqlPrsCondString : public CPqlPrsCondBase {
 public:
  CPqlPrsCondString() : CPqlPrsCondBase(kStringType) {}
  [[nodiscard]] CPqlPrsStrings& rValue() { return m_strings; }
  [[nodiscard]] const CPqlPrsStrings& rValue() const { return m_strings; }

 private:
  CPqlPrsStrings m_strings;
};

/// The left side of a condition.
class CPqlPrsFieldData : public CPqlPrsNode {
 public:
  explicit CPqlPrsFieldData(const tagPQLDictEntry& entry) : m_entry(entry) {}
  [[nodiscard]] const tagPQLDictEntry* dict() const { return &m_entry; }

 private:
  tagPQLDictEntry m_entry;
};

class CPqlPrsCondData : public CPqlPrsNode {
 public:
  static constexpr int kEqual = 0;
  CPqlPrsCondData(CPqlPrsFieldData* left, int oper, CPqlPrsCondBase* right)
      : m_left(left), m_oper(oper), m_right(right) {}
  /// Either side may be null.
  [[nodiscard]] const CPqlPrsFieldData* lValue() const { return m_left; }
  [[nodiscard]] int oper() const { return m_oper; }
  [[nodiscard]] const CPqlPrsCondBase* rValue() const { return m_right; }

 private:
  CPqlPrsFieldData* m_left;
  int m_oper;
  CPqlPrsCondBase* m_right;
};
class CPqlPrsConds : public CPqlPrsList<CPqlPrsCondData> {};

class CPqlPrsParenData;
class CPqlPrsParens : public CPqlPrsList<CPqlPrsParenData> {};

/// A group in parentheses: its own conditions and the groups nested in it.
class CPqlPrsParenData : public CPqlPrsNode {
 public:
  [[nodiscard]] CPqlPrsConds& conds() { return m_conds; }
  [[nodiscard]] const CPqlPrsConds& conds() const { return m_conds; }
  [[nodiscard]] CPqlPrsParens& parens() { return m_parens; }
  [[nodiscard]] const CPqlPrsParens& parens() const { return m_parens; }

 private:
  CPqlPrsConds m_conds;
  CPqlPrsParens m_parens;
};

/// A parsed statement. Whatever is added belongs to it and lives as long.
class CPqlPrs {
 public:
  /// The groups of the WHERE part; empty if the statement has none.
  [[nodiscard]] CPqlPrsParens& where() { return m_where; }
  [[nodiscard]] const CPqlPrsParens& where() const { return m_where; }

  /// Puts a new, empty group at the end of `list`, which is where() or that of a group.
  CPqlPrsParenData& AddGroup(CPqlPrsParens& list);
  /// Puts a condition at the end of the group. A null `field` leaves the left side out, a null
  /// `right` the right one.
  void AddCondition(CPqlPrsParenData& group, const tagPQLDictEntry* field, int oper,
                    CPqlPrsCondBase* right);
  [[nodiscard]] CPqlPrsCondBase* MakeValue(int baseType);
  [[nodiscard]] CPqlPrsCondString* MakeStrings(const std::vector<std::string>& texts);

 private:
  template <class Node, class... Args>
  Node* Make(Args&&... args);

  CPqlPrsParens m_where;
  std::vector<std::unique_ptr<CPqlPrsNode>> m_nodes;
};
