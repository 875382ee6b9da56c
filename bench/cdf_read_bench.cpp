// Reading catalogue documents: our CDF reader against a general XML parser
// (pugixml) on the same text, and the reader alone on hostile text that must
// still cost time in proportion to its size.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <pugixml.hpp>
#include <string>

#include "catalogue/cdf_reader.h"

namespace {

using namespace kx::catalogue;

std::string Guid(unsigned number) {
  char text[40];
  std::snprintf(text, sizeof text, "{%08X-C085-430B-B76D-%012X}", number * 2654435761u, number);
  return text;
}

// A package as the writer lays it out: title, abstract, target lists, OS, four
// codebases, a link, three dependencies and an INI merge.
void AppendPackage(std::string& out, unsigned i) {
  const std::string n = std::to_string(i);
  out += "<SOFTPKG NAME=\"" + Guid(i) + "\" VERSION=\"2." + n +
         ".1\" TYPE=\"VISIBLE\" COMPATIBILITY=\"2.0\""
         " OLDESTCOMPATIBLEVERSION=\"1.5\">\n";
  out += "\t<TITLE>Component " + n + "</TITLE>\n";
  out += "\t<ABSTRACT>\nDrivers and runtime support for component " + n +
         ", installed on every controller of the product line that has the matching processor.\n\t</ABSTRACT>\n";
  out += "\t<IMPLEMENTATION>\n";
  for (const char* processor : {"5A10", "5B20", "7C30"})
    out += "\t\t<PROCESSOR VALUE=\"" + std::string(processor) + "\"/>\n";
  out += "\t\t<EXCEPTPROCESSOR VALUE=\"4A00\"/>\n\t\t<DEVICECLASS VALUE=\"Controller\"/>\n";
  out += "\t\t<OS VALUE=\"Linux\"><OSVERSION VALUE=\"5.10\"/></OS>\n";
  for (const char* file : {"lib/libcomp.so.2", "bin/compd", "share/comp/defaults.ini", "share/comp/web.tar"}) {
    out += "\t\t<CODEBASE FILENAME=\"comp" + n + "/" + file + "\" TARGET=\"/usr/local/kx/" + file +
           "\" TYPE=\"SYSTEM\" PERMISSIONS=\"0755\" OWNER=\"opuser\" GROUP=\"kx\"/>\n";
  }
  out +=
      "\t\t<SYMLINK SOURCE=\"/usr/local/kx/lib/libcomp.so.2\" LINK=\"/usr/local/kx/lib/libcomp.so\" "
      "PERMISSIONS=\"0777\" OWNER=\"opuser\" GROUP=\"kx\"/>\n";
  for (const char* type : {" TYPE=\"EXACT\"", " TYPE=\"STRICT\"", ""}) {
    out += "\t\t<DEPENDENCY" + std::string(type) + ">\n\t\t\t<SOFTPKG NAME=\"" + Guid(i / 2 + 7) +
           "\" VERSION=\"1.4\">\n\t\t\t<TITLE>Base library</TITLE>\n\t\t\t</SOFTPKG>\n\t\t</DEPENDENCY>\n";
  }
  out += "\t\t<MERGEINI TARGET=\"/kx-rt.ini\"><![CDATA[[Component" + n +
         "]\nEnabled=True\nPath=/usr/local/kx\n]]>\n"
         "\t\t</MERGEINI>\n";
  out += "\t</IMPLEMENTATION>\n</SOFTPKG>\n";
}

std::string Catalogue(unsigned packages) {
  std::string out = "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"5.0\"?>\n<DEFINITION>\n";
  for (unsigned i = 0; i < packages; ++i) AppendPackage(out, i);
  return out + "</DEFINITION>\n";
}

std::string Repeat(const std::string& piece, int64_t count) {
  std::string out;
  out.reserve(piece.size() * count);
  for (int64_t i = 0; i < count; ++i) out += piece;
  return out;
}

// What a read fills; a fresh set per read.
struct ReadResult {
  PackageList packages;
  StackList stacks;
  SectionList sections;
  DynamicAddonList addons;

  int Read(const std::string& text) { return ReadCdfDocument(text, packages, stacks, sections, addons); }
};

// Times the read alone. Discarding the result is the caller's cost, measured by
// BM_DiscardCatalogue: at scale most of it is the allocator's deferred work of
// coalescing the freed chunks, which lands wherever the next large free happens.
void ReadWithReader(benchmark::State& state, const std::string& text) {
  for (auto _ : state) {
    auto result = std::make_unique<ReadResult>();
    benchmark::DoNotOptimize(result->Read(text));
    state.PauseTiming();
    result.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
  state.counters["KiB"] = static_cast<double>(text.size()) / 1024;
}

void BM_ReadCatalogue(benchmark::State& state) {
  const std::string text = Catalogue(static_cast<unsigned>(state.range(0)));
  ReadWithReader(state, text);
}

void BM_DiscardCatalogue(benchmark::State& state) {
  const std::string text = Catalogue(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    auto result = std::make_unique<ReadResult>();
    result->Read(text);
    state.ResumeTiming();
    result.reset();
  }
}

void BM_PugixmlParseCatalogue(benchmark::State& state) {
  const std::string text = Catalogue(static_cast<unsigned>(state.range(0)));
  for (auto _ : state) {
    auto document = std::make_unique<pugi::xml_document>();
    benchmark::DoNotOptimize(document->load_buffer(text.data(), text.size()));
    state.PauseTiming();
    document.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}

// Hostile shapes: every start tag left open, nesting as deep as the text allows,
// open elements inside a package, and comments that never end.
void BM_ReadUnclosedPackages(benchmark::State& state) {
  ReadWithReader(state, Repeat("<SOFTPKG NAME=\"A\" VERSION=\"1\">", state.range(0)));
}
void BM_ReadDeepNesting(benchmark::State& state) {
  const int64_t depth = state.range(0);
  ReadWithReader(state, "<SOFTPKG NAME=\"A\" VERSION=\"1\"><IMPLEMENTATION>" + Repeat("<DEPENDENCY><X>", depth) +
                            "<SOFTPKG NAME=\"B\" VERSION=\"1\"/>" + Repeat("</X></DEPENDENCY>", depth));
}
void BM_ReadOpenTagsInPackage(benchmark::State& state) {
  ReadWithReader(state, "<SOFTPKG NAME=\"A\" VERSION=\"1\"><IMPLEMENTATION>" +
                            Repeat("<DEPENDENCY TYPE=\"EXACT\"><SOFTPKG NAME=\"B\"><TITLE>", state.range(0)));
}
void BM_ReadUnendedComments(benchmark::State& state) {
  ReadWithReader(state, Repeat("<A><!-- <SOFTPKG>", state.range(0)));
}

}  // namespace

BENCHMARK(BM_ReadCatalogue)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DiscardCatalogue)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PugixmlParseCatalogue)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadUnclosedPackages)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadDeepNesting)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadOpenTagsInPackage)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadUnendedComments)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
