// What the commands answer with --json, against their schemas.

#include "logins_host.h"
#include "nimauthctl/json_schema.h"

namespace nimbrel::testing {
namespace {

class LoginsSchemaTest : public LoginsHost {};

TEST_F(LoginsSchemaTest, EveryCommandFitsItsOwn) {
    SchemaFolder schemas(NIMAUTHCTL_SCHEMAS);
    const Words kLines[] = {{"logins", "enable", "--dry-run"},
                            {"logins", "enable"},
                            {"logins", "show"},
                            {"logins", "confirm"},
                            {"logins", "history"},
                            {"logins", "disable", "--dry-run"},
                            {"logins", "disable"},
                            {"logins", "undo"},
                            {"logins", "undo"},
                            {"logins", "history"}};
    for (Words words : kLines) {
        words.emplace_back("--json");
        EXPECT_EQ("", schemas.CheckOutput(words, Done(words))) << ::testing::PrintToString(words);
    }
}

}  // namespace
}  // namespace nimbrel::testing
