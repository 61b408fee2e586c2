// Registration of the benchmark families. Each unit registers its rows by
// name ("Road/subject/size"), which bench/ratios.py pairs with their
// references. All of them read the corpus, which main fills first.
#ifndef KVX_BENCH_BENCHMARKS_H
#define KVX_BENCH_BENCHMARKS_H

namespace KVX {
namespace Bench {

void registerFrameBenchmarks();  // frame load and store against memcpy
void registerWalkBenchmarks();   // cursor walk against a pugixml DOM walk
void registerTextBenchmarks();   // fromText and toText against pugixml
void registerSoapBenchmarks();   // SOAP request to response round trips
void registerBuildBenchmarks();  // building packets through a cursor
void registerThreadBenchmarks(); // one thread against two

} // namespace Bench
} // namespace KVX

#endif // KVX_BENCH_BENCHMARKS_H
