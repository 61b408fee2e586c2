// Tests of the assertion handler: the default report, installing a handler
// and restoring the default.
#include <kvx/KVXCommon.h>

#include <gtest/gtest.h>

#include <string>

namespace {

struct Report {
    int calls = 0;
    std::string expression;
    std::string file;
    int line = 0;
};

Report report;

void recordingHandler(char const *expression, char const *file, int line) {
    ++report.calls;
    report.expression = expression;
    report.file = file;
    report.line = line;
}

class Assert : public ::testing::Test {
protected:
    void SetUp() override { report = Report(); }
    void TearDown() override { KVX::setAssertHandler(nullptr); }
};

TEST_F(Assert, InstalledHandlerReceivesReportAndReturns) {
    KVX::AssertHandler previous = KVX::setAssertHandler(&recordingHandler);
    EXPECT_NE(previous, nullptr);
    EXPECT_NE(previous, &recordingHandler);

    int const line = __LINE__ + 1;
    KVX_ASSERT(1 + 1 == 3);
    int const reachedAfterAssert = 1;

    EXPECT_EQ(reachedAfterAssert, 1);
    EXPECT_EQ(report.calls, 1);
    EXPECT_EQ(report.expression, "1 + 1 == 3");
    EXPECT_EQ(report.line, line);
    EXPECT_NE(report.file.find("AssertTest.cpp"), std::string::npos) << report.file;
}

TEST_F(Assert, HoldingConditionDoesNotReport) {
    KVX::setAssertHandler(&recordingHandler);
    int evaluations = 0;
    KVX_ASSERT(++evaluations == 1);
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(report.calls, 0);
}

TEST_F(Assert, SetReturnsPreviousAndNullRestoresDefault) {
    KVX::AssertHandler defaultHandler = KVX::setAssertHandler(&recordingHandler);
    EXPECT_EQ(KVX::setAssertHandler(nullptr), &recordingHandler);
    // After the null, the default is installed again.
    EXPECT_EQ(KVX::setAssertHandler(&recordingHandler), defaultHandler);
    EXPECT_EQ(KVX::setAssertHandler(defaultHandler), &recordingHandler);
    EXPECT_EQ(KVX::setAssertHandler(nullptr), defaultHandler);
}

TEST_F(Assert, DefaultHandlerReportsAndAborts) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(KVX_ASSERT(2 < 1), "^KVX_ASSERT failed: 2 < 1 \\(.*AssertTest\\.cpp:[0-9]+\\)\n$");
}

TEST_F(Assert, RestoredDefaultAbortsAgain) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    KVX::setAssertHandler(&recordingHandler);
    KVX::setAssertHandler(nullptr);
    EXPECT_DEATH(KVX_ASSERT(false), "KVX_ASSERT failed: false");
    EXPECT_EQ(report.calls, 0);
}

} // namespace
