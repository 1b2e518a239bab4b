#include "local/capture/CaptureFile.h"

#include <sys/utsname.h>

#include "json/JsonText.h"
#include "tests/support/TempFolder.h"

namespace {

/// What a good capture's file tells, of so many samples.
CaptureFacts GoodFacts(long samples) {
  struct ::utsname names {};
  ::uname(&names);
  CaptureFacts facts{"1.0", "h\"\x01", "modern", "6.1",       names.machine,
                     false, true,      {},       {"PI", "PD"}};
  for (long number = 1; number <= samples; ++number) {
    facts.samples.push_back({SampleFolder(number), 1'700'000'000.25 + static_cast<double>(number)});
  }
  return facts;
}

/// The problem of a good file of two samples in which one member has another value.
std::string ProblemWith(const char* member, Json value) {
  Json file = ParseJson(CaptureText(GoodFacts(2))).value;
  file[member] = std::move(value);
  CaptureFacts facts;
  return ReadCaptureText(JsonText(file), facts);
}

Json SamplesJson(const char* firstFolder, Json firstTime) {
  return Json::Array({{{"folder", firstFolder}, {"time", std::move(firstTime)}},
                      {{"folder", "samples/0002"}, {"time", 20}}});
}

TEST(CaptureFileTest, WhatIsWrittenReadsBackAsItWas) {
  for (const long count : {1L, 3L, 100'000L}) {
    const CaptureFacts facts = GoodFacts(count);
    CaptureFacts read;
    ASSERT_EQ(ReadCaptureText(CaptureText(facts), read), "") << count;
    EXPECT_EQ(read.host, facts.host);
    EXPECT_EQ(read.kernel, facts.kernel);
    EXPECT_EQ(read.profile, facts.profile);
    EXPECT_FALSE(read.isRunning);
    EXPECT_TRUE(read.isPrivate);
    ASSERT_EQ(read.samples.size(), facts.samples.size());
    EXPECT_EQ(read.samples.back().folder, facts.samples.back().folder);
    EXPECT_EQ(read.samples.back().time, facts.samples.back().time);
  }
  const Json records = ParseJson(CaptureText(GoodFacts(1))).value["records"];
  EXPECT_EQ(JsonText(records), R"(["PI","PD"])");
  EXPECT_EQ(SampleFolder(100'000), "samples/100000");
}

TEST(CaptureFileTest, WhatIsWrongIsTold) {
  const struct {
    const char* member;
    Json value;
    const char* words;
  } cases[] = {
      {"other", 5, ""},
      {"format", 2, "its format 2 is newer than 1"},
      {"format", 1e30, "format"},
      {"format", 0, "it has no format number"},
      {"format", -1, "it has no format number"},
      {"format", "1", "it has no format number"},
      {"host", 5, "host must be a text"},
      {"kernel", nullptr, "kernel must be a text"},
      {"running", 1, "running and private must be true or false"},
      {"private", "no", "running and private must be true or false"},
      {"profile", "odd", "no profile \"odd\""},
      {"machine", "odd", "a machine of another kind: odd"},
      {"samples", Json::Array(), "samples must be an array of one to 100000"},
      {"samples", Json::Object(), "samples must be an array"},
      {"samples", Json::Array({5}), "a sample has no folder or no time"},
      {"samples", SamplesJson("samples/0001", "now"), "a sample has no folder or no time"},
      {"samples", SamplesJson("samples/0001", 21), "not in the order of their times"},
      {"samples", SamplesJson("samples/0001", 20), ""},
      {"samples", SamplesJson("samples/0002", 20), "two samples have the folder samples/0002"},
      {"samples", SamplesJson("samples/..", 1), "not samples/ and a number: samples/.."},
      {"samples", SamplesJson("samples/1/../../..", 1), "not samples/ and a number"},
      {"samples", SamplesJson("samples/", 1), "not samples/ and a number"},
      {"samples", SamplesJson("../samples/1", 1), "not samples/ and a number"},
      {"samples", SamplesJson("/samples/1", 1), "not samples/ and a number"},
      {"samples", SamplesJson("samples/1111111111111111111111111", 1), "not samples/ and a number"},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(std::string(one.member) + ' ' + JsonText(one.value));
    const std::string problem = ProblemWith(one.member, one.value);
    EXPECT_EQ(problem.empty(), *one.words == '\0') << problem;
    EXPECT_THAT(problem, HasSubstr(one.words));
  }
  EXPECT_THAT(ProblemWith("samples", std::vector<Json>(100'001)), HasSubstr("one to 100000"));
  CaptureFacts facts;
  for (const char* text : {"", "[]", "{\"format\":1", "7"}) {
    EXPECT_EQ(ReadCaptureText(text, facts), "this is no object of JSON") << text;
  }
}

TEST(CaptureFileTest, FilesAreReadUpToALimitAndPipesAndLinksAreNot) {
  const TempFolder folder;
  const std::string file = folder.Path() / "file";
  std::ofstream(file) << std::string(100, 'x');
  std::string text = "before";
  EXPECT_EQ(ReadCaptureFile(file, 100, text), "");
  EXPECT_EQ(text, std::string(100, 'x'));
  EXPECT_EQ(ReadCaptureFile(file, 99, text), file + ": it has more than 99 bytes");
  const std::string pipe = folder.Path() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(ReadCaptureFile(pipe, 99, text), pipe + ": this is no regular file");
  const std::string link = folder.Path() / "link";
  std::filesystem::create_symlink(file, link);
  EXPECT_EQ(ReadCaptureFile(link, 100, text), link + ": this is no regular file");
  EXPECT_NE(ReadCaptureFile(folder.Path(), 100, text), "");
  EXPECT_NE(ReadCaptureFile("/dev/zero", 100, text), "");
}

}  // namespace
