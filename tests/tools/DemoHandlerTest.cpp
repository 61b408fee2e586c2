// Tests of the demonstration operator behind `kvxmsg reply --fill`: the values
// of getinfo and getuptime under the operator's element, an operator error for
// any other operation, and the operator taken from the target or "system" when
// the request has no data.
#include "tools/ToolRunner.h"

using ToolTest::data;
using ToolTest::dataPath;
using ToolTest::run;

namespace {

// reply --fill of `request`, then get of `path` in the reply.
std::string answered(std::string const &request, std::string const &path,
                     std::string const &type = "string") {
    ToolTest::Result reply = run({"reply", "--origin", "demo-agent", "--fill"}, request);
    EXPECT_EQ(0, reply.status) << reply.err;
    ToolTest::Result value = run({"get", "-", path, "--as", type}, reply.out);
    EXPECT_EQ(0, value.status) << value.err;
    return value.out;
}

} // namespace

TEST(DemoHandler, GetInfoIsAnswered) {
    ToolTest::Result result = run({"reply", "--origin", "demo-agent", "--fill", "--text",
                                   dataPath("soap-getinfo-1.1.packet.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(data("soap-getinfo-1.1.reply.xml"), result.out);
}

TEST(DemoHandler, GetUptimeIsAnswered) {
    std::string request = "<packet>\n<data>\n<server>\n<GetUptime/>\n</server>\n</data>\n</packet>";
    EXPECT_EQ("86400\n", answered(request, "data/server/uptime", "int"));
    ToolTest::Result reply = run({"reply", "--origin", "a", "--fill"}, request);
    EXPECT_EQ(1, run({"get", "-", "data/server/hostname"}, reply.out).status);
}

TEST(DemoHandler, AnotherOperationGetsAnOperatorError) {
    ToolTest::Result result = run({"reply", "--origin", "demo-agent", "--fill", "--text",
                                   dataPath("soap-restart-1.2.packet.xml")});
    EXPECT_EQ(0, result.status);
    EXPECT_EQ(data("soap-restart-1.2.reply.xml"), result.out);
}

TEST(DemoHandler, OperatorComesFromTheTargetWithoutData) {
    std::string request = "<packet>\n<target>Disk</target>\n</packet>";
    EXPECT_EQ("501\n", answered(request, "data/disk/error/code", "int"));
    EXPECT_EQ("operation '' is not supported by the disk operator\n",
              answered(request, "data/disk/error/description"));
}

TEST(DemoHandler, OperatorIsSystemWithoutDataOrTarget) {
    EXPECT_EQ("501\n",
              answered("<packet>\n<origin>x</origin>\n</packet>", "data/system/error/code", "int"));
}

TEST(DemoHandler, WithoutFillDataStaysEmpty) {
    ToolTest::Result reply =
        run({"reply", "--origin", "a", "--text", dataPath("soap-getinfo-1.1.packet.xml")});
    EXPECT_EQ(0, reply.status);
    EXPECT_NE(std::string::npos, reply.out.find("<ns1:data/>\n</packet>\n")) << reply.out;
}
