#include "node/MessageCatalog.h"

#include "tests/support/Testing.h"

namespace {

// Operators' filters go by these lines: a change of one is a change of the product.
TEST(MessageCatalogTest, EachMessageIsAsPublished) {
  std::ostringstream lines;
  for (const CatalogMessage& message : kMessageCatalog) {
    lines << message.number << ' ' << message.level << ' ' << message.kind << ' ' << message.text
          << '\n';
  }
  EXPECT_EQ(lines.str(), FileText(QMT_TEST_DIR "/node/messages.txt"));
}

}  // namespace
