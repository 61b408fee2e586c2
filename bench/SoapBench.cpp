// The web service road end to end: a SOAP request of about 1 KB becomes a
// packet, the packet gets a reply through genReply, a handler fills the
// reply's data, and the reply becomes a SOAP response as text. Counted in
// round trips per second on one core. One converter per run, as per thread.
#include "Benchmarks.h"
#include "PacketCorpus.h"

#include <kvx/KVXMsgFactory.h>
#include <kvx/KVXSoapConverter.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace KVX {
namespace Bench {

namespace {

using MessagePtr = std::unique_ptr<KVXMessage, MessageDeleter>;

// What an operator does with the request: reads it, and answers with as many
// records as it was sent.
bool handle(KVXMessage const &request, KVXMessage &reply, int records, Rng &rng) {
    // The operation's element stands under the operator's: data/process/GetProcess.
    std::unique_ptr<KVXMessageIterator const> in(request.newIterator());
    if (in->seek("data/process") != 0 || in->firstChild() != 0)
        return false;
    std::unique_ptr<KVXMessageIterator> out(reply.newIterator());
    if (out->seek("data") != 0 || out->newChild("process") != 0 || out->newChild("list") != 0)
        return false;
    for (int i = 0; i < records; ++i) {
        if (!appendRecord(*out, rng))
            return false;
    }
    return true;
}

// One round trip; null on success, else the step that failed.
char const *roundTrip(KVXSoapConverter &converter, char const *requestText, int records, Rng &rng,
                      std::size_t &responseLength) {
    MessagePtr request(KVXMsgFactory::createNew());
    if (!request || converter.soapToKvxmsg(requestText, *request) != 0)
        return "soapToKvxmsg refused the request";
    MessagePtr reply(request->genReply("agent"));
    if (!reply)
        return "genReply failed";
    if (!handle(*request, *reply, records, rng))
        return "filling the reply failed";
    KVXSoapEnvelope *envelope = nullptr;
    if (converter.kvxmsgToSoap(*reply, converter.getSoapVersion(), envelope) != 0)
        return "kvxmsgToSoap refused the reply";
    std::unique_ptr<KVXSoapEnvelope> held(envelope);
    char *text = envelope->toText();
    if (text == nullptr)
        return "the envelope's toText failed";
    responseLength = std::strlen(text);
    std::free(text);
    return nullptr;
}

void soapRoundTrip(benchmark::State &state, bool withHeader) {
    std::string const &requestText =
        withHeader ? corpus().soapRequest : corpus().soapRequestNoHeader;
    KVXSoapConverter converter;
    Rng rng(Seed + 2);
    std::size_t responseLength = 0;
    for (auto _ : state) {
        char const *failed =
            roundTrip(converter, requestText.c_str(), corpus().soapRecords, rng, responseLength);
        if (failed != nullptr) {
            state.SkipWithError(failed);
            break;
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
    state.counters["request_bytes"] = static_cast<double>(requestText.size());
    state.counters["response_bytes"] = static_cast<double>(responseLength);
}

} // namespace

void registerSoapBenchmarks() {
    benchmark::RegisterBenchmark("Soap/roundtrip/1KB", soapRoundTrip, true);
    benchmark::RegisterBenchmark("Soap/roundtrip-noheader/1KB", soapRoundTrip, false);
}

} // namespace Bench
} // namespace KVX
