#include "client/ask/PushAnswers.h"

#include "client/ask/AnswerMembers.h"

PushStatus ReadPushStatus(const Json& answer) {
  const Json& status = ObjectMember(answer, "status");
  PushStatus push;
  if (status.Find("push") != nullptr) {
    for (const Json& each : ObjectsMember(status, "push").Elements()) {
      push.targets.push_back({TextMember(each, "name"), TextMember(each, "url"),
                              TextMember(each, "error"), WholeMember(each, "oldest"),
                              CountMember(each, "sent_rows"), CountMember(each, "sent_samples"),
                              CountMember(each, "refused_samples"),
                              CountMember(each, "skipped_samples"), CountMember(each, "requests"),
                              CountMember(each, "failures"), CountMember(each, "bytes"),
                              NumberMember(each, "seconds")});
    }
  }
  if (status.Find("notices") != nullptr) {
    for (const Json& each : ObjectsMember(status, "notices").Elements()) {
      push.receivers.push_back({TextMember(each, "url"), CountMember(each, "sent"),
                                CountMember(each, "failures"), CountMember(each, "dropped")});
    }
  }
  return push;
}
