#include "sim/ScenarioRunner.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Bridging/VlanId.h"
#include "Bridging/VlanIdOrNone.h"
#include "Cog/Toggle.h"
#include "Fab/VplsPwIntfVlanKey.h"
#include "MarlTunnel/VplsSmWrapper.h"
#include "MarlTunnel/detail/SplitHorizonToggleForTest.h"
#include "Netcore/MplsLabel.h"
#include "Orb/AgentSocketHandlerSm.h"
#include "Orb/UniqueFd.h"
#include "Statedb/SharedTableManager.h"

namespace Sim {
namespace {

constexpr char kToggleFile[] = "MarlTunnel.json";

std::filesystem::path makePrivateDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vpls-decap-sim.XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(),
                            "cannot create a private directory " + pattern);
  }
  return pattern;
}

// A buffer for one answer, as the command socket makes it: a memory file as large as the answer
// limit and sealed at that size, so that a runaway answer fails its writes instead of growing.
Orb::UniqueFd answerBuffer(std::size_t maxAnswerBytes) {
  Orb::UniqueFd buffer(::memfd_create("vpls-decap-sim-answer", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!buffer || ::ftruncate(buffer.get(), static_cast<off_t>(maxAnswerBytes)) != 0 ||
      ::fcntl(buffer.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0) {
    throw std::system_error(errno, std::generic_category(), "cannot create an answer buffer");
  }
  return buffer;
}

void writeAll(int fd, std::string_view text) {
  while (!text.empty()) {
    auto const n = ::write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      return;
    }
    text.remove_prefix(static_cast<std::size_t>(n));
  }
}

std::string readAnswer(int fd, std::size_t maxAnswerBytes) {
  auto const size = ::lseek(fd, 0, SEEK_CUR);
  if (size < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot size the answer");
  }
  if (static_cast<std::size_t>(size) >= maxAnswerBytes) {
    return "error: answer too large\n";
  }
  std::string answer(static_cast<std::size_t>(size), '\0');
  std::size_t done = 0;
  while (done < answer.size()) {
    auto const n =
        ::pread(fd, answer.data() + done, answer.size() - done, static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      throw std::system_error(errno, std::generic_category(), "cannot read the answer");
    }
    done += static_cast<std::size_t>(n);
  }
  return answer;
}

}  // namespace

ScenarioRunner::ScenarioRunner(Scenario scenario, Options options)
    : scenario_(std::move(scenario)), privateDir_(makePrivateDir()) {
  try {
    toggleDir_ = privateDir_ / "toggles";
    std::filesystem::create_directory(toggleDir_);
    writeToggles();
    // A scenario is a switch of its own: its shared tables start as wiped shared memory, so
    // that the HW FEC id response table is exactly what cleanSlate asks for.
    Statedb::SharedTableManager::resetAllForTest();
    AgentOptions agentOptions;
    agentOptions.meshGroups = scenario_.meshGroups;
    // One entry in the HW FEC id response table is enough for the wrapper to decide on a start
    // without clean slate.
    agentOptions.hwFecIdResponses = scenario_.cleanSlate ? 0 : 1;
    harness_ = std::make_unique<AgentHarness>(agentOptions);
  } catch (...) {
    std::error_code ec;
    std::filesystem::remove_all(privateDir_, ec);
    throw;
  }

  if (char const* const previous = std::getenv(Cog::kToggleDirEnv)) {
    previousToggleEnv_ = previous;
  }
  ::setenv(Cog::kToggleDirEnv, toggleDir_.c_str(), 1);
  // A fresh agent process reads its toggles on first use.
  Hardware::MarlTunnel::detail::resetSplitHorizonToggleCacheForTest();

  auto const socketDir = options.socketDir ? *options.socketDir : privateDir_ / "sockets";
  Orb::AgentSocketHandlerSm::socketDirIs(socketDir.string());

  previousSink_ =
      Cog::logSinkIs([this](Cog::LogMessage const& message, std::vector<std::string> const& args,
                            std::string const& formatted) {
        logs_.push_back(LogRecord{std::string(message.identifier), args, formatted});
      });
}

