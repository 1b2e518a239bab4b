#include "local/capture/CallAnswer.h"

#include <climits>

#include "tests/support/Testing.h"

namespace {

TEST(CallAnswerTest, WhatIsWrittenReadsBackAsItWas) {
  const struct {
    std::string question;
    CallAnswer answer;
  } cases[] = {
      {"stat /proc/1", {0, 0, std::string("\0\x01\xff\x7f", 4)}},
      {"open /a%b \xff\n\"\\", {-1, ENOENT, {}}},
      {"getgrgid 0", {0, 0, "root"}},
      {"lines", {0, 0, "a\nb \"c\"\n"}},
      {"netlink 0 " + std::string("\0\0%41", 5), {3, 0, {}}},
      {"least", {INT_MIN, INT_MIN, {}}},
      {"greatest", {INT_MAX, INT_MAX, std::string(1 << 20, '\xe4')}},
      {"", {0, 0, {}}},
  };
  std::string text;
  for (const auto& one : cases) {
    const std::string line = CallLine(one.question, one.answer);
    EXPECT_EQ(line.find('\n'), line.size() - 1) << one.question;
    text += line;
  }
  CallAnswers answers;
  ASSERT_EQ(TakeCallLines(text, answers), std::nullopt);
  EXPECT_EQ(answers.size(), std::size(cases));
  for (const auto& one : cases) {
    SCOPED_TRACE(one.question);
    const auto found = answers.find(one.question);
    ASSERT_NE(found, answers.end());
    EXPECT_EQ(found->second.result, one.answer.result);
    EXPECT_EQ(found->second.code, one.answer.code);
    EXPECT_EQ(found->second.bytes, one.answer.bytes);
  }
}

TEST(CallAnswerTest, OfOneQuestionTheFirstAnswerCountsAndOtherMembersAreIgnored) {
  CallAnswers answers;
  ASSERT_EQ(TakeCallLines("{\"call\":\"a\",\"result\":1,\"since\":{\"deep\":[1]}}\n"
                          "{\"result\":2,\"call\":\"a\"}\n{\"call\":\"%61%25\"}\n",
                          answers),
            std::nullopt);
  EXPECT_EQ(answers.size(), 2U);
  EXPECT_EQ(answers["a"].result, 1);
  EXPECT_TRUE(answers.contains("a%"));
}

TEST(CallAnswerTest, ALineThatIsNoneIsToldByItsNumber) {
  const std::string good = "{\"call\":\"a\",\"result\":0}\n";
  const struct {
    const char* what;
    std::string line;
  } cases[] = {
      {"empty", "\n"},
      {"no end", "{\"call\":\"b\",\"result\":0}"},
      {"cut", "{\"call\":\"b\",\"res\n"},
      {"no object", "[\"call\"]\n"},
      {"no question", "{\"result\":0}\n"},
      {"a question that is none", "{\"call\":7}\n"},
      {"a cut escape", "{\"call\":\"b%4\"}\n"},
      {"a cut escape without digits", "{\"call\":\"b%\"}\n"},
      {"a wrong escape", "{\"call\":\"b%zz\"}\n"},
      {"a signed escape", "{\"call\":\"b%-1\"}\n"},
      {"half a byte", "{\"call\":\"b\",\"hex\":\"abc\"}\n"},
      {"no digits", "{\"call\":\"b\",\"hex\":\"0x\"}\n"},
      {"blanks", "{\"call\":\"b\",\"hex\":\" 1\"}\n"},
      {"hex that is no text", "{\"call\":\"b\",\"hex\":12}\n"},
      {"a text that is none", "{\"call\":\"b\",\"text\":null}\n"},
      {"a broken result", "{\"call\":\"b\",\"result\":1.5}\n"},
      {"a result in words", "{\"call\":\"b\",\"result\":\"0\"}\n"},
      {"a result too large", "{\"call\":\"b\",\"result\":2147483648}\n"},
      {"a result too small", "{\"call\":\"b\",\"result\":-2147483649}\n"},
      {"a number beyond all", "{\"call\":\"b\",\"errno\":18446744073709551615}\n"},
      {"too deep", "{\"call\":\"b\",\"x\":[[[[[[1]]]]]]}\n"},
      {"huge and broken", "{\"call\":\"" + std::string(1 << 22, 'x') + "\n"},
  };
  for (const auto& one : cases) {
    CallAnswers answers;
    EXPECT_EQ(TakeCallLines(good + one.line, answers), "2: this is no answer of a call")
        << one.what;
  }
}

}  // namespace
