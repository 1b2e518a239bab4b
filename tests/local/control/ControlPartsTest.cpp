#include <limits>

#include "local/control/AccessRule.h"
#include "local/control/ControlOperations.h"
#include "local/control/LineBuffer.h"
#include "local/history/FieldValue.h"
#include "local/history/RecordJson.h"
#include "tests/json/JsonOf.h"
#include "tests/local/FakeAgent.h"
#include "tests/local/control/FakePeer.h"
#include "tests/support/Testing.h"

namespace {

TEST(AccessRuleTest, RootAndOwnUserChangeGroupReads) {
  struct Case {
    PeerIdentity peer;
    Rights rights;
  };
  constexpr uid_t kDaemon = 500;
  constexpr gid_t kGroup = 60;
  const std::vector<Case> cases{
      {{1, 0, 0, {}}, Rights::kChange},       {{1, kDaemon, 1, {}}, Rights::kChange},
      {{1, 501, kGroup, {}}, Rights::kAdmit}, {{1, 501, 1, {7, kGroup}}, Rights::kAdmit},
      {{1, 501, 1, {7, 61}}, Rights::kNone},  {{1, 501, 0, {0}}, Rights::kNone},
      {PeerIdentity{}, Rights::kNone},
  };
  for (const Case& entry : cases) {
    EXPECT_EQ(RightsOf(entry.peer, kDaemon, kGroup), entry.rights)
        << entry.peer.user << ":" << entry.peer.group;
  }
}

std::vector<std::string> Lines(LineBuffer& buffer, const std::vector<std::string>& pieces) {
  std::vector<std::string> lines;
  for (const std::string& piece : pieces) {
    buffer.Append(piece);
    std::string line;
    for (auto found = buffer.Next(line); found != LineBuffer::Found::kNothing;
         found = buffer.Next(line)) {
      lines.push_back(found == LineBuffer::Found::kLine ? line : "TOO LONG");
    }
  }
  return lines;
}

TEST(LineBufferTest, LinesComeInAnyPiecesAndLongOnesAreToldOnce) {
  LineBuffer buffer(8);
  EXPECT_THAT(Lines(buffer, {"ab", "c\n\nd", "e\nf\n1234567\n12345678\nz\n"}),
              ElementsAre("abc", "", "de", "f", "1234567", "TOO LONG", "z"));
  EXPECT_THAT(Lines(buffer, {"1234567", "8", "90123456789", "1\nnext\n"}),
              ElementsAre("TOO LONG", "next"));
}

TEST(RecordJsonTest, ValuesAreShownWithTheirOwnPrecisionAndWithinBounds) {
  const FakeRecord record(4000000000);
  EXPECT_EQ(JsonText(RowToJson(kFakeLayout, RecordBytes(record))),
            "{\"Record Type\":\"FAKE\",\"Record Time\":1700000000,\"Label\":\"a\xEF\xBF\xBD\","
            "\"Count\":4000000000,\"Rate\":0.1,\"CPU\":12.5}");
  // A layout that says more than the record holds never reads past it.
  EXPECT_EQ(JsonText(RowToJson(kFakeLayout, RecordBytes(record).first(30))),
            "{\"Record Type\":\"FAKE\",\"Record Time\":1700000000,\"Label\":\"a\xEF\xBF\xBD\","
            "\"Count\":4000000000,\"Rate\":0.1,\"CPU\":null}");

  static constexpr std::array kWrong{
      FieldLayout{"wide", FieldType::kUlong, 0, 8, FieldMeaning::gauge},
      FieldLayout{"full", FieldType::kText, 0, 4, FieldMeaning::text},
      FieldLayout{"far", FieldType::kText, 65535, 65535, FieldMeaning::text},
      FieldLayout{"nan", FieldType::kFloat, 4, 4, FieldMeaning::gauge},
      FieldLayout{"time", FieldType::kUtime, 8, 8, FieldMeaning::duration},
      FieldLayout{"double", FieldType::kDouble, 16, 8, FieldMeaning::gauge},
      FieldLayout{"sourceless", FieldType::kUlong, 0, 4, FieldMeaning::counter, "", "", false, "",
                  false}};
  std::array<unsigned char, 24> bytes{'a', 'b', 'c', 'd'};
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::int32_t words[2] = {2147483647, 999999};
  const double value = 0.1;
  std::memcpy(bytes.data() + 4, &nan, sizeof nan);
  std::memcpy(bytes.data() + 8, words, sizeof words);
  std::memcpy(bytes.data() + 16, &value, sizeof value);
  EXPECT_EQ(JsonText(RowToJson({"W", "w", '4', 24, kWrong}, bytes)),
            "{\"wide\":null,\"full\":\"abcd\",\"far\":null,\"nan\":null,"
            "\"time\":2147483647.999999,\"double\":0.1,\"sourceless\":null}");
}

TEST(ControlOperationsTest, EachOperationNeedsItsRight) {
  ServedControl control;
  const auto isDenied = [&](Rights rights, const std::string& line) {
    const auto peer = std::make_shared<FakePeer>(rights);
    control.operations.Handle(line, peer);
    const Json answer = JsonOf(peer->answers.at(0));
    EXPECT_EQ(answer["id"], 7);
    return answer.Find("error") != nullptr && answer["error"]["code"] == "permission-denied" &&
           answer["error"]["message"] == "permission denied";
  };
  for (const char* line :
       {R"({"op":"records","id":7})", R"({"op":"schema","record":"FAKE","id":7})",
        R"({"op":"last","records":[],"id":7})", R"({"op":"status","id":7})",
        R"({"op":"gate","id":7})", R"({"op":"log","id":7})", R"({"op":"token_check","id":7})",
        R"({"op":"follow","records":1,"id":7})", R"({"op":"metrics","records":1,"id":7})"}) {
    EXPECT_TRUE(isDenied(Rights::kNone, line)) << line;
    EXPECT_FALSE(isDenied(Rights::kRead, line)) << line;
  }
  const char* shutdown = R"({"op":"shutdown","id":7})";
  EXPECT_TRUE(isDenied(Rights::kNone, R"({"op":"get","records":[],"id":7})"));
  const char* token = R"({"op":"console_token","id":7,"none":1})";
  EXPECT_TRUE(isDenied(Rights::kRead, token));
  EXPECT_FALSE(isDenied(Rights::kAdmit, token));
  EXPECT_TRUE(isDenied(Rights::kAdmit, shutdown));
  const char* change = R"({"op":"config_set","id":7})";
  EXPECT_TRUE(isDenied(Rights::kNone, R"({"op":"config","id":7})"));
  EXPECT_TRUE(isDenied(Rights::kAdmit, change));
  EXPECT_FALSE(isDenied(Rights::kChange, change));
  EXPECT_FALSE(isDenied(Rights::kChange, shutdown));
}

}  // namespace
