#include "client/looks/RecordNames.h"

#include <set>

#include "client/ask/Errors.h"
#include "client/show/Nearest.h"
#include "json/RowText.h"

RecordName RecordNames::Need(const RecordName& typed) const {
  RecordName name = typed;
  if (!Resolve(name)) {
    throw ClientError(Missing(typed));
  }
  return name;
}

bool RecordNames::Resolve(RecordName& name) const {
  const std::string lower = LowerCase(name.name);
  std::set<std::string> found;
  for (const Listing& listing : m_listings) {
    if (!name.category.empty() && listing.category != name.category) {
      continue;
    }
    if (listing.record == name.name) {
      return true;
    }
    if (LowerCase(listing.record) == lower) {
      found.insert(listing.record);
    }
  }
  if (found.size() != 1) {
    return false;
  }
  name.name = *found.begin();
  return true;
}

std::string RecordNames::Missing(const RecordName& typed) const {
  Nearest nearest(typed.name);
  for (const Listing& listing : m_listings) {
    if (listing.served) {
      const RecordName name{listing.record, typed.category.empty() ? "" : listing.category};
      nearest.Add(listing.record, name.Text());
    }
  }
  const std::string question = nearest.Question();
  return "no record \"" + typed.Text() + '"' +
         (question.empty() ? "; \"qmtctl records\" shows those there are" : question);
}