ScenarioRunner::~ScenarioRunner() {
  // The agent goes first: stopping it closes the command socket and removes its file.
  harness_.reset();
  Cog::logSinkIs(std::move(previousSink_));
  Orb::AgentSocketHandlerSm::socketDirIs("");
  if (previousToggleEnv_) {
    ::setenv(Cog::kToggleDirEnv, previousToggleEnv_->c_str(), 1);
  } else {
    ::unsetenv(Cog::kToggleDirEnv);
  }
  Hardware::MarlTunnel::detail::resetSplitHorizonToggleCacheForTest();
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
  auto const step = [&](int index, Op const* op) {
    StepReport report;
    report.event = index;
    report.op = op;
    try {
      if (op == nullptr) {
        start();
      } else {
        report.show = apply(*op);
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
  for (auto const& op : scenario_.before) {
    write(op);
  }
  harness_->start();
}

std::optional<std::string> ScenarioRunner::apply(Op const& op) {
  switch (op.kind) {
    case OpKind::set:
    case OpKind::del:
      write(op);
      return std::nullopt;
    case OpKind::restart:
      harness_->restart();
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
  auto const callback = socket->agentSocketCallback(VplsSmWrapper::kShowCommand);
  if (!callback) {
    throw std::runtime_error(std::string("no '") + VplsSmWrapper::kShowCommand +
                             "' command registered");
  }
  // As the socket handler runs a request: the answer goes to an in-memory buffer, and an
  // exception of the callback is reported after what it wrote.
  auto const maxAnswerBytes = socket->limits().maxAnswerBytes;
  auto const buffer = answerBuffer(maxAnswerBytes);
  std::string const command = VplsSmWrapper::kShowCommand;
  try {
    callback->handleCommand(static_cast<std::uint32_t>(buffer.get()), Loom::String(args));
  } catch (std::exception const& e) {
    writeAll(buffer.get(), "error: command '" + command + "' failed: " + e.what() + "\n");
  } catch (...) {
    writeAll(buffer.get(), "error: command '" + command + "' failed\n");
  }
  return readAnswer(buffer.get(), maxAnswerBytes);
}

void ScenarioRunner::write(Op const& op) {
  auto& pwConfig = *harness_->hwVplsPwConfig;
  auto& decapConfig = *harness_->hwVplsPwDecapConfig;
  auto& vtepTypeStatus = *harness_->vtepTypeStatus;
  bool const set = op.kind == OpKind::set;
  switch (op.table) {
    case Table::vplsPwIntfInfo:
      if (set) {
        pwConfig.vplsPwIntfInfoIs(op.pw, op.pwIntfInfo);
      } else {
        pwConfig.vplsPwIntfInfoDel(op.pw);
      }
      return;
    case Table::decapLabel:
      if (set) {
        decapConfig.decapLabelIs(op.pw, Netcore::MplsLabel(op.number));
      } else {
        decapConfig.decapLabelDel(op.pw);
      }
      return;
    case Table::vlanTagInfo: {
      Fab::VplsPwIntfVlanKey const key(op.pw, Bridging::VlanId(op.vlan));
      if (set) {
        decapConfig.vlanTagInfoIs(key, Bridging::VlanIdOrNone(op.number));
      } else {
        decapConfig.vlanTagInfoDel(key);
      }
      return;
    }
    case Table::encapHwFecId:
      if (set) {
        decapConfig.encapHwFecIdIs(op.pw, op.hwFecIndex);
      } else {
        decapConfig.encapHwFecIdDel(op.pw);
      }
      return;
    case Table::startupSyncDone:
      decapConfig.startupSyncDoneIs(op.flag);
      return;
    case Table::restartDone:
      decapConfig.restartDoneIs(op.flag);
      return;
    case Table::vxlanPresent:
      vtepTypeStatus.vxlanPresentIs(op.flag);
      return;
    case Table::vxlanDciConfigured:
      vtepTypeStatus.vxlanDciConfiguredIs(op.flag);
      return;
  }
}

}  // namespace Sim
