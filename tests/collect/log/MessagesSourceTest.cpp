#include "collect/log/MessagesSource.h"

#include "collect/CategoryFlags.h"
#include "collect/Collector.h"
#include "support/ProductOptions.h"
#include "tests/collect/CollectFixture.h"

namespace {

using Texts = std::vector<std::string>;
const std::string kApp = "/var/log/app";

class MessagesSourceTest : public CollectFixture {
 protected:
  void Begin(const std::string& main, const std::string& first, const std::string& second) {
    MessagesSourceUser::ResetState();
    m_host.Write(kApp, "what was there before\n");
    ProductOptions& options = ProductOptions::Instance();
    options.Set("Messages", "FileName", main.c_str());
    options.Set("Messages", "EventFile1", first.c_str());
    options.Set("Messages", "EventFile2", second.c_str());
    EXPECT_EQ(Collect(), Texts{});
  }
  void Append(const std::string& text) const {
    std::ofstream(m_host.Path(kApp), std::ios::app | std::ios::binary) << text;
  }
  /// One collection: the texts of its rows, "" where no filter took the line.
  Texts Collect() {
    m_error.reset(m_collector.collect(COLLECT_MESSAGES, 0));
    Texts texts;
    for (const Messages& message : *m_collector.GetMessages()) {
      EXPECT_EQ(message.size, message.id == 0 ? 0U : 524U);
      texts.emplace_back(message.GetText());
    }
    return texts;
  }

  process_tree::HostTree m_host;
  Collector m_collector;
  UtlErrorPtr m_error;
};

TEST_F(MessagesSourceTest, FiltersAndLabelsNewLines) {
  const std::string wide = std::string(70'000, 'x') + "end";
  const std::string cut = ("qmtdmon app: " + wide).substr(0, 511);
  struct Case {
    std::string main;
    std::string first;
    std::string second;
    std::string appended;
    Texts expected;
  };
  for (const Case& row : std::vector<Case>{
           {"", "", "", "a\n", {}},
           {kApp, "", "", "one\n" + wide + "\n", {"qmtdmon app: one", cut}},
           {kApp, "", "", std::string("a\0b\nc\n", 6), {"qmtdmon app: a", "qmtdmon app: c"}},
           {"", kApp + "**x+end$", "", wide + "\n", {cut}},
           // The end of what is kept of a line is not the line's.
           {"", kApp + "**x$", "", std::string(FileEvent::kKeptBytes + 1, 'x') + "\n", {""}},
           {"", kApp + "*d*k.*x", "", "up\nk is x\n", {"", "qmtdmon d: k is x"}},
           {"", kApp + "*i*A/i\tB", "", "a\nb\nB\n", {"qmtdmon i: a", "", "qmtdmon i: B"}},
           {"", kApp + "*i*never", "", "^\n^ \n", {"qmtdmon i: ^", ""}},
           {"", kApp, "", "a\n", {"qmtdmon app: a"}},
           {"", kApp + "*i*", kApp + "*j**", "a\n", {"qmtdmon i: a", "qmtdmon j: a"}},
           // One follower with both filters.
           {"", kApp + "*i*a", kApp + "*i*b", "a\nb\n", {"qmtdmon i: a", "qmtdmon i: b"}},
           // The main file's end makes a message too, which is not taken for the next file's line.
           {kApp, kApp + "*j*b", "", "a\n", {"qmtdmon app: a", ""}},
           {"", "/var/log/none", kApp + "*j", "a\n", {"qmtdmon j: a"}},
       }) {
    Begin(row.main, row.first, row.second);
    Append(row.appended);
    EXPECT_EQ(Collect(), row.expected) << row.appended.substr(0, 40) << ' ' << row.first;
    EXPECT_EQ(Collect(), Texts{});
  }
  ProductOptions::Instance().Set("Messages", "EventFile4", (kApp + "*after a gap").c_str());
  Begin("", "", "");
  Append("a\n");
  EXPECT_EQ(Collect(), Texts{});
}

TEST_F(MessagesSourceTest, AnUnfinishedLineIsLostWithItsNumber) {
  Begin(kApp, "", "");
  Append("one\ntwo");
  EXPECT_EQ(Collect(), Texts{"qmtdmon app: one"});
  const std::uint32_t id = m_collector.GetMessages()->front().id;
  Append("\nthree\n");
  EXPECT_EQ(Collect(), (Texts{"qmtdmon app: ", "qmtdmon app: three"}));
  EXPECT_EQ(m_collector.GetMessages()->front().id, id + 2);
}

TEST_F(MessagesSourceTest, AFileThatFillsARunLetsTheNextOneIn) {
  m_host.Write("/var/log/other", "");
  Begin("", kApp + "*long", "/var/log/other*short");
  std::filesystem::resize_file(m_host.Path(kApp), FileEvent::kMaxLineBytes + 100);
  Append("end\nnext\n");
  m_host.Write("/var/log/other", "o\n");
  EXPECT_EQ(Collect(), Texts{"qmtdmon long: "});
  EXPECT_EQ(Collect(), Texts{"qmtdmon short: o"});
  EXPECT_EQ(Collect(), Texts{"qmtdmon long: next"});
}

TEST_F(MessagesSourceTest, WarnsOfTheMainFileUntilTheConditionEnds) {
  const std::string path = "/" + std::string(200, 'd') + "/" + std::string(55, 'f');
  const auto expectCounts = [](int length, int missing) {
    EXPECT_EQ(ScriptedNode::Instance().CountMessages(10107), length);
    EXPECT_EQ(ScriptedNode::Instance().CountMessages(10105), missing);
  };
  Begin(path, "", "");
  Collect();
  expectCounts(2, 2);  // each with its copy for the common log
  m_host.Write(path, "");
  Collect();
  m_host.Write(path, "found\n");
  EXPECT_EQ(Collect().size(), 1U);
  m_host.Remove(path);
  ASSERT_EQ(::mkfifo(m_host.Path(path).c_str(), 0600), 0);
  Collect();
  expectCounts(2, 4);
  EXPECT_EQ(m_error, nullptr);
}

TEST_F(MessagesSourceTest, AFileThatFailsDoesNotStopTheOthers) {
  // The file of a process's memory can be opened, but not read at 0.
  m_host.Link("/var/log/bad", "/proc/self/mem");
  Begin("", "/var/log/bad*bad", kApp + "*good");
  ASSERT_NE(m_error, nullptr);
  EXPECT_STREQ(m_error->GetMessage(),
               "FileEvent::collect(mess=/var/log/bad): fgets(/var/log/bad) failed! errno: 5");
  Append("a\n");
  EXPECT_EQ(Collect(), Texts{"qmtdmon good: a"});

  Os().stat = [](const char* file, struct ::stat* status) {
    return std::string(file).ends_with("bad") ? (errno = EIO, -1) : ::stat(file, status);
  };
  Begin("", "/var/log/bad*bad", kApp + "*good");
  Append("b\n");
  EXPECT_EQ(Collect(), Texts{"qmtdmon good: b"});
  EXPECT_EQ(Lines("An error occurred in stat(/var/log/bad). (Input/output error) (err=5)"), 1U);
  EXPECT_EQ(Lines("Failed to access the file or directory(/var/log/bad)."), 1U);
}

}  // namespace
