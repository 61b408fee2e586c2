// Tests of generateID: the form of an id and that ids do not repeat, also
// when several threads ask at once.
#include <kvx/KVXCore.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

bool isLowerHex(std::string const &id) {
    return id.find_first_not_of("0123456789abcdef") == std::string::npos;
}

TEST(UniqueId, ThirtyTwoLowerCaseHexDigits) {
    std::string id = "previous.content.is.replaced";
    KVX::generateID(id);
    EXPECT_EQ(id.size(), 32u);
    EXPECT_TRUE(isLowerHex(id)) << id;
    EXPECT_EQ(id.find('.'), std::string::npos) << id;
}

TEST(UniqueId, DistinctOverManyCalls) {
    std::set<std::string> ids;
    for (int i = 0; i < 1000; ++i) {
        std::string id;
        KVX::generateID(id);
        ASSERT_EQ(id.size(), 32u);
        ASSERT_TRUE(isLowerHex(id)) << id;
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 1000u);
}

TEST(UniqueId, UsesEveryHexDigit) {
    // 200 ids hold 6400 digits; a source stuck on part of the range shows here.
    std::set<char> digits;
    for (int i = 0; i < 200; ++i) {
        std::string id;
        KVX::generateID(id);
        digits.insert(id.begin(), id.end());
    }
    EXPECT_EQ(digits.size(), 16u);
}

TEST(UniqueId, DistinctAcrossThreads) {
    constexpr int Threads = 4;
    constexpr int PerThread = 250;
    std::vector<std::vector<std::string>> results(Threads);
    std::vector<std::thread> workers;
    for (int t = 0; t < Threads; ++t) {
        workers.emplace_back([&results, t] {
            for (int i = 0; i < PerThread; ++i) {
                std::string id;
                KVX::generateID(id);
                results[t].push_back(id);
            }
        });
    }
    for (std::thread &worker : workers) {
        worker.join();
    }
    std::set<std::string> ids;
    for (std::vector<std::string> const &list : results) {
        for (std::string const &id : list) {
            ASSERT_EQ(id.size(), 32u);
            ids.insert(id);
        }
    }
    EXPECT_EQ(ids.size(), static_cast<std::size_t>(Threads * PerThread));
}

} // namespace
