// The benchmark program: fills the deterministic corpus, registers every
// family of rows, and runs what the command line selects. The corpus is
// built before the benchmarks so that no thread races its construction.
#include "Benchmarks.h"
#include "PacketCorpus.h"

#include <benchmark/benchmark.h>

#include <cstdio>

int main(int argc, char **argv) {
    using namespace KVX::Bench;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    if (!prepareCorpus())
        return 1;
    for (Sample const &sample : corpus().texts)
        std::fprintf(stderr, "input %s: %d records, %zu bytes of text, %zu bytes of frame\n",
                     sample.label.c_str(), sample.records, sample.text.size(), sample.frame.size());
    std::fprintf(stderr, "input 1MiB frame: %d records, %zu bytes of frame\n",
                 corpus().mibFrame.records, corpus().mibFrame.frame.size());
    std::fprintf(stderr, "input SOAP request: %d records, %zu bytes\n", corpus().soapRecords,
                 corpus().soapRequest.size());

    registerFrameBenchmarks();
    registerWalkBenchmarks();
    registerTextBenchmarks();
    registerSoapBenchmarks();
    registerBuildBenchmarks();
    registerThreadBenchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
