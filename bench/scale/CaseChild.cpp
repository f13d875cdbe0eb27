#include "bench/scale/CaseChild.h"

#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "Hardware/Orientation.h"
#include "MarlTunnel/VplsSmWrapper.h"
#include "Orb/UniqueFd.h"
#include "Statedb/SharedTableManager.h"
#include "bench/scale/BenchEnvironment.h"
#include "bench/scale/OutputFloor.h"
#include "bench/scale/PseudowireMix.h"
#include "bench/scale/ScaleCase.h"

namespace Bench {
namespace {

constexpr char kShowArgs[] = "None None None";
// Every pseudowire and VLAN of the answer has exactly one of these.
constexpr std::string_view kAnswerEntryMark = "'lifIndex'";

// The CPU time of this thread, user and system: the agent's own work, whatever else the
// machine runs at the same time.
double threadSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Writes a buffer larger than the processor's caches, so that the agent's state is not in them
// when a measurement starts: at small sizes it would otherwise still be there from the step
// before, and small sizes would be measured warm and large ones cold.
void evictCaches() {
  static std::vector<std::uint64_t> buffer(std::size_t{64} << 17);  // 64 MiB
  for (auto& word : buffer) {
    word += 1;
  }
  asm volatile("" : : "r"(buffer.data()) : "memory");
}

template <class Work>
Timing timed(Work&& work) {
  evictCaches();
  auto const wallStart = std::chrono::steady_clock::now();
  auto const start = threadSeconds();
  work();
  return Timing{
      threadSeconds() - start,
      std::chrono::duration<double>(std::chrono::steady_clock::now() - wallStart).count()};
}

void expect(bool ok, PseudowireMix const& mix, std::string const& what) {
  if (!ok) {
    throw std::runtime_error(std::to_string(mix.pseudowires()) + " x " +
                             std::to_string(mix.vlans()) + ": " + what);
  }
}

// A fresh agent over wiped shared tables, without the chip model (see Host::AgentSettings).
std::unique_ptr<Host::AgentHarness> freshAgent(BenchEnvironment& environment) {
  Statedb::SharedTableManager::resetAllForTest();
  return std::make_unique<Host::AgentHarness>(environment.agentSettings(false));
}

void checkProgrammed(Host::AgentHarness const& agent, PseudowireMix const& mix) {
  auto const perVlan = std::uint64_t{mix.activePseudowires()} * mix.vlans();
  expect(agent.hwVplsPwDecapStatus()->decapStatus().size() == perVlan, mix,
         "not every pseudowire and VLAN is programmed");
  for (auto const& [key, answer] : agent.lifProfileOrientationStatus->lpoResponse()) {
    expect(answer.orientation() != Hardware::MarlTunnel::Orientation::orientationAllocFailed, mix,
           "orientation allocation failed for " + key.toStrep());
  }
}

void checkEmpty(Host::AgentHarness const& agent, PseudowireMix const& mix) {
  auto const left = [&](char const* what, std::size_t size) {
    expect(size == 0, mix, std::to_string(size) + " " + what + " left after teardown");
  };
  left("decap entries", agent.mplsDecapConfig->config().size());
  left("decap statuses", agent.hwVplsPwDecapStatus()->decapStatus().size());
  left("ESEM entries", agent.esemConfigVpls->esemConfig().size());
  left("label mappings", agent.decapLabelToPwIntfColl->labelToPwIntf().size());
  left("orientation requests", agent.lifProfileOrientationConfig->lpoRequest().size());
  left("additional data", agent.vplsPwIntfAdditionalDataMap->additionalDataMap().size());
  left("additional ids", agent.hwVplsPwStatus->encapAdditionalId().size());
  // Nothing clears a record's standby flag, so the record of a standby pseudowire stays, empty.
  std::size_t records = 0;
  for (auto const& [pwIntfId, record] : agent.decapSm().localPwInfo()) {
    records += record->standby() && record->vplsInstanceName().empty() ? 0 : 1;
  }
  left("pseudowire records", records);
}

std::uint64_t decapShadowEntries(Host::AgentHarness const& agent) {
  using Table = Hardware::Marl::SemShadow::Table;
  return agent.semShadow->entries(Table::vplsDecap).size() +
         agent.semShadow->entries(Table::mplsDecap).size();
}

std::uint64_t answerEntries(std::string const& answer) {
  std::uint64_t count = 0;
  for (auto at = answer.find(kAnswerEntryMark); at != std::string::npos;
       at = answer.find(kAnswerEntryMark, at + kAnswerEntryMark.size())) {
    ++count;
  }
  return count;
}

// The bytes of an answer written into an in-memory file and read back.
Timing answerFloor(std::string const& answer) {
  std::string copy(answer.size(), '\0');
  auto const timing = timed([&] {
    Orb::UniqueFd const fd(::memfd_create("answer", MFD_CLOEXEC));
    std::size_t done = 0;
    while (done < answer.size()) {
      auto const n = ::write(fd.get(), answer.data() + done, answer.size() - done);
      if (n <= 0) {
        throw std::runtime_error("cannot write the answer floor's file");
      }
      done += static_cast<std::size_t>(n);
    }
    for (done = 0; done < copy.size();) {
      auto const n =
          ::pread(fd.get(), copy.data() + done, copy.size() - done, static_cast<off_t>(done));
      if (n <= 0) {
        throw std::runtime_error("cannot read the answer floor's file");
      }
      done += static_cast<std::size_t>(n);
    }
  });
  if (copy != answer) {
    throw std::runtime_error("the answer floor read back other bytes");
  }
  return timing;
}

// One case's line; a hash floor of 0 s is none (show), as are 0 answer bytes (every other case).
void print(char const* name, Timing const& timing, Timing const& floor, Timing const& hashFloor,
           std::uint64_t bytes = 0) {
  std::printf("%s %.9f %.9f %.9f %.9f %llu\n", name, timing.seconds, timing.wallSeconds,
              floor.seconds, hashFloor.seconds, static_cast<unsigned long long>(bytes));
}

void showCase(Host::AgentHarness& agent, PseudowireMix const& mix) {
  // Over the chip's capacity the entries that find no in-LIF row wait; the answer lists the
  // installed ones.
  agent.chipIs(true);
  agent.batchDone();
  auto const socket = agent.wrapper().agentSocketSm();
  std::string answer;
  auto const timing = timed([&] {
    answer = socket->answerText(Hardware::MarlTunnel::VplsSmWrapper::kShowCommand, kShowArgs);
  });
  expect(answerEntries(answer) == decapShadowEntries(agent), mix,
         "the show answer does not list every entry: " + answer.substr(0, 200));
  print("show", timing, answerFloor(answer), Timing{}, answer.size());
  agent.chipIs(false);
}

void programPart(BenchEnvironment& environment, PseudowireMix const& mix) {
  auto const agent = freshAgent(environment);
  agent->start();
  auto const program = timed([&] { mix.addAll(*agent); });
  checkProgrammed(*agent, mix);

  OutputFloor floor(*agent);
  auto const write = timed([&] { floor.write(); });
  auto const erase = timed([&] { floor.erase(); });
  auto const hashWrite = timed([&] { floor.writeHashed(); });
  auto const hashErase = timed([&] { floor.eraseHashed(); });
  print("program", program, write, hashWrite);
  print("startup-floor", write, write, hashWrite);

  showCase(*agent, mix);

  auto const teardown = timed([&] { mix.removeAll(*agent); });
  checkEmpty(*agent, mix);
  print("teardown", teardown, erase, hashErase);
}

void showPart(BenchEnvironment& environment, PseudowireMix const& mix) {
  auto const agent = freshAgent(environment);
  agent->start();
  mix.addAll(*agent);
  checkProgrammed(*agent, mix);
  showCase(*agent, mix);
}

void startupPart(BenchEnvironment& environment, PseudowireMix const& mix) {
  auto const agent = freshAgent(environment);
  mix.addAll(*agent);
  auto const startup = timed([&] { agent->start(); });
  checkProgrammed(*agent, mix);
  print("startup", startup, Timing{}, Timing{});
}

}  // namespace

int runCaseChild(std::string const& part, std::uint32_t pseudowires, std::uint32_t vlans) {
  PseudowireMix const mix(pseudowires, vlans);
  BenchEnvironment environment;
  if (part == "program") {
    programPart(environment, mix);
  } else if (part == "startup") {
    startupPart(environment, mix);
  } else if (part == "show") {
    showPart(environment, mix);
  } else {
    throw std::invalid_argument("no case part '" + part + "'");
  }
  if (environment.logMessages() != 0) {
    throw std::runtime_error("the agent wrote " + std::to_string(environment.logMessages()) +
                             " log messages: the mix does not program cleanly");
  }
  return 0;
}

}  // namespace Bench
