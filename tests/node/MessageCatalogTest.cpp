#include "node/MessageCatalog.h"

#include <cstddef>

#include "tests/support/Testing.h"

namespace {

// Operators' filters go by these lines: a change of one is a change of the product.
constexpr const char* kPublished[] = {
    "10001 1 3 QMTX10001-I Agent Collector has stopped. (host=%1, service=%2)",
    "10002 1 1 QMTX10002-E Agent Collector failed to start.",
    "10003 1 3 QMTX10003-I Agent Collector has started. (host=%1, service=%2)",
    "10004 1 1 QMTX10004-E Agent Collector stopped abnormally.",
    "10100 10 1 QMTX10100-E An error occurred in an OS API (%1). (en=%2, arg1=%3, arg2=%4, "
    "arg3=%5)",
    "10101 1 1 QMTX10101-E An error occurred in a function (%1). (rc=%2, arg1=%3, arg2=%4, "
    "arg3=%5)",
    "10102 1 1 QMTX10102-E A signal has been accepted. (sn=%1)",
    "10103 1 1 QMTX10103-E An exception occurred. (msg=%1)",
    "10104 10 2 Failed to access the file or directory(%1).",
    "10105 10 2 QMTX10105-W The file does not exist in the path specified by using Web Console. "
    "(PL_MESS) (%1). (en=%2, arg1=%3, arg2=%4, arg3=%5)",
    "10106 10 2 QMTX10106-W The information to be collected has not been set in Web Console. "
    "(PD_APP). (arg1=%2, arg2=%3, arg3=%4, arg4=%5).",
    "10107 10 2 QMTX10107-W The path name specified by using Web Console exceeds the 256-byte "
    "limit. (%1) (%2)",
    "10150 10 2 QMTX10150-W An error occurred in an OS API (%1). (en=%2, arg1=%3, arg2=%4, "
    "arg3=%5)",
    "10200 1 1 QMTX10200-E An attempt to initialize a connection failed.",
    "10201 1 1 QMTX10201-E Initialization of Agent Configuration failed.",
    "10202 1 1 QMTX10202-E An attempt to initialize a record failed.",
    "10203 10 2 QMTX10203-W Invalid entry in %1.",
    "10300 10 2 QMTX10300-W An attempt to collect a record failed. (record=%1)",
    "10498 40 3 Started the function (%1). (arg1=%2, arg2=%3, arg3=%4, arg4=%5).",
    "10499 40 3  Exited the function (%1). (rc=%2).",
    "10503 10 2 QMTX10503-W Reception of a signal caused the service to stop. (signal=%1)",
    "10552 30 2 WorkGroup::GetIniFile failed.",
    "10600 10 2 QMTX10600-W An invalid collection event occurred. (record=%1, rc=%2)",
    "10700 10 2 QMTX10700-W An alarm has begun. (alarm=%1, id=%2, severity=%3, key=%4): %5",
    "10701 10 3 QMTX10701-I An alarm has ended. (alarm=%1, id=%2, severity=%3, key=%4): %5",
    "10702 10 2 QMTX10702-W An alarm is off. (alarm=%1): %2",
};

TEST(MessageCatalogTest, EachMessageIsAsPublished) {
  ASSERT_EQ(kMessageCatalog.size(), std::size(kPublished));
  for (std::size_t place = 0; place < kMessageCatalog.size(); ++place) {
    const CatalogMessage& message = kMessageCatalog[place];
    EXPECT_EQ(std::to_string(message.number) + ' ' + std::to_string(message.level) + ' ' +
                  std::to_string(message.kind) + ' ' + message.text,
              kPublished[place]);
  }
}

}  // namespace
