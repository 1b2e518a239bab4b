#include <sys/ipc.h>

#include <cmath>

#include "node/LayoutRegistry.h"
#include "records/RecordLayouts.h"
#include "support/ProductOptions.h"
#include "support/UserFileFormat.h"
#include "support/UserFileSemaphore.h"
#include "tests/agent/AgentOnHost.h"
#include "tests/scripted/DumpedLines.h"

namespace {

namespace fs = std::filesystem;

class UserRecordsTest : public AgentOnHost {
 protected:
  void SetUp() override {
    AgentOnHost::SetUp();
    s_now = 1'700'000'000;
    Os().sleep = [](unsigned) { return 0U; };
    fs::create_directories(Folder());
    StartAgent();
  }
  [[nodiscard]] fs::path Folder() const {
    return m_product.Path() / "opt/qmtrx/mond/agent/qmtuser/userdata";
  }
  void Write(const UserFileKind& kind, const std::string& text) const {
    fs::remove_all(Folder() / kind.fileName);
    std::ofstream(Folder() / kind.fileName, std::ios::binary) << text;
  }
  /// The rows that a request is answered with.
  std::vector<std::string> Rows(const UserFileKind& kind) {
    const unsigned char category = std::strchr(kind.name, 'D') != nullptr ? '3' : '4';
    Batch batch;
    batch.Add(kind.name, category, {.realtime = 1, .calcRates = 0});
    EXPECT_EQ(m_agent->NotifyEvent(&batch.event), kNotifyDone);
    std::vector<std::string> rows;
    for (const CMBRecord* record : batch.entries[0]->event.m_records) {
      rows.emplace_back(static_cast<const char*>(record->GetRecStart()), record->GetRecSize());
    }
    return rows;
  }
};

std::string Header() {
  const auto header = MakeUserFileHeader();
  return {header.data(), header.size()};
}

/// A number that is another one for each field, and negative for those that may be.
int NumberOf(std::size_t place) { return 1000 + static_cast<int>(place); }

std::string TextOf(std::size_t place, std::size_t size) {
  return std::string(size - 1, static_cast<char>('a' + place % 20)) + "Z";
}

/// A record whose texts fill their fields.
std::string FullRecord(const UserFileKind& kind) {
  std::string record(kind.recordSize, '\0');
  for (std::size_t i = 0; i < kind.fields.size(); ++i) {
    const UserField& field = kind.fields[i];
    const std::int32_t number = field.type == UserFieldType::kUnsigned ? NumberOf(i) : -NumberOf(i);
    const double fraction = NumberOf(i) / 8.0;
    const std::string text = TextOf(i, field.size);
    const void* value = field.type == UserFieldType::kText     ? text.data()
                        : field.type == UserFieldType::kDouble ? static_cast<const void*>(&fraction)
                                                               : &number;
    std::memcpy(record.data() + field.offset, value, field.size);
  }
  return record;
}

template <class T>
T Read(const std::string& row, std::size_t offset) {
  T value;
  std::memcpy(&value, row.data() + offset, sizeof value);
  return value;
}

TEST_F(UserRecordsTest, EachFieldComesIntoTheFieldOfItsLabel) {
  PublishLayouts();
  for (const UserFileKind& kind : UserFileKinds()) {
    Write(kind, Header() + FullRecord(kind));
    const DumpedLines dumped;
    const std::vector<std::string> rows = Rows(kind);
    ASSERT_EQ(rows.size(), 1U) << kind.name;
    EXPECT_EQ(dumped.Count(), 2U) << kind.name << ": labels and row";
    const std::string& row = rows[0];
    EXPECT_STREQ(row.data(), kind.name);
    EXPECT_EQ(Read<std::int32_t>(row, 8), s_now);
    EXPECT_EQ(Read<std::uint32_t>(row, 12), 0U);
    const RecordLayout* layout = LayoutRegistry::Instance().Find(kind.name);
    EXPECT_EQ(layout->fields.size(), kind.fields.size() + 3);
    for (std::size_t i = 0; i < kind.fields.size(); ++i) {
      const UserField& field = kind.fields[i];
      SCOPED_TRACE(std::string(kind.name) + ": " + field.label);
      const auto found = std::ranges::find_if(
          layout->fields, [&](const FieldLayout& other) { return field.label == other.label; });
      ASSERT_NE(found, layout->fields.end());
      switch (field.type) {
        case UserFieldType::kText:
          EXPECT_EQ(found->width, field.size);
          EXPECT_EQ(row.substr(found->offset, found->width),
                    TextOf(i, field.size).substr(0, field.size - 1) + '\0');
          break;
        case UserFieldType::kSigned:
          EXPECT_EQ(found->type, FieldType::kDouble);
          EXPECT_EQ(Read<double>(row, found->offset), -NumberOf(i));
          break;
        case UserFieldType::kUnsigned:
          EXPECT_EQ(found->type, FieldType::kUlong);
          EXPECT_EQ(Read<std::int32_t>(row, found->offset), NumberOf(i));
          break;
        case UserFieldType::kTime:
          EXPECT_EQ(found->type, FieldType::kLong);
          EXPECT_EQ(Read<std::int32_t>(row, found->offset), -NumberOf(i));
          break;
        case UserFieldType::kDouble:
          EXPECT_EQ(found->type, FieldType::kDouble);
          EXPECT_EQ(Read<double>(row, found->offset), NumberOf(i) / 8.0);
          break;
      }
    }
  }
}

TEST_F(UserRecordsTest, ABadFileGivesItsTraceAndNoRows) {
  const UserFileKind& kind = UserFileKinds()[kUPD];
  const std::string good = Header() + FullRecord(kind);
  const std::string format =
      "Invalid file format for qmtuser_UPD. Stopping the further processing of this file.";
  const std::string header = "Invalid Header line present for user data file qmtuser_UPD.";
  std::string otherVersion = good;
  otherVersion[53] = '2';
  std::string otherTag = good;
  otherTag[0] = 'X';
  const std::pair<std::string, std::string> cases[] = {
      {"", format},
      {good.substr(0, 59), format},
      {Header(), "File qmtuser_UPD does not contain any data"},
      {good.substr(0, 61), format},
      {good.substr(0, good.size() - 1), format},
      {otherVersion, header},
      {otherTag, header},
  };
  for (const auto& [text, trace] : cases) {
    ScriptedNode::Instance().lines.clear();
    Write(kind, text);
    EXPECT_TRUE(Rows(kind).empty()) << text.size();
    EXPECT_EQ(Lines(trace), 1U) << text.size();
  }
  fs::remove(Folder() / kind.fileName);
  EXPECT_TRUE(Rows(kind).empty());
  EXPECT_EQ(Lines("Cannot open qmtuser_UPD file"), 1U);
  ASSERT_EQ(::mkfifo((Folder() / kind.fileName).c_str(), 0600), 0);
  EXPECT_TRUE(Rows(kind).empty());
  EXPECT_EQ(m_agent->truncateUserFile(kind.projectId, kind.fileName), -1);
  fs::remove(Folder() / kind.fileName);
  fs::create_directory(Folder() / kind.fileName);
  EXPECT_TRUE(Rows(kind).empty());
  Write(kind, "");
  // Sparse: only as much as the limit says is read of it.
  std::ofstream(Folder() / kind.fileName, std::ios::binary) << Header();
  fs::resize_file(Folder() / kind.fileName, 60 + 276 * (std::uintmax_t{1} << 24));
  EXPECT_EQ(Rows(kind).size(), 1U) << "1440 equal records";
  EXPECT_EQ(m_agent->truncateUserFile(kind.projectId, kind.fileName), 0);
  EXPECT_EQ(fs::file_size(Folder() / kind.fileName), 0U);
  EXPECT_EQ(m_agent->truncateUserFile(kind.projectId, "none"), -2);
  Write(kind, Header() + FullRecord(kind));
  fs::create_symlink(kind.fileName, Folder() / "link");
  EXPECT_EQ(m_agent->truncateUserFile(kind.projectId, "link"), -1);
  EXPECT_EQ(Rows(kind).size(), 1U);
  fs::rename(Folder() / kind.fileName, Folder() / "rows");
  fs::create_symlink("rows", Folder() / kind.fileName);
  EXPECT_TRUE(Rows(kind).empty());
}

TEST_F(UserRecordsTest, NeighboursOfTheSameKeysCountOnceUpToTheLimit) {
  const UserFileKind& kind = UserFileKinds()[kUPI];
  std::string record = FullRecord(kind);
  const auto withKey = [&record](char key, char time) {
    record[40] = key;
    record[44] = time;
    return record;
  };
  const std::string text =
      Header() + withKey(1, 1) + withKey(1, 2) + withKey(2, 3) + withKey(1, 4) + withKey(3, 5);
  const auto times = [&] {
    std::string found;
    for (const std::string& row : Rows(kind)) {
      found += static_cast<char>('0' + row[60]);
    }
    return found;
  };
  fs::rename(Folder(), m_product.Path() / "elsewhere");
  fs::create_directory_symlink(m_product.Path() / "elsewhere", Folder());
  Write(kind, text);
  EXPECT_EQ(times(), "1345");
  EXPECT_EQ(times(), "1345") << "the file stands";
  for (const auto& [limit, expected] : {std::pair("3", "13"), {"0", ""}, {"-1", ""}}) {
    ProductOptions::Instance().Set("User", "DataMaxCount", limit);
    EXPECT_EQ(times(), expected) << limit;
  }
  ProductOptions::Instance().Set("User", "DataMaxCount", "99999999999999999999");
  EXPECT_EQ(times(), "1345");
  EXPECT_EQ(Lines("Unable to retrieve Datamaxcount while collecting data from user file"), 1U);

  UserFileSemaphore other(::ftok((Folder().parent_path()).c_str(), kind.projectId), 1);
  ASSERT_GE(other.create(), 0);
  ASSERT_EQ(other.lock(false, 0), 0);
  ScriptedNode::Instance().holds = 0;
  EXPECT_EQ(times(), "");
  EXPECT_EQ(ScriptedNode::Instance().holds, 6);
  EXPECT_EQ(m_agent->truncateUserFile(kind.projectId, kind.fileName), -1);
  EXPECT_EQ(Lines("Cannot lock semaphore for user file qmtuser_UPI"), 2U);
}

TEST_F(UserRecordsTest, ARowIsAnotherOneWhereAnyOfItsKeysIs) {
  const struct {
    std::size_t offset;  ///< of the byte in which the second row differs
    std::size_t rows;
  } cases[] = {{0, 2}, {19, 2}, {20, 2}, {39, 2}, {40, 2}, {43, 2}, {44, 1}, {200, 1}};
  const UserFileKind& kind = UserFileKinds()[kUPD];
  for (const auto& row : cases) {
    std::string second = FullRecord(kind);
    second[row.offset] ^= 1;
    Write(kind, Header() + FullRecord(kind) + second);
    EXPECT_EQ(Rows(kind).size(), row.rows) << row.offset;
  }
}

TEST_F(UserRecordsTest, ABatchWaitsOnceForAllFilesBeforeAnythingIsCollected) {
  ASSERT_FALSE(Rows(UserFileKinds()[kUPI]).size());
  std::vector<std::unique_ptr<UserFileSemaphore>> strangers;
  Batch batch;
  for (const UserFileKind& kind : UserFileKinds()) {
    Write(kind, Header() + FullRecord(kind));
    strangers.push_back(std::make_unique<UserFileSemaphore>(
        ::ftok(Folder().parent_path().c_str(), kind.projectId), 1));
    ASSERT_GE(strangers.back()->create(), 0);
    ASSERT_EQ(strangers.back()->lock(false, 0), 0);
    batch.Add(kind.name, std::strchr(kind.name, 'D') != nullptr ? '3' : '4',
              {.realtime = 1, .calcRates = 0});
  }
  ScriptedNode& node = ScriptedNode::Instance();
  node.onHold = [&] {
    EXPECT_EQ(Lines("Collecting data..."), 0U);
    if (node.holds == 3) {
      strangers.clear();
    }
  };
  node.lines.clear();
  node.holds = 0;
  EXPECT_EQ(m_agent->NotifyEvent(&batch.event), kNotifyDone);
  EXPECT_EQ(node.holds, 3);
  for (const auto& entry : batch.entries) {
    EXPECT_EQ(entry->event.m_records.size(), 1U);
  }
}

}  // namespace
