// Loading a catalogue directory of 1,000 CDF files into a repository, and writing
// one document of 10,000 packages.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "catalogue/cdf_writer.h"
#include "catalogue/repository.h"
#include "tests/support/scratch_root.h"

namespace {

using namespace kx::catalogue;

constexpr unsigned kFiles = 1000;
constexpr const char* kPayloadFiles[] = {"lib/libcomp.so.2", "bin/compd", "share/comp/defaults.ini",
                                         "share/comp/web.tar"};

std::string Guid(unsigned number) {
  char text[40];
  std::snprintf(text, sizeof text, "{%08X-C085-430B-B76D-%012X}", number * 2654435761u, number);
  return text;
}

// A product package: target lists, OS, four files, a link, three dependencies,
// an INI merge; every fifth one joins one of the stacks as an add-on.
std::string ProductPackage(unsigned i) {
  const std::string n = std::to_string(i);
  std::string out = "<SOFTPKG NAME=\"" + Guid(i) + "\" VERSION=\"2." + n + ".1\" TYPE=\"" +
                    (i % 7 == 0 ? "HIDDEN" : "VISIBLE") + "\" COMPATIBILITY=\"2.0\" OLDESTCOMPATIBLEVERSION=\"1.5\">\n";
  out += "\t<TITLE>Component " + n + "</TITLE>\n\t<ABSTRACT>Drivers and runtime support for component " + n +
         ".</ABSTRACT>\n";
  if (i % 5 == 0) {
    out += "\t<ISADDONOFSTACK KEY=\"" + Guid(1000000 + i % 50) + "\" GROUP=\"tools\" SELECT=\"YES\"/>\n";
  }
  out +=
      "\t<IMPLEMENTATION>\n\t\t<PROCESSOR VALUE=\"5A10\"/>\n\t\t<PROCESSOR VALUE=\"5B20\"/>\n"
      "\t\t<DEVICECLASS VALUE=\"Controller\"/>\n\t\t<OS VALUE=\"Linux\"><OSVERSION VALUE=\"5.10\"/></OS>\n";
  for (const char* file : kPayloadFiles) {
    out += "\t\t<CODEBASE FILENAME=\"comp" + n + "/" + file + "\" TARGET=\"/usr/local/kx/" + file +
           "\" PERMISSIONS=\"0755\" OWNER=\"opuser\" GROUP=\"kx\"/>\n";
  }
  out += "\t\t<SYMLINK SOURCE=\"/usr/local/kx/lib/libcomp.so.2\" LINK=\"/usr/local/kx/lib/libcomp.so\"/>\n";
  for (const char* type : {" TYPE=\"EXACT\"", " TYPE=\"STRICT\"", ""}) {
    out += "\t\t<DEPENDENCY" + std::string(type) + ">\n\t\t\t<SOFTPKG NAME=\"" + Guid(i / 2 + 7 + type[0]) +
           "\" VERSION=\"1.4\">\n\t\t\t<TITLE>Base library</TITLE>\n\t\t\t</SOFTPKG>\n\t\t</DEPENDENCY>\n";
  }
  out += "\t\t<MERGEINI TARGET=\"/kx-rt.ini\"><![CDATA[[Component" + n + "]\nEnabled=True\n]]>\n\t\t</MERGEINI>\n";
  return out + "\t</IMPLEMENTATION>\n</SOFTPKG>\n";
}

// One to three packages per file; every twentieth file also defines a stack.
std::string CatalogueFile(unsigned file) {
  std::string out = "<?xml version=\"1.0\"?>\n<?CDF VERSION=\"5.0\"?>\n<DEFINITION>\n";
  if (file % 20 == 0) {
    out +=
        "<STACK NAME=\"" + Guid(1000000 + file / 20) + "\" VERSION=\"1.0\" GROUP=\"base\">\n\t<TITLE>Stack</TITLE>\n";
    for (unsigned m = 0; m < 8; ++m) out += "\t<STACKITEM NAME=\"" + Guid(m) + "\" VERSION=\"1.0\"/>\n";
    out += "\t<ADDONGROUP NAME=\"tools\"><ADDON NAME=\"" + Guid(9) + "\" VERSION=\"1\"/></ADDONGROUP>\n</STACK>\n";
  }
  for (unsigned p = 0; p <= file % 3; ++p) out += ProductPackage(file * 3 + p);
  return out + "</DEFINITION>\n";
}

void BM_LoadCatalogueDirectory(benchmark::State& state) {
  kx::test::ScratchRoot root;
  for (unsigned file = 0; file < kFiles; ++file) {
    char name[32];
    std::snprintf(name, sizeof name, "/catalogue/%04u.cdf", file);
    root.WriteFile(name, CatalogueFile(file));
  }
  size_t packages = 0;
  for (auto _ : state) {
    Repository repository(root / "/catalogue");
    if (repository.Load() != 0) state.SkipWithError("load failed");
    packages = repository.Packages().size();
  }
  state.counters["packages"] = static_cast<double>(packages);
  state.counters["per_file"] =
      benchmark::Counter(kFiles, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

std::unique_ptr<Package> MakePackage(unsigned i, const std::string& sourcePath) {
  auto p = std::make_unique<Package>();
  p->name = Guid(i);
  p->version = ParseVersion("2." + std::to_string(i) + ".1");
  p->compatibilityVersion = ParseVersion("2.0");
  p->oldestCompatibleVersion = ParseVersion("1.5");
  p->title = "Component " + std::to_string(i);
  p->abstract = "Drivers and runtime support for component " + std::to_string(i) + ".";
  p->sourcePath = sourcePath;
  p->processors = {"5A10", "5B20"};
  p->deviceClasses = {"Controller"};
  p->operatingSystems.push_back({"Linux", ParseVersion("5.10"), ""});
  for (const char* file : kPayloadFiles) {
    p->codebases.push_back(
        {file, std::string("/usr/local/kx/") + file, "0755", "opuser", "kx", Version{}, CodebaseType::kFile});
  }
  p->symlinks.push_back({"/usr/local/kx/lib/libcomp.so.2", "/usr/local/kx/lib/libcomp.so", "", "", ""});
  p->dependencies.push_back(std::make_unique<ExactVersionDependency>(Guid(i + 1), ParseVersion("1.4"), "Base"));
  p->dependencies.push_back(std::make_unique<StrictDependency>(Guid(i + 2), ParseVersion("1.4"), "Base"));
  p->dependencies.push_back(std::make_unique<LooseDependency>(Guid(i + 3), ParseVersion("1.4"), ""));
  p->mergeIni.push_back({"/kx-rt.ini", "", "[Component]\nEnabled=True\n"});
  return p;
}

void BM_WriteDocument(benchmark::State& state) {
  kx::test::ScratchRoot root;
  for (const char* file : kPayloadFiles) root.WriteFile(std::string("/payload/") + file, "");
  std::vector<std::unique_ptr<Package>> packages;
  std::vector<const Package*> pointers;
  for (unsigned i = 0; i < static_cast<unsigned>(state.range(0)); ++i) {
    packages.push_back(MakePackage(i, root / "/payload"));
    pointers.push_back(packages.back().get());
  }
  const std::string path = root / "/out/catalogue.cdf";
  for (auto _ : state) {
    if (WriteCdfDocument(path, pointers) != 0) state.SkipWithError("write failed");
  }
  state.counters["per_package"] = benchmark::Counter(
      static_cast<double>(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace

BENCHMARK(BM_LoadCatalogueDirectory)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteDocument)->Arg(10000)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
