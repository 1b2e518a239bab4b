#include "gate/push/WriteRequest.h"

#include <bit>

#include "gate/push/PushBatch.h"
#include "gate/push/SampleAnswer.h"
#include "tests/gate/push/WriteText.h"
#include "tests/support/Testing.h"

namespace {

std::vector<std::string> WrittenOf(const std::string& text, const TargetLabels& labels = {}) {
  const SampleLines lines = ReadSampleLines(text);
  const WriteBody body = MakeWriteBody(text, lines.samples, labels);
  std::vector<std::string> written = WriteText(body.bytes);
  EXPECT_EQ(written.size(), body.samples);
  EXPECT_EQ(body.samples + body.leftOut, lines.samples.size());
  return written;
}

TEST(WriteRequestTest, LinesBecomeSeriesWithTheirSamplesTogether) {
  EXPECT_THAT(WrittenOf("up 1 1000\n"
                        "disk_total{device=\"a\",zone=\"z\"} 2.5 1000\n"
                        "up 0 2000\n"
                        "disk_total{device=\"a\",zone=\"z\"} 1e300 2000\n"
                        "disk_total{zone=\"z\",device=\"b\"} -Inf 2000\n"
                        "empty{} +Inf -5\n"
                        "blank{a=\"\"} 7 0"),
              ElementsAre("__name__=up 1@1000", "__name__=up 0@2000",
                          "__name__=disk_total,device=a,zone=z 2.5@1000",
                          "__name__=disk_total,device=a,zone=z 1e+300@2000",
                          "__name__=disk_total,device=b,zone=z -inf@2000", "__name__=empty inf@-5",
                          "__name__=blank 7@0"));
  EXPECT_THAT(WrittenOf(R"(x{a="q\"\\n\n } 1 2",b="ü"} 1 3)"
                        "\n",
                        {{"aa", R"(back\slash")"}, {"b", "not this"}, {"instance", "h:1"}}),
              ElementsAre("__name__=x,a=q\"\\n\n } 1 2,aa=back\\slash\",b=ü,instance=h:1 1@3"));
  // A series whose end has come is told by a not-a-number of another kind.
  const SampleLines none = ReadSampleLines("x NaN 1\nx -nan 2\n");
  for (const PlacedSample& sample : none.samples) {
    EXPECT_EQ(std::bit_cast<std::uint64_t>(sample.value), 0x7ff8000000000000U);
  }
  EXPECT_EQ(none.samples.size(), 2U);
}

TEST(WriteRequestTest, WhatIsNoLineOrNoSeriesIsLeftOutAndCounted) {
  for (const char* line : {"", "x", "x 1", "x 1 ", "x  1", "x a 1", "x 1 1.5", "x 1 1z", " 1 1",
                           "x 1 99999999999999999999"}) {
    const SampleLines lines = ReadSampleLines(std::string(line) + "\nup 1 1\n");
    EXPECT_EQ(lines.broken, 1U) << line;
    EXPECT_EQ(lines.samples.size(), 1U) << line;
  }
  for (const char* series : {"1x", "x{", "x{a}", "x{a=}", "x{a=b}", "x{a=\"b}", "x{a=\"b\"",
                             "x{a=\"b\"}c", "x{a=\"b\"c=\"d\"}", "x{a=\"1\",a=\"2\"}", "x y",
                             "x{__name__=\"y\"}", "x{a=\"b\\\"}", "x{,}"}) {
    const std::string text = std::string(series) + " 1 1\nup 1 1\n";
    EXPECT_THAT(WrittenOf(text), ElementsAre("__name__=up 1@1")) << series;
  }
}

TEST(WriteRequestTest, ManySeriesAreOneMessageOfManyBlocks) {
  std::string text;
  std::vector<std::string> wanted;
  for (int i = 0; i < 30000; ++i) {
    // One of them does not fit into a block.
    const std::string name = "cpu_" + std::to_string(i % 3 == 0 ? 0 : i % 1500);
    text += name + " 1 " + std::to_string(i) + '\n';
    wanted.push_back("__name__=" + name + " 1@" + std::to_string(i));
  }
  std::vector<std::string> written = WrittenOf(text);
  std::ranges::sort(written);
  std::ranges::sort(wanted);
  EXPECT_EQ(written, wanted);
  EXPECT_EQ(MakeWriteBody("", {}, {}).bytes, std::string(1, '\0'));
}

/// What is sent by and by if all of it is refused, by halves of one time too or not.
std::vector<std::string> PartsOf(const std::string& text, bool isOneTimeHalved) {
  PushBatch batch(text);
  std::vector<std::string> parts;
  while (!batch.Next().empty()) {
    std::string part;
    for (const PlacedSample& sample : batch.Next()) {
      part += std::string(sample.SeriesIn(batch.Text())) + std::to_string(sample.time) + ' ';
    }
    parts.push_back(part);
    if (!batch.HalveByTime() && !(isOneTimeHalved && batch.Halve())) {
      batch.Drop();
    }
  }
  return parts;
}

TEST(PushBatchTest, ARefusedBatchIsHalvedByTimeAndThenByItsSamples) {
  EXPECT_THAT(PartsOf("a 1 1\nb 1 1\na 1 2\nb 1 3\nc 1 2\n", false),
              ElementsAre("a1 b1 a2 c2 b3 ", "a1 b1 ", "a2 c2 b3 ", "a2 c2 ", "b3 "));
  EXPECT_THAT(PartsOf("a 1 1\nb 1 1\nc 1 1\n", true),
              ElementsAre("a1 b1 c1 ", "a1 ", "b1 c1 ", "b1 ", "c1 "));
  EXPECT_THAT(PartsOf("nonsense", true), ElementsAre());
}

TEST(SampleAnswerTest, WholeBrokenAndHostileAnswers) {
  const std::string good =
      R"({"ok":true,"samples":{"next":{"PI":[5,6]},"more":true,"oldest":4,"rows":2,"count":1,"bytes":7}})"
      "\n";
  for (const std::size_t piece : {1U, 7U, 1000U}) {
    SampleAnswer answer;
    const std::string text = good + "x 1 5\n\nbehind";
    bool isWanted = true;
    for (std::size_t i = 0; i < text.size() && isWanted; i += piece) {
      isWanted = answer.Take(text.substr(i, piece));
    }
    EXPECT_TRUE(answer.IsWhole() && !isWanted && answer.HasMore() && answer.Oldest() == 4);
    EXPECT_EQ(answer.TakeText(), "x 1 5\n\n");
    EXPECT_EQ(answer.Rows(), 2U);
    EXPECT_EQ(answer.Next()["PI"][1].Whole(), 6);
  }
  const std::pair<std::string, const char*> rows[] = {
      {R"({"ok":false,"error":{"code":"no-history","message":"none is kept"}})", "none is kept"},
      {"garbage", "can't be read"},
      {R"({"ok":true,"samples":7})", "can't be read"},
      {R"({"ok":true,"samples":{"next":{"PI":[5]},"more":true,"bytes":7}})", "can't be read"},
      {R"({"ok":true,"samples":{"next":{},"more":true,"bytes":-7}})", "can't be read"},
      {R"({"ok":true,"samples":{"next":{},"more":true,"bytes":99999999999}})", "can't be read"},
      {std::string(SampleAnswer::kMostHead + 1, 'x'), "can't be read"},
  };
  for (const auto& [text, error] : rows) {
    SampleAnswer answer;
    EXPECT_FALSE(answer.Take(text + '\n'));
    EXPECT_FALSE(answer.IsWhole() || answer.Take("more"));
    EXPECT_THAT(answer.Error(), testing::HasSubstr(error));
  }
}

}  // namespace
