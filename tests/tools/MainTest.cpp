// Tests of the command line itself: the help of the tool and of every command
// (each explains its options with an example), and the one-line failure and
// exit status 2 of a wrong command line.
#include "tools/ToolRunner.h"

#include <algorithm>

using ToolTest::run;

namespace {

char const *const Commands[] = {"encode", "decode", "dump",    "verify", "split",
                                "get",    "set",    "soap-in", "reply",  "soap-out"};

int lines(std::string const &text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace

TEST(Main, HelpListsEveryCommand) {
    ToolTest::Result result = run({"--help"});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(0u, result.out.find("kvxmsg: the roads of the KVXMessage library as commands.\n"));
    for (char const *command : Commands)
        EXPECT_NE(std::string::npos, result.out.find(std::string("\n  ") + command + " "))
            << command;
    EXPECT_NE(std::string::npos, result.out.find("Examples:\n  kvxmsg encode packet.xml -o "
                                                 "packet.bin\n"));
}

TEST(Main, EveryCommandHasHelpWithAnExample) {
    for (char const *command : Commands) {
        ToolTest::Result result = run({command, "--help"});
        EXPECT_EQ(0, result.status) << command;
        EXPECT_EQ("", result.err) << command;
        EXPECT_NE(std::string::npos, result.out.find(std::string("Usage: kvxmsg ") + command))
            << command;
        EXPECT_NE(std::string::npos, result.out.find("  kvxmsg " + std::string(command) + " "))
            << command << ": no example\n"
            << result.out;
    }
}

TEST(Main, HelpOfACommandNamesItsOptions) {
    ToolTest::Result result = run({"decode", "--help"});
    EXPECT_NE(std::string::npos, result.out.find("  --version N"));
    EXPECT_NE(std::string::npos, result.out.find("  -o,--output FILE"));
    EXPECT_NE(std::string::npos, result.out.find("  INPUT TEXT"));
    result = run({"get", "--help"});
    EXPECT_NE(std::string::npos, result.out.find("  --as TYPE"));
    result = run({"soap-out", "--help"});
    EXPECT_NE(std::string::npos, result.out.find("  --soap 1.1|1.2"));
    result = run({"reply", "--help"});
    EXPECT_NE(std::string::npos, result.out.find("  --origin NAME"));
    EXPECT_NE(std::string::npos, result.out.find("  --fill"));
}

TEST(Main, NoCommandIsAUsageError) {
    ToolTest::Result result = run({});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("kvxmsg: A subcommand is required (see kvxmsg --help)\n", result.err);
}

TEST(Main, UnknownCommandIsAUsageError) {
    ToolTest::Result result = run({"frobnicate"});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ(1, lines(result.err));
    EXPECT_EQ(0u, result.err.find("kvxmsg: "));
}

TEST(Main, UnknownOptionIsAUsageError) {
    ToolTest::Result result = run({"dump", "--colour"});
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("kvxmsg: The following argument was not expected: --colour (see kvxmsg --help)\n",
              result.err);
}
