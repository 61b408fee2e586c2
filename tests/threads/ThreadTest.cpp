// Eight threads at once, each building, serializing, converting to text and to
// SOAP its own messages while all of them share the factory, the registry and
// the vocabulary. Every thread's outputs must equal, byte for byte, what the
// same work gave on one thread before they started. `make tsan` runs this under
// ThreadSanitizer, where any unguarded sharing is reported.
#include <kvx/KVXBinary.h>
#include <kvx/KVXMessage.h>
#include <kvx/KVXMsgFactory.h>
#include <kvx/KVXSessionID.h>
#include <kvx/KVXSoapConverter.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace KVX;

namespace {

constexpr int ThreadCount = 8;
constexpr int Rounds = 25;

struct MessageRelease {
    void operator()(KVXMessage *message) const {
        if (message != nullptr)
            message->destroy();
    }
};
typedef std::unique_ptr<KVXMessage, MessageRelease> MessagePtr;

std::string takeText(char *text) {
    std::string result = text != nullptr ? text : "<null>";
    std::free(text);
    return result;
}

// What one round of one thread produces; compared whole.
struct Outputs {
    std::string frame;    // the built message's frame
    std::string text;     // its text at 40500
    std::string oldText;  // what a peer below 40000 gets
    std::string reloaded; // text of the frame loaded into a second message
    std::string reparsed; // text of the text parsed into a third message
    std::string soap11;   // the SOAP request converted, answered and written back
    std::string soap12;
    std::string session; // fields read back from a session id
    bool operator==(Outputs const &other) const {
        return frame == other.frame && text == other.text && oldText == other.oldText &&
               reloaded == other.reloaded && reparsed == other.reparsed && soap11 == other.soap11 &&
               soap12 == other.soap12 && session == other.session;
    }
};

// A SOAP 1.1 request whose operator and values depend on the thread.
std::string request(int thread) {
    std::string const uri =
        "http://www.kvx.org/webservices/kvx/4.5.0/worker" + std::to_string(thread);
    return "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\">\n"
           "<soap:Body><ns:GetInfo xmlns:ns=\"" +
           uri + "\"><filter>f" + std::to_string(thread) +
           "</filter><count>3</count></ns:GetInfo></soap:Body>\n</soap:Envelope>";
}

// Converts the request, answers it and writes the answer in `version`.
std::string soapRoundTrip(int thread, SoapVersion version) {
    KVXSoapConverter converter;
    MessagePtr incoming(KVXMsgFactory::createNew());
    std::string const text = request(thread);
    if (converter.soapToKvxmsg(text.c_str(), *incoming) != 0)
        return "<request refused>";
    MessagePtr reply(incoming->genReply("thread" + std::to_string(thread)));
    if (reply == nullptr)
        return "<no reply>";
    std::unique_ptr<KVXMessageIterator> cursor(reply->newIterator());
    if (cursor->seek("data") != 0 && cursor->newChild("data") != 0)
        return "<no data>";
    if (cursor->newChild("worker" + std::to_string(thread)) != 0 ||
        cursor->newChild("uptime") != 0 || cursor->putValue(100 + thread, 0) != 0)
        return "<reply not built>";
    KVXSoapEnvelope *envelope = nullptr;
    if (converter.kvxmsgToSoap(*reply, version, envelope) != 0 || envelope == nullptr)
        return "<conversion failed>";
    std::string const written = takeText(envelope->toText());
    delete envelope;
    return written;
}

// One round of work for `thread`: every road through the library that a
// server thread takes, on messages of its own.
Outputs work(int thread) {
    Outputs out;
    MessagePtr message(KVXMsgFactory::createNew());
    if (message->create("packet") != 0)
        return out;
    std::unique_ptr<KVXMessageIterator> cursor(message->newIterator());
    std::string const own = "custom_" + std::to_string(thread); // a dynamic id per thread
    bool built = cursor->newChild("data") == 0 && cursor->newChild(own) == 0 &&
                 cursor->putValue(std::string("value & <") + std::to_string(thread), 0) == 0 &&
                 cursor->seekUp() == 0 && cursor->newChild("id") == 0 &&
                 cursor->putValue(thread * 1000, 0) == 0 && cursor->seekUp() == 0 &&
                 cursor->newChild("name") == 0 && cursor->putValueDouble(thread + 0.5, 0) == 0;
    if (!built)
        return out;
    message->setPriority(thread);
    message->setID("message-" + std::to_string(thread));

    char *frame = nullptr;
    int length = 0;
    if (message->serialize(&frame, &length, nullptr, 40500) == 0 && frame != nullptr) {
        out.frame.assign(frame, frame + length);
        MessagePtr copy(KVXMsgFactory::createNew());
        if (copy->init(frame, length) == 0)
            out.reloaded = takeText(copy->toText());
    }
    std::free(frame);
    out.text = takeText(message->toText());
    out.oldText = takeText(message->toText(nullptr, std::string(), 39999));
    MessagePtr parsed(KVXMsgFactory::createNew());
    if (parsed->fromText(out.text.c_str()) == 0)
        out.reparsed = takeText(parsed->toText());

    out.soap11 = soapRoundTrip(thread, SoapVersion11);
    out.soap12 = soapRoundTrip(thread, SoapVersion12);

    KVXSessionID session;
    session.create(40500, thread, "eid" + std::to_string(thread), "target");
    out.session = std::to_string(session.getVersion()) + "/" + std::to_string(session.getType()) +
                  "/" + session.getEID() + "/" + session.getTargetEID();
    return out;
}

} // namespace

TEST(Threads, EightThreadsShareFactoryAndVocabulary) {
    // The registry is filled by the first call, which must come before threads.
    ASSERT_NE(nullptr, KVXMessage::getFactory().get());

    std::vector<Outputs> expected;
    for (int thread = 0; thread < ThreadCount; ++thread) {
        expected.push_back(work(thread));
        // The single-threaded round really did every step.
        ASSERT_FALSE(expected.back().frame.empty());
        ASSERT_NE(std::string::npos, expected.back().text.find("custom_" + std::to_string(thread)));
        ASSERT_EQ(expected.back().text, expected.back().reloaded);
        ASSERT_NE(std::string::npos,
                  expected.back().soap11.find(">" + std::to_string(100 + thread) + "</ns1:uptime>"))
            << expected.back().soap11;
        ASSERT_NE(std::string::npos,
                  expected.back().soap12.find(">" + std::to_string(100 + thread) + "</ns1:uptime>"))
            << expected.back().soap12;
        ASSERT_EQ("40500/" + std::to_string(thread) + "/eid" + std::to_string(thread) + "/target",
                  expected.back().session);
    }

    std::vector<int> matching(ThreadCount, 0);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < ThreadCount; ++thread) {
        threads.emplace_back([thread, &expected, &matching] {
            for (int round = 0; round < Rounds; ++round) {
                if (work(thread) == expected[thread])
                    ++matching[thread];
            }
        });
    }
    for (std::thread &t : threads)
        t.join();
    for (int thread = 0; thread < ThreadCount; ++thread)
        EXPECT_EQ(Rounds, matching[thread]) << "thread " << thread;
}
