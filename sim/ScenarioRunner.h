#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Cog/Log.h"
#include "host/AgentHarness.h"
#include "sim/Scenario.h"

namespace Sim {

// One structured log message as the runner recorded it: identifier, argument texts, and the
// formatted text.
struct LogRecord {
  std::string id;
  std::vector<std::string> args;
  std::string text;
};

// What one step of a run did: start-up (event -1) or one event. `show` carries what a show op
// answered, `error` the text of the exception a step raised.
struct StepReport {
  int event = -1;
  Op const* op = nullptr;  // null for start-up
  std::optional<std::string> show;
  std::optional<std::string> error;
};

// Runs one scenario against the library, the way the agent hosts it: an AgentHarness over a
// fresh state store, the toggles written as the toggle file "MarlTunnel.json" in a private
// toggle directory that the toggle reader is pointed at, the `before` ops written into the
// inputs, then start-up (the wrapper and its initializeSms()) and the events, each through the
// real input entities so that the state machine sees real notifications. Structured log
// messages are recorded through a Cog sink from construction to destruction.
//
// One runner models one switch with one agent process: construction wipes the process's shared
// tables and forgets the split-horizon toggle the process may have cached, and the command
// socket is opened in a private directory unless the options name one. Exceptions of the
// library are reported in the step that raised them and end the run; a failed assertion aborts
// the process, as it does in the agent.
//
// Its agent's settings (the toggle and socket directories, the log sink) are put into effect by
// the harness while the runner lives; so one runner at a time per process. Runs on the calling
// thread.
class ScenarioRunner {
 public:
  struct Options {
    // Where the command socket is served; none: a private directory removed afterwards.
    std::optional<std::filesystem::path> socketDir;
    // Loads a scenario's `outputs` (the output state an earlier agent left) into the harness's
    // entities before the agent starts. Needed only by scenarios with outputs.
    std::function<void(Host::AgentHarness&, std::vector<Host::StateRow> const&)> outputLoader;
  };
  using StepObserver = std::function<void(StepReport const&)>;

  explicit ScenarioRunner(Scenario scenario, Options options = {});
  ~ScenarioRunner();
  ScenarioRunner(ScenarioRunner const&) = delete;
  ScenarioRunner& operator=(ScenarioRunner const&) = delete;

  // Start-up, then every event in order, calling `observer` after each step. Stops after the
  // first step that raised; returns whether every step ran.
  bool run(StepObserver const& observer);

  // The steps one at a time. start() writes the `before` ops, loads the outputs through the
  // options' loader (std::runtime_error when there are outputs and no loader) and starts the
  // agent; apply() runs one op and returns the answer of a show op, and ends the batch of
  // changes (the chip programs what they requested) unless told that the next op continues it.
  // Both end a batch and let the library's exceptions pass.
  void start();
  std::optional<std::string> apply(Op const& op, bool batchEnds = true);

  // Runs a "vplsDecap" request with the argument text through the registered command
  // callback, exactly as the command socket runs one, and returns what it wrote.
  std::string show(std::string const& args);

  Scenario const& scenario() const noexcept { return scenario_; }
  Host::AgentHarness& harness() const noexcept { return *harness_; }
  std::vector<LogRecord> const& logs() const noexcept { return logs_; }
  // The toggle directory the agent reads (its "MarlTunnel.json" exists when toggles were set).
  std::filesystem::path const& toggleDir() const noexcept { return toggleDir_; }

 private:
  void writeToggles() const;
  void write(Op const& op);

  Scenario const scenario_;
  std::function<void(Host::AgentHarness&, std::vector<Host::StateRow> const&)> outputLoader_;
  std::filesystem::path privateDir_;
  std::filesystem::path toggleDir_;
  std::vector<LogRecord> logs_;
  std::unique_ptr<Host::AgentHarness> harness_;
};

}  // namespace Sim
