#include "client/looks/RecordNames.h"

#include "client/ask/Errors.h"
#include "tests/support/Testing.h"

namespace {

TEST(RecordNamesTest, FindTheOnlyRecordThatIsMeant) {
  const RecordNames names({{"PI", "4", true},
                           {"Load", "4", true},
                           {"LOAD", "3", true},
                           {"DISK", "4", true},
                           {"DISC", "3", false},
                           {"TWIN", "4", true},
                           {"TWIN", "3", true}});
  const struct {
    const char* typed;
    const char* found;  ///< or the words of the failure
  } cases[] = {{"PI", "PI"},
               {"pi", "PI"},
               {"4:pi", "4:PI"},
               {"LOAD", "LOAD"},
               {"4:LOAD", "4:Load"},
               {"load", "no record \"load\"; did you mean \"LOAD\", \"Load\"?"},
               {"twin", "TWIN"},
               {"disc", "DISC"},
               {"disq", "no record \"disq\"; did you mean \"DISK\"?"},
               {"3:pi", "no record \"3:pi\"; did you mean \"4:PI\"?"},
               {"4:disq", "no record \"4:disq\"; did you mean \"4:DISK\"?"},
               {"elsewhere", "no record \"elsewhere\"; \"qmtctl records\" shows those there are"}};
  for (const auto& row : cases) {
    std::string found;
    try {
      found = names.Need(ParseRecordName(row.typed)).Text();
    } catch (const ClientError& error) {
      found = error.what();
    }
    EXPECT_EQ(found, row.found) << row.typed;
  }
}

}  // namespace
