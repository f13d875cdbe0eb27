// vpls-decap-sim: runs a scenario file against the VPLS decap library hosted on the platform,
// prints what the library programmed, and optionally serves the agent's command socket.
// Usage and exit codes: sim/CommandLine.cpp; scenario files: docs/scenarios.md.

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "MarlTunnel/VplsSmWrapper.h"
#include "VplsDecapVersion.h"
#include "host/OutputRows.h"
#include "host/TraceOptions.h"
#include "sim/CommandLine.h"
#include "sim/RunFlashlog.h"
#include "sim/Scenario.h"
#include "sim/ScenarioRunner.h"
#include "sim/StateJson.h"
#include "sim/TextReport.h"

namespace {

constexpr int kExitDone = 0;
constexpr int kExitRaised = 1;
constexpr int kExitUsage = 2;
constexpr char kProgram[] = "vpls-decap-sim";
constexpr char kStandardInput[] = "-";

// The scheduler that serve runs, for the signal handler; and whether a stop came before it ran.
std::atomic<Orb::TaskSchedulerRoot*> servedScheduler{nullptr};
volatile std::sig_atomic_t stopRequested = 0;

extern "C" void onStopSignal(int) {
  stopRequested = 1;
  if (auto* const scheduler = servedScheduler.load()) {
    scheduler->stopFromSignal();
  }
}

// The line an abort says (where the private flashlog stays), composed before the run so that the
// handler only writes it.
std::string abortMessage;

extern "C" void onAbort(int) {
  [[maybe_unused]] auto const n = ::write(STDERR_FILENO, abortMessage.data(), abortMessage.size());
}

// An abort (a failed assertion of the library) leaves the private flashlog behind: say where.
void sayWhereTheFlashlogStaysOnAbort(Sim::RunFlashlog const& flashlog) {
  abortMessage = flashlog.keptOnAbortMessage(kProgram);
  if (abortMessage.empty()) {
    return;
  }
  struct sigaction action {};
  action.sa_handler = onAbort;
  action.sa_flags = SA_RESETHAND;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGABRT, &action, nullptr);
}

void installStopHandlers() {
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
}

int usageError(std::string const& problem) {
  std::cerr << kProgram << ": " << problem << "\n" << Sim::usage();
  return kExitUsage;
}

// Prints each step as the options ask, and the final result.
class Printer {
 public:
  Printer(Sim::CommandLine const& line, Sim::ScenarioRunner const& runner)
      : line_(line), runner_(runner) {}

  void step(Sim::StepReport const& step) {
    if (step.show) {
      shows_.push_back(Sim::ShowRecord{step.event, step.op->showArgs, *step.show});
    }
    if (step.error) {
      std::cerr << kProgram << ": " << where(step) << " raised: " << *step.error << "\n";
    }
    if (!line_.each) {
      return;
    }
    if (line_.json) {
      std::cout << Sim::jsonText(Sim::stepJson(step, state())) << "\n" << std::flush;
      return;
    }
    std::cout << "== " << where(step) << "\n";
    if (step.op != nullptr && !step.op->comment.empty()) {
      std::cout << "   " << step.op->comment << "\n";
    }
    std::vector<Sim::ShowRecord> shown;
    if (step.show) {
      shown.push_back(shows_.back());
    }
    std::cout << "\n"
              << Sim::textReport(runner_.harness(), runner_.logs(), shown) << "\n"
              << std::flush;
  }

  void finish() {
    if (line_.each) {
      return;
    }
    if (line_.json) {
      std::cout << Sim::jsonText(state(), 2) << "\n";
    } else {
      std::cout << Sim::textReport(runner_.harness(), runner_.logs(), shows_);
    }
    std::cout << std::flush;
  }

 private:
  nlohmann::ordered_json state() const { return Sim::stateJson(runner_.harness(), runner_.logs()); }
  static std::string where(Sim::StepReport const& step) {
    if (step.op == nullptr) {
      return "start-up";
    }
    return "event " + std::to_string(step.event) + " (" + Sim::describe(*step.op) + ")";
  }

  Sim::CommandLine const& line_;
  Sim::ScenarioRunner const& runner_;
  std::vector<Sim::ShowRecord> shows_;
};

void serve(Sim::ScenarioRunner& runner) {
  auto& harness = runner.harness();
  std::cerr << kProgram << ": serving " << harness.wrapper().agentSocketSm()->socketPath()
            << " (SIGINT or SIGTERM to stop)" << std::endl;
  servedScheduler.store(harness.scheduler.get());
  if (stopRequested != 0) {
    harness.scheduler->stop();
  }
  harness.scheduler->run();
  servedScheduler.store(nullptr);
}

int runScenario(Sim::CommandLine const& line, Sim::Scenario scenario) {
  Sim::ScenarioRunner::Options options;
  if (line.socketDir) {
    options.socketDir = *line.socketDir;
  }
  // The outputs are rows of the state database, loaded as the agent loads what it finds; a row
  // that does not decode is left out, as the agent leaves it out.
  options.outputLoader = [](Host::AgentHarness& harness, std::vector<Host::StateRow> const& rows) {
    for (auto const& problem : Host::loadOutputRows(harness, rows)) {
      std::cerr << kProgram << ": output left out: " << problem << "\n";
    }
  };
  Sim::ScenarioRunner runner(std::move(scenario), options);
  Printer printer(line, runner);
  bool const ok = runner.run([&](Sim::StepReport const& step) { printer.step(step); });
  printer.finish();
  if (!ok) {
    return kExitRaised;
  }
  if (line.mode == Sim::CommandLine::Mode::serve) {
    serve(runner);
  }
  return kExitDone;
}

}  // namespace

int main(int argc, char** argv) {
  Sim::CommandLine line;
  try {
    line = Sim::parseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
  } catch (Host::UsageError const& e) {
    return usageError(e.what());
  }
  if (line.mode == Sim::CommandLine::Mode::help) {
    std::cout << Sim::usage();
    return kExitDone;
  }
  if (line.mode == Sim::CommandLine::Mode::version) {
    std::cout << kProgram << " " << VPLS_DECAP_VERSION << "\n";
    return kExitDone;
  }
  if (line.mode == Sim::CommandLine::Mode::serve) {
    installStopHandlers();
  }
  Sim::RunFlashlog const flashlog(line.flashlog);
  sayWhereTheFlashlogStaysOnAbort(flashlog);

  bool const fromStandardInput = line.scenario == kStandardInput;
  std::string const scenarioName = fromStandardInput ? "standard input" : line.scenario;
  Sim::Scenario scenario;
  try {
    scenario = fromStandardInput ? Sim::readScenario(std::cin, scenarioName)
                                 : Sim::loadScenario(line.scenario);
  } catch (Sim::ScenarioError const& e) {
    std::cerr << kProgram << ": " << e.what() << "\n";
    return kExitUsage;
  }
  if (scenario.truncatedAtLine) {
    std::cerr << kProgram << ": " << scenarioName
              << ": the last line is incomplete (a recording cut short); replaying up to line "
              << *scenario.truncatedAtLine - 1 << "\n";
  }
  try {
    Host::applyTraceOptions(line.flashlog, line.traceFile, line.traceLevel);
  } catch (std::exception const& e) {
    std::cerr << kProgram << ": " << e.what() << "\n";
    return kExitUsage;
  }

  try {
    return runScenario(line, std::move(scenario));
  } catch (std::exception const& e) {
    // The runner itself could not work (no private directory, the socket taken by another
    // agent): nothing the scenario asked for.
    std::cerr << kProgram << ": " << e.what() << "\n";
    return kExitUsage;
  }
}
