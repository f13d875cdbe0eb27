#include "sim/ScenarioRunner.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "MarlTunnel/VplsSmWrapper.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "Statedb/SharedTableManager.h"
#include "host/InputWriter.h"
#include "host/PrivateDir.h"

namespace Sim {
namespace {

constexpr char kToggleFile[] = "MarlTunnel.json";

}  // namespace

ScenarioRunner::ScenarioRunner(Scenario scenario, Options options)
    : scenario_(std::move(scenario)),
      outputLoader_(std::move(options.outputLoader)),
      privateDir_(Host::makePrivateDir("vpls-decap-sim")) {
  try {
    toggleDir_ = privateDir_ / "toggles";
    std::filesystem::create_directory(toggleDir_);
    writeToggles();
    // A scenario is a switch of its own: its shared tables start as wiped shared memory, so
    // that the HW FEC id response table is exactly what cleanSlate asks for.
    Statedb::SharedTableManager::resetAllForTest();
    Host::AgentSettings settings;
    settings.meshGroups = scenario_.meshGroups;
    settings.chipRows = scenario_.chipRows;
    // One entry in the HW FEC id response table is enough for the wrapper to decide on a start
    // without clean slate.
    settings.hwFecIdResponses = scenario_.cleanSlate ? 0 : 1;
    settings.socketDir = options.socketDir ? *options.socketDir : privateDir_ / "sockets";
    settings.toggleDir = toggleDir_;
    settings.logSink = [this](Cog::LogMessage const& message, std::vector<std::string> const& args,
                              std::string const& formatted) {
      logs_.push_back(LogRecord{std::string(message.identifier), args, formatted});
    };
    harness_ = std::make_unique<Host::AgentHarness>(std::move(settings));
  } catch (...) {
    std::error_code ec;
    std::filesystem::remove_all(privateDir_, ec);
    throw;
  }
}

ScenarioRunner::~ScenarioRunner() {
  // The agent goes first: stopping it closes the command socket and removes its file.
  harness_.reset();
  std::error_code ec;
  std::filesystem::remove_all(privateDir_, ec);
}

void ScenarioRunner::writeToggles() const {
  if (!scenario_.toggles) {
    return;
  }
  nlohmann::json file = nlohmann::json::object();
  for (auto const& [name, state] : *scenario_.toggles) {
    file[name] = state;
  }
  auto const path = toggleDir_ / kToggleFile;
  std::ofstream out(path);
  out << file.dump(2) << '\n';
  if (!out.flush()) {
    throw std::runtime_error("cannot write the toggle file " + path.string());
  }
}

bool ScenarioRunner::run(StepObserver const& observer) {
  auto const& events = scenario_.events;
  auto const step = [&](int index, Op const* op) {
    StepReport report;
    report.event = index;
    report.op = op;
    try {
      if (op == nullptr) {
        start();
      } else {
        auto const next = static_cast<std::size_t>(index) + 1;
        report.show = apply(*op, next >= events.size() || !events[next].sameBatch);
      }
    } catch (std::exception const& e) {
      report.error = e.what();
    } catch (...) {
      report.error = "an exception that is not a std::exception";
    }
    observer(report);
    return !report.error;
  };
  if (!step(-1, nullptr)) {
    return false;
  }
  for (std::size_t i = 0; i < scenario_.events.size(); ++i) {
    if (!step(static_cast<int>(i), &scenario_.events[i])) {
      return false;
    }
  }
  return true;
}

void ScenarioRunner::start() {
  bool const hasOutputs = !scenario_.outputs.empty();
  if (hasOutputs && !outputLoader_) {
    throw std::runtime_error("this runner cannot load output state");
  }
  for (auto const& op : scenario_.before) {
    write(op);
  }
  if (hasOutputs) {
    outputLoader_(*harness_, scenario_.outputs);
  }
  harness_->start();
  harness_->batchDone();
}

std::optional<std::string> ScenarioRunner::apply(Op const& op, bool batchEnds) {
  switch (op.kind) {
    case OpKind::change:
      write(op);
      if (batchEnds) {
        harness_->batchDone();
      }
      return std::nullopt;
    case OpKind::restart:
      harness_->restart();
      harness_->batchDone();
      return std::nullopt;
    case OpKind::show:
      return show(op.showArgs);
  }
  return std::nullopt;
}

std::string ScenarioRunner::show(std::string const& args) {
  using Hardware::MarlTunnel::VplsSmWrapper;
  Loom::Ptr<Orb::AgentSocketHandlerSm> socket;
  if (harness_->running()) {
    socket = harness_->wrapper().agentSocketSm();
  }
  if (!socket) {
    throw std::runtime_error("the agent has no command socket");
  }
  return socket->answerText(VplsSmWrapper::kShowCommand, args);
}

void ScenarioRunner::write(Op const& op) {
  Host::applyInput(*harness_, op.change);
}

}  // namespace Sim
