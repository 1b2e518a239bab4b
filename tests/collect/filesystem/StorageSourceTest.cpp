#include "collect/filesystem/StorageSource.h"

#include "support/ProductOptions.h"
#include "tests/collect/CollectFixture.h"

namespace {

class StorageSourceTest : public CollectFixture {
 protected:
  void SetUp() override {
    CollectFixture::SetUp();
    std::filesystem::create_directory(m_host.Path("/results"));
    Choose("/results");
  }
  void TearDown() override {
    ProductOptions::Instance().Set("Storage", "Directory", "./storage.d");
    const StorageSourceUser restores;
    CollectFixture::TearDown();
  }
  void Choose(const std::string& folder) {
    ProductOptions::Instance().Set("Storage", "Directory", m_host.Path(folder).c_str());
  }
  /// The rows sorted, since a folder has no order; what the error says otherwise.
  static std::string Read() {
    std::vector<Storage> rows;
    StorageSourceUser source;
    if (const UtlErrorPtr error{source.readAll(nullptr, rows)}) {
      return error->GetMessage();
    }
    std::vector<std::string> lines;
    for (const Storage& row : rows) {
      std::ostringstream out;
      out << row.GetPath() << ' ' << row.size << ' ' << row.kind << ' ' << row.freeMB << '\n';
      lines.push_back(out.str());
    }
    std::sort(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) {
      text += line;
    }
    return text;
  }

  process_tree::HostTree m_host;
};

TEST_F(StorageSourceTest, EachLineOfThreeFieldsIsARow) {
  m_host.Write("/results/:", "0\troot\t4096\n-2\tnobody\t1\n");
  m_host.Write("/results/home:user1", "7\tseven\t1024");
  m_host.Write("/results/empty", "");
  EXPECT_EQ(Read(), "/ 38 -2 0.000488281\n/ 38 0 2\nhome/user1 47 7 0.5\n");
  EXPECT_EQ(Lines("Didn't find 3 fields"), 0U);
  EXPECT_EQ(StorageDirectory(), m_host.Path("/results"));
}

TEST_F(StorageSourceTest, BadFilesCostTheirOwnRowsOnly) {
  const std::string longest(1024 - 4, '9');
  m_host.Write("/results/fields", "1\ttwo\n1\t2\t3\t4\n\n\n5\tfive\t2048\n");
  m_host.Write("/results/binary", std::string("\0\1\2\t\xff\t\n6\tsix\t2048\n", 18));
  m_host.Write("/results/numbers", "x\ty\tz\n99999999999999999999\tn\t-1\n");
  m_host.Write("/results/fits", "1\tx\t" + longest + "\n8\teight\t2048\n");
  m_host.Write("/results/long", "9\tnine\t2048\n1\tx\t" + longest + "9\n9\tnine\t2048\n");
  std::filesystem::create_directory(m_host.Path("/results/folder"));
  ASSERT_EQ(::mkfifo(m_host.Path("/results/pipe").c_str(), 0600), 0);
  std::filesystem::create_symlink("nowhere", m_host.Path("/results/dangling"));
  EXPECT_EQ(Read(),
            "binary 43 6 1\nfields 43 5 1\nfits 41 1 9.0072e+15\nfits 41 8 1\n"
            "long 41 9 1\nnumbers 44 -1 9.0072e+15\nnumbers 44 0 0\n");
  EXPECT_EQ(Lines("Didn't find 3 fields in storage category"), 5U);
  EXPECT_EQ(Lines("Failed to read the file(" + m_host.Path("/results/long").string()), 1U);
  for (const char* name : {"folder", "dangling"}) {
    EXPECT_EQ(
        Lines("Failed to access the file or directory(" + m_host.Path("/results/").string() + name),
        1U);
  }
}

TEST_F(StorageSourceTest, AMissingFolderFailsTheCategory) {
  Choose("/none");
  EXPECT_EQ(Read(), "StorageSourceUser::initialize): fopen(" + m_host.Path("/none").string() +
                        ") failed! errno: 2");
}

}  // namespace
