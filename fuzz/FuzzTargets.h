// The four roads by which outside bytes enter the library, each as one
// function of an input: a received frame, XML text, a SOAP request and a
// session id. The libFuzzer entry points call these, and so do the regression
// tests over the saved inputs. Header only; single-threaded.
#ifndef KVX_FUZZ_FUZZTARGETS_H
#define KVX_FUZZ_FUZZTARGETS_H

#include "fuzz/FuzzHarness.h"

#include "binary/WireFormat.h"

#include <kvx/KVXSessionID.h>
#include <kvx/KVXSoapConverter.h>
#include <kvx/KVXSoapEnvelope.h>
#include <kvx/KVXSoapFault.h>

#include <algorithm>
#include <cctype>
#include <climits>

namespace KVX {
namespace Fuzz {

// Serializes the whole message both ways and at both sides of the binary
// threshold. Returns the frame of the fixed-buffer form, which is binary
// whatever the document's version (empty when it refuses).
inline std::vector<char> serializeAll(KVXMessage const &message) {
    std::vector<char> fixed;
    unsigned __int64 size = 0;
    if (message.serialize(static_cast<char *>(nullptr), &size, nullptr) == -2 && size > 0 &&
        size <= 1u << 24) {
        fixed.resize(static_cast<std::size_t>(size));
        unsigned __int64 capacity = size;
        if (message.serialize(fixed.data(), &capacity, nullptr) != 0 || capacity != size)
            fixed.clear();
    }
    char *text = nullptr;
    int length = 0;
    (void)message.serialize(&text, &length, nullptr, 39999);
    CText oldPeer(text);
    char *frame = nullptr;
    length = 0;
    (void)message.serialize(&frame, &length, nullptr, 40500);
    CText current(frame);
    return fixed;
}

// The format byte of a frame of at least 8 bytes.
inline unsigned formatOf(std::vector<char> const &frame) {
    return frame.size() >= 8 ? Internal::frameFormat(frame.data()) : 0;
}

// A received frame: cut by isComplete, checked by verify, loaded by init, then
// walked, written as text both ways, serialized, and grafted into a second
// document both from the cursor and from the bytes.
inline void runFrame(std::uint8_t const *data, std::size_t size) {
    int const available = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    std::vector<char> const input = exactCopy(data, static_cast<std::size_t>(available), false);
    if (input.size() < 8)
        return; // isComplete and init need their four bytes of magic
    int const complete = KVXBinary::isComplete(input.data(), available);
    int faultOffset = -1;
    int const verified = KVXBinary::verify(input.data(), available, &faultOffset);
    KVX_FUZZ_CHECK(verified == 0 || (faultOffset >= 0 && faultOffset <= available));
    if (complete <= 0)
        return;
    // The transport hands on the frame alone.
    std::vector<char> const frame(input.begin(), input.begin() + complete);
    // A text message ends at its NUL and may be shorter than the magic.
    bool const binary = frame.size() >= 4 && KVXBinary::isOfTheKind(frame.data()) != 0;
    KVX_FUZZ_CHECK(verified != 0 || (binary && KVXBinary::verify(frame.data(), complete) == 0));

    MessagePtr message = newMessage();
    int const loaded = message->init(frame.data(), complete);
    KVX_FUZZ_CHECK(verified != 0 || loaded == 0);
    if (loaded != 0)
        return;
    ConstCursorPtr root(static_cast<KVXMessage const &>(*message).newIterator());
    walkTree(*root);
    writeText(*message, 40500);
    writeText(*message, 39999);
    std::vector<char> const written = serializeAll(*message);
    // A sound frame with a root in the current layout comes back sound: writing
    // is a copy. (Without a root there is nothing to write.)
    if (verified == 0 && formatOf(frame) == Internal::FormatCurrent &&
        !Internal::frameIsEmpty(frame.data()))
        KVX_FUZZ_CHECK(!written.empty() &&
                       KVXBinary::verify(written.data(), static_cast<int>(written.size())) == 0);

    MessagePtr second = newMessage();
    if (second->create("packet") != 0)
        return;
    CursorPtr place(second->newIterator());
    if (standsOnNode(*root))
        (void)second->deserialize(root.get(), place.get());
    (void)place->deserializeToChild(frame.data(), complete);
    ConstCursorPtr secondRoot(static_cast<KVXMessage const &>(*second).newIterator());
    walkTree(*secondRoot);
    // A graft may leave ids without names (attributes stop it half way, and a
    // vocabulary name keeps the source's id bytes), so its result is written
    // out but not judged.
    (void)serializeAll(*second);
}

// XML text: parsed, walked, written at both versions and as a frame, and the
// written text parsed again; also parsed under a node of another document.
inline void runText(std::uint8_t const *data, std::size_t size) {
    std::vector<char> const text = exactCopy(data, size, true);
    MessagePtr message = newMessage();
    if (message->fromText(text.data()) == 0) {
        ConstCursorPtr root(static_cast<KVXMessage const &>(*message).newIterator());
        walkTree(*root);
        writeText(*message, 39999);
        std::vector<char> const frame = serializeAll(*message);
        // Every frame the parser builds describes itself completely.
        KVX_FUZZ_CHECK(frame.empty() ||
                       KVXBinary::verify(frame.data(), static_cast<int>(frame.size())) == 0);
        CText again(message->toText(nullptr, std::string(), 40500));
        if (again != nullptr) {
            MessagePtr reread = newMessage();
            if (reread->fromText(again.get()) == 0) {
                ConstCursorPtr rereadRoot(static_cast<KVXMessage const &>(*reread).newIterator());
                walkTree(*rereadRoot);
            }
        }
    }
    MessagePtr host = newMessage();
    if (host->create("packet") == 0) {
        CursorPtr place(host->newIterator());
        if (place->fromTextToChild(text.data()) == 0) {
            ConstCursorPtr hostRoot(static_cast<KVXMessage const &>(*host).newIterator());
            walkTree(*hostRoot);
        }
    }
}

// The reply path of a converted request, for one SOAP version.
inline void answer(KVXSoapConverter &converter, KVXMessage const &request, SoapVersion version) {
    MessagePtr reply(request.genReply("fuzz"));
    if (reply == nullptr)
        return;
    KVXSoapEnvelope *envelope = nullptr;
    (void)converter.kvxmsgToSoap(*reply, version, envelope);
    std::unique_ptr<KVXSoapEnvelope> response(envelope);
    if (response != nullptr)
        CText written(response->toText());
}

// A SOAP request: converted to a packet, answered with genReply, and the reply
// converted back in both SOAP versions; a refusal's fault is written out.
inline void runSoap(std::uint8_t const *data, std::size_t size) {
    std::vector<char> const text = exactCopy(data, size, true);
    KVXSoapConverter converter;
    MessagePtr request = newMessage();
    if (converter.soapToKvxmsg(text.data(), *request) != 0) {
        if (converter.getFault() != nullptr)
            CText fault(converter.getFault()->toText());
        return;
    }
    (void)converter.getSoapVersion();
    answer(converter, *request, SoapVersion11);
    answer(converter, *request, SoapVersion12);
    // The request itself, as a reply that was never made by genReply.
    KVXSoapEnvelope *envelope = nullptr;
    (void)converter.kvxmsgToSoap(*request, SoapVersion11, envelope);
    std::unique_ptr<KVXSoapEnvelope> response(envelope);
    if (response != nullptr)
        CText written(response->toText());
}

// A session id: every reader, and the comparisons against itself in another case.
inline void runSession(std::uint8_t const *data, std::size_t size) {
    std::string const text(reinterpret_cast<char const *>(data), size);
    KVXSessionID const id(text);
    (void)id.getVersion();
    (void)id.getType();
    std::string field = "untouched";
    id.getEID(field);
    std::string const eid = id.getEID();
    field = "untouched";
    id.getTargetEID(field);
    std::string const target = id.getTargetEID();
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(), [](char c) {
        return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    });
    KVX_FUZZ_CHECK(id == upper && !(id != upper));
    KVXSessionID const copy(id);
    KVX_FUZZ_CHECK(copy == id && !(copy != id));
}

} // namespace Fuzz
} // namespace KVX

#endif // KVX_FUZZ_FUZZTARGETS_H
