#include "node/PqlStatement.h"

#include <utility>

void* CObjList::GetHeadPosition() const {
  return m_links.empty() ? nullptr : const_cast<Link*>(&m_links.front());
}

void CObjList::Append(CPqlPrsNode* element) {
  Link* last = m_links.empty() ? nullptr : &m_links.back();
  m_links.push_back({element, nullptr});
  if (last != nullptr) {
    last->next = &m_links.back();
  }
}

CPqlPrsNode* CObjList::Take(void*& position) {
  const Link* link = static_cast<Link*>(position);
  position = link->next;
  return link->element;
}

template <class Node, class... Args>
Node* CPqlPrs::Make(Args&&... args) {
  auto node = std::make_unique<Node>(std::forward<Args>(args)...);
  Node* made = node.get();
  m_nodes.push_back(std::move(node));
  return made;
}

CPqlPrsParenData& CPqlPrs::AddGroup(CPqlPrsParens& list) {
  auto* group = Make<CPqlPrsParenData>();
  list.Add(group);
  return *group;
}

void CPqlPrs::AddCondition(CPqlPrsParenData& group, const tagPQLDictEntry* field, int oper,
                           CPqlPrsCondBase* right) {
  CPqlPrsFieldData* left = field == nullptr ? nullptr : Make<CPqlPrsFieldData>(*field);
  group.conds().Add(Make<CPqlPrsCondData>(left, oper, right));
}

CPqlPrsCondBase* CPqlPrs::MakeValue(int baseType) { return Make<CPqlPrsCondBase>(baseType); }

CPqlPrsCondString* CPqlPrs::MakeStrings(const std::vector<std::string>& texts) {
  auto* value = Make<CPqlPrsCondString>();
  for (const std::string& text : texts) {
    value->rValue().Add(Make<CPqlPrsString>(text));
  }
  return value;
}
