// What the gate takes from the daemon and keeps beside itself: samples on their way to a server,
// settings, alarms, and the files of how far it has got.
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "gate/GateLoop.h"
#include "gate/GateSettings.h"
#include "gate/alarm/Alarm.h"
#include "gate/alarm/AlarmMemory.h"
#include "gate/http/BodyText.h"
#include "gate/push/PushBatch.h"
#include "gate/push/PushCursor.h"
#include "gate/push/SampleAnswer.h"
#include "gate/push/WriteRequest.h"
#include "json/JsonText.h"
#include "tests/fuzz/FuzzHelp.h"

namespace {

/// Each sample lies in the text, in the order of times, and those that go are all accounted for.
void TakeSamples(std::string_view text) {
  PushBatch batch{std::string(text)};
  std::vector<SeriesLabel> labels;
  for (const PlacedSample& sample : batch.Next()) {
    const std::string_view series = sample.SeriesIn(batch.Text());
    Require(series.size() == sample.size);
    if (!ReadSeries(series, labels)) {
      continue;
    }
    for (std::size_t place = 0; place < labels.size(); ++place) {
      std::string value;
      labels[place].AppendValue(value);
      Require(value.size() == labels[place].ValueSize());
      Require(place == 0 || labels[place - 1].name < labels[place].name);
    }
  }
  const TargetLabels own{{"instance", "host"}, {"job", "agent"}};
  const WriteBody body = MakeWriteBody(batch.Text(), batch.Next(), own);
  Require(body.samples + body.leftOut == batch.Next().size());
  for (std::size_t step = 0; step < 8 && !batch.Next().empty(); ++step) {
    const std::size_t size = batch.Next().size();
    if ((!batch.HalveByTime() && !batch.Halve()) || step % 3 == 2) {
      batch.Drop();
    } else {
      Require(!batch.Next().empty() && batch.Next().size() < size);
    }
  }
}

/// The answer's pieces are as long as a byte in front tells.
void TakeAnswer(Input& input) {
  SampleAnswer answer;
  const std::size_t piece = input.Byte() + std::size_t{1};
  while (!input.IsEmpty() && answer.Take(input.Bytes(piece))) {
  }
  if (answer.Error().empty() && answer.IsWhole()) {
    Require(answer.Wait() >= std::chrono::seconds(0) && answer.Wait() <= std::chrono::days(1));
    Require(answer.Next().IsObject());
    TakeSamples(answer.TakeText());
  }
}

void TakeFiles(std::string_view text, const FuzzFolder& folder) {
  folder.Write("push-name.json", text);
  {
    GateLoop loop;
    PushCursor cursor(loop, folder.Path(), "name", "http://server/");
    std::string error;
    Require(cursor.Load(7, error) == error.empty());
    Require(cursor.After().IsObject());
    static_cast<void>(cursor.Advance(Json{{"PI", Json::Array({1, 2})}}));
  }
  folder.Write("alarms.json", text);
  std::string error;
  const AlarmMemory memory = ReadAlarmMemory(folder.Path("alarms.json"), error);
  folder.Write("alarms.json", AlarmMemoryText(memory));
  error.clear();
  Require(ReadAlarmMemory(folder.Path("alarms.json"), error) == memory && error.empty());
}

void TakeAnswers(std::string_view text) {
  static_cast<void>(Gunzip(text));
  const Json value = ParseJson(text, {.depth = 32}).value;
  GateSettings settings;
  static_cast<void>(ReadGateSettings(value, settings));
  if (const AlarmPtr alarm = ReadAlarm(value)) {
    Require(alarm->since != 0 && !alarm->name.empty());
    Require(!EndedAlarm(*alarm, alarm->since + 1)->IsActive());
  }
}

}  // namespace

/// The first byte, a digit in the seeds, chooses what the others are.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FuzzFolder folder;
  Input input(data, size);
  switch (input.Byte() % 4) {
    case 0:
      TakeSamples(input.Rest());
      break;
    case 1:
      TakeAnswer(input);
      break;
    case 2:
      TakeFiles(input.Rest(), folder);
      break;
    default:
      TakeAnswers(input.Rest());
  }
  return 0;
}
