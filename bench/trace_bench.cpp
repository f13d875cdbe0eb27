// What one library trace costs. The benchmarks trace or format the same message: a function
// signature, " pwIntfId: ", an interface id, " vlanId: ", a VLAN number.
//   BM_FlashlogRecord   the Flashlog record alone (format registered beforehand)
//   BM_FlashlogRecordCallerText  the same with the signature handed in as a runtime string,
//                       copied into the record up to its bound
//   BM_FlashlogRecordStaticText  the same with the signature handed in as a static text, as a
//                       helper tracing for its caller gets it: the record holds its id
//   BM_TraceDisabled    the whole TRACE macro with the facility's Duallog level off: what
//                       every trace in the agent pays
//   BM_Snprintf         formatting the message with snprintf, interface name included
//   BM_SnprintfNamed    the same with the interface name formatted beforehand
// The Flashlog is a real file in $TMPDIR (default /tmp).

#include <benchmark/benchmark.h>

#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "Netcore/IntfId.h"
#include "Trace/Trace.h"

namespace {

constexpr char kSig[] =
    "void Hardware::MarlTunnel::MarlVplsPwIntfDecapSm::deleteVlanTagInfo(Netcore::IntfId, "
    "Bridging::VlanId)";

Trace::Facility& benchFacility() {
  static Trace::Facility& f = Trace::facility("TraceBench");
  return f;
}

void BM_FlashlogRecord(benchmark::State& state) {
  Netcore::IntfId pwIntfId = Netcore::IntfId::pseudowire(5);
  std::uint16_t vlanId = 100;
  Trace::FormatId const id = Trace::detail::callSiteFormat(
      benchFacility(), 8, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  for (auto _ : state) {
    benchmark::DoNotOptimize(pwIntfId);
    benchmark::DoNotOptimize(vlanId);
    Trace::detail::record(id, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FlashlogRecord);

void BM_FlashlogRecordCallerText(benchmark::State& state) {
  std::string_view const caller = kSig;
  Netcore::IntfId pwIntfId = Netcore::IntfId::pseudowire(5);
  std::uint16_t vlanId = 100;
  Trace::FormatId const id = Trace::detail::callSiteFormat(
      benchFacility(), 8, caller, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  for (auto _ : state) {
    benchmark::DoNotOptimize(pwIntfId);
    benchmark::DoNotOptimize(vlanId);
    Trace::detail::record(id, caller, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FlashlogRecordCallerText);

void BM_FlashlogRecordStaticText(benchmark::State& state) {
  Trace::StaticText const caller = Trace::staticText<kSig>();
  Netcore::IntfId pwIntfId = Netcore::IntfId::pseudowire(5);
  std::uint16_t vlanId = 100;
  Trace::FormatId const id = Trace::detail::callSiteFormat(
      benchFacility(), 8, caller, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
  for (auto _ : state) {
    benchmark::DoNotOptimize(pwIntfId);
    benchmark::DoNotOptimize(vlanId);
    Trace::detail::record(id, caller, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_FlashlogRecordStaticText);

void BM_TraceDisabled(benchmark::State& state) {
  Trace::Duallog::levelDel("TraceBench");
  Netcore::IntfId pwIntfId = Netcore::IntfId::pseudowire(5);
  std::uint16_t vlanId = 100;
  for (auto _ : state) {
    benchmark::DoNotOptimize(pwIntfId);
    benchmark::DoNotOptimize(vlanId);
    TRACE(benchFacility(), 8, kSig, " pwIntfId: ", pwIntfId, " vlanId: ", vlanId);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_TraceDisabled);

void BM_Snprintf(benchmark::State& state) {
  Netcore::IntfId pwIntfId = Netcore::IntfId::pseudowire(5);
  std::uint16_t vlanId = 100;
  char buf[256];
  for (auto _ : state) {
    benchmark::DoNotOptimize(pwIntfId);
    benchmark::DoNotOptimize(vlanId);
    std::snprintf(buf, sizeof buf, "%s pwIntfId: %s vlanId: %u", kSig, pwIntfId.toString().c_str(),
                  static_cast<unsigned>(vlanId));
    benchmark::DoNotOptimize(buf);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_Snprintf);

void BM_SnprintfNamed(benchmark::State& state) {
  std::string const name = Netcore::IntfId::pseudowire(5).toString();
  std::uint16_t vlanId = 100;
  char buf[256];
  for (auto _ : state) {
    benchmark::DoNotOptimize(vlanId);
    std::snprintf(buf, sizeof buf, "%s pwIntfId: %s vlanId: %u", kSig, name.c_str(),
                  static_cast<unsigned>(vlanId));
    benchmark::DoNotOptimize(buf);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_SnprintfNamed);

}  // namespace

int main(int argc, char** argv) {
  char const* const tmp = std::getenv("TMPDIR");
  std::filesystem::path const file = std::filesystem::path(tmp != nullptr ? tmp : "/tmp") /
                                     ("trace_bench." + std::to_string(::getpid()) + ".flashlog");
  Trace::Flashlog::open(file);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::filesystem::remove(file);
  return 0;
}
