// Replays the fuzz targets' seed corpora (fuzz/corpus/<target>) and the saved
// findings (tests/data/fuzz/<target>) through the very code the fuzzers run,
// so that every finding stays fixed and the seeds stay valid input. Under
// `make sanitize` this runs with AddressSanitizer and UndefinedBehaviorSanitizer.
#include "fuzz/FuzzTargets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

typedef void (*Target)(std::uint8_t const *, std::size_t);

fs::path seedDir(std::string const &target) {
    return fs::path(KVX_TEST_DATA_DIR) / ".." / ".." / "fuzz" / "corpus" / target;
}

fs::path findingDir(std::string const &target) {
    return fs::path(KVX_TEST_DATA_DIR) / "fuzz" / target;
}

// The files of a folder in name order; none when it does not exist.
std::vector<fs::path> filesIn(fs::path const &dir) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error)) {
        if (it->is_regular_file())
            files.push_back(it->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::uint8_t> contents(fs::path const &file) {
    std::ifstream in(file, std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in),
                                     std::istreambuf_iterator<char>());
}

// Runs every file; returns the names of those stopped by an assertion.
std::vector<std::string> replay(std::vector<fs::path> const &files, Target target) {
    KVX::Fuzz::assertionLog().quiet = true;
    std::vector<std::string> stopped;
    for (fs::path const &file : files) {
        std::vector<std::uint8_t> const input = contents(file);
        if (!KVX::Fuzz::runGuarded([&] { target(input.data(), input.size()); }))
            stopped.push_back(file.filename().string());
    }
    return stopped;
}

void replaySeeds(std::string const &name, Target target) {
    std::vector<fs::path> const files = filesIn(seedDir(name));
    ASSERT_FALSE(files.empty()) << "no seeds in " << seedDir(name);
    // Seeds are valid input: none of them may reach an assertion.
    EXPECT_EQ(std::vector<std::string>(), replay(files, target));
}

} // namespace

TEST(FuzzReplay, FrameSeedsRunWithoutAssertion) {
    replaySeeds("frame", &KVX::Fuzz::runFrame);
}

TEST(FuzzReplay, TextSeedsRunWithoutAssertion) {
    replaySeeds("text", &KVX::Fuzz::runText);
}

TEST(FuzzReplay, SoapSeedsRunWithoutAssertion) {
    replaySeeds("soap", &KVX::Fuzz::runSoap);
}

TEST(FuzzReplay, SessionSeedsRunWithoutAssertion) {
    replaySeeds("session", &KVX::Fuzz::runSession);
}

// Saved findings only have to run to their end: a sanitizer report, a broken
// property or a hang fails the test program.
TEST(FuzzReplay, SavedFindingsRunToTheirEnd) {
    std::size_t total = 0;
    struct {
        char const *name;
        Target target;
    } const targets[] = {{"frame", &KVX::Fuzz::runFrame},
                         {"text", &KVX::Fuzz::runText},
                         {"soap", &KVX::Fuzz::runSoap},
                         {"session", &KVX::Fuzz::runSession}};
    for (auto const &target : targets) {
        std::vector<fs::path> const files = filesIn(findingDir(target.name));
        replay(files, target.target);
        total += files.size();
    }
    EXPECT_GT(total, 0u) << "no saved findings under tests/data/fuzz";
}

// The harness's own contract: an assertion stops the input (no crash, no
// further step of it runs), is counted, and the previous handler comes back.
TEST(FuzzReplay, AssertionStopsTheInputWithoutACrash) {
    KVX::Fuzz::assertionLog().quiet = true;
    unsigned long const before = KVX::Fuzz::assertionLog().stops;
    bool reachedAfter = false;
    bool const ran = KVX::Fuzz::runGuarded([&] {
        KVX::Fuzz::MessagePtr message = KVX::Fuzz::newMessage();
        ASSERT_EQ(0, message->create("packet"));
        KVX::Fuzz::ConstCursorPtr cursor(
            static_cast<KVX::KVXMessage const &>(*message).newIterator());
        (void)cursor->nextSibling(); // at the root: a caller fault
        reachedAfter = true;
    });
    EXPECT_FALSE(ran);
    EXPECT_FALSE(reachedAfter);
    EXPECT_EQ(before + 1, KVX::Fuzz::assertionLog().stops);
    KVX::AssertHandler const current = KVX::setAssertHandler(nullptr);
    EXPECT_NE(&KVX::Fuzz::stopOnAssertion, current);
    KVX::setAssertHandler(current);
}
