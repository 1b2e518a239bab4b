#pragma once

#include "node/RecordRequest.h"

/// On a request that has been served: only its existence counts.
class MyUserObject : public CMBUserObject {};

/// On a request for a record that is not served: it has been reported.
class MyMessageLogObject : public CMBUserObject {};

/// A request's user object, and whether this is the request's first interval.
template <class Object>
struct ClaimedObject {
  Object& object;
  bool first;
};

/// Takes the request's user object; attaches a new one, which the request then owns, on the first
/// interval.
template <class Object>
[[nodiscard]] ClaimedObject<Object> ClaimUserObject(CMBRecordRequest& request) {
  auto* object = dynamic_cast<Object*>(request.GetUserObject());
  const bool first = object == nullptr;
  if (first) {
    object = new Object;
    request.SetUserObject(object);
  }
  return {*object, first};
}
