#include "node/PqlConditionFinder.h"

#include <string_view>
#include <vector>

#include "node/PqlStatement.h"

namespace {

bool IsEqualityOf(const CPqlPrsCondData& condition, std::string_view fieldName) {
  return condition.lValue() != nullptr && condition.lValue()->dict()->name.view() == fieldName &&
         condition.oper() == CPqlPrsCondData::kEqual;
}

/// The string on the right side if it is exactly one, else null.
const char* SingleString(const CPqlPrsCondBase* right) {
  if (right == nullptr || right->baseType() != CPqlPrsCondBase::kStringType) {
    return nullptr;
  }
  const auto* strings = dynamic_cast<const CPqlPrsCondString*>(right);
  if (strings == nullptr || strings->rValue().GetCount() != 1) {
    return nullptr;
  }
  return strings->rValue().GetHead()->string();
}

const char* FindInConditions(const CPqlPrsConds& conditions, std::string_view fieldName) {
  void* position = conditions.GetHeadPosition();
  while (position != nullptr) {
    const CPqlPrsCondData* condition = conditions.GetNext(position);
    const char* value =
        IsEqualityOf(*condition, fieldName) ? SingleString(condition->rValue()) : nullptr;
    if (value != nullptr) {
      return value;
    }
  }
  return nullptr;
}

struct Place {
  const CPqlPrsParens* groups;
  void* position;
};

}  // namespace

const char* PqlConditionFinder::Find(const char* fieldName) const {
  if (fieldName == nullptr || m_statement == nullptr) {
    return nullptr;
  }
  // The way down is kept on the heap: the nesting of a statement is its author's choice.
  std::vector<Place> way{{&m_statement->where(), m_statement->where().GetHeadPosition()}};
  while (!way.empty()) {
    Place& place = way.back();
    if (place.position == nullptr) {
      way.pop_back();
      continue;
    }
    const CPqlPrsParenData* group = place.groups->GetNext(place.position);
    const char* value = FindInConditions(group->conds(), fieldName);
    if (value != nullptr) {
      return value;
    }
    way.push_back({&group->parens(), group->parens().GetHeadPosition()});
  }
  return nullptr;
}
