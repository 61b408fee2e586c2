// One test per fuzz finding: the saved input under tests/data/fuzz/<target>
// runs through the fuzz target's code to its end, and a small hand-made input
// of the same class pins the result the fix chose.
#include "fuzz/FuzzTargets.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<std::uint8_t> finding(std::string const &target, std::string const &name) {
    std::ifstream in(std::string(KVX_TEST_DATA_DIR) + "/fuzz/" + target + "/" + name,
                     std::ios::binary);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in),
                                     std::istreambuf_iterator<char>());
}

// Runs a saved finding; true when it ran to its end without an assertion.
bool replayFinding(std::string const &target, std::string const &name,
                   void (*run)(std::uint8_t const *, std::size_t)) {
    std::vector<std::uint8_t> const input = finding(target, name);
    EXPECT_FALSE(input.empty()) << target << "/" << name << " is missing";
    KVX::Fuzz::assertionLog().quiet = true;
    return KVX::Fuzz::runGuarded([&] { run(input.data(), input.size()); });
}

} // namespace

// A version segment in the operation's namespace URI with more fields than an
// int can take (here made of bytes that are no digits) overflowed the signed
// sum; it now wraps modulo 2^32.
TEST(FuzzFinding, SoapVersionSegmentTooLongForAnIntWraps) {
    EXPECT_TRUE(replayFinding("soap", "version-segment-overflow.xml", &KVX::Fuzz::runSoap));

    std::string const request =
        "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">\n"
        "<soap:Body><ns:GetInfo xmlns:ns=\"http://h/webservices/kvx/4.5.0.0.0.0/server\">"
        "</ns:GetInfo></soap:Body>\n</soap:Envelope>";
    KVX::KVXSoapConverter converter;
    KVX::Fuzz::MessagePtr message = KVX::Fuzz::newMessage();
    ASSERT_EQ(0, converter.soapToKvxmsg(request.c_str(), *message));
    int version = 0;
    ASSERT_EQ(0, message->getVersion(version));
    // 4.5.0.0.0.0 is 40,500,000,000, which is 1,845,294,336 modulo 2^32.
    EXPECT_EQ(1845294336, version);
}

// An empty frame without a name table, followed by more bytes: the framing rule
// measures 8 bytes, which on their own are never complete. The verifier passed
// it while init of those 8 bytes failed; now it refuses it at offset 8.
TEST(FuzzFinding, HeadOnlyFrameBeforeMoreBytesIsRefused) {
    EXPECT_TRUE(replayFinding("frame", "head-only-frame-before-bytes.bin", &KVX::Fuzz::runFrame));

    std::vector<std::uint8_t> const input = finding("frame", "head-only-frame-before-bytes.bin");
    char const *bytes = reinterpret_cast<char const *>(input.data());
    int const length = static_cast<int>(input.size());
    ASSERT_EQ(8, KVX::KVXBinary::isComplete(bytes, length));
    int offset = -1;
    EXPECT_EQ(-1, KVX::KVXBinary::verify(bytes, length, &offset));
    EXPECT_EQ(8, offset);
    KVX::Fuzz::MessagePtr message = KVX::Fuzz::newMessage();
    EXPECT_EQ(-1, message->init(bytes, 8));
}
