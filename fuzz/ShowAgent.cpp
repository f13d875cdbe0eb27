#include "fuzz/ShowAgent.h"

#include <array>
#include <cctype>
#include <cstdlib>
#include <string>
#include <system_error>

#include "FuzzCheck.h"
#include "MarlTunnel/ShowVplsDecapCliCallback.h"
#include "MarlTunnel/VplsSmWrapper.h"

namespace Fuzz {
namespace {

// A private directory for the agent's socket.
std::filesystem::path socketDirectory() {
  std::string path = (std::filesystem::temp_directory_path() / "marl-fuzz-XXXXXX").string();
  if (::mkdtemp(path.data()) == nullptr) {
    fail("cannot create a private socket directory");
  }
  return path;
}

Host::AgentSettings settingsFor(std::filesystem::path const& socketDir) {
  Host::AgentSettings settings;
  settings.socketDir = socketDir;
  return settings;
}

// The first three words of `args` as the show command splits them: separated by white space
// of the C locale; a missing word is empty.
std::array<std::string, 3> filterWords(std::string_view args) {
  std::array<std::string, 3> words;
  std::size_t at = 0;
  for (auto& word : words) {
    while (at < args.size() && std::isspace(static_cast<unsigned char>(args[at]))) {
      ++at;
    }
    while (at < args.size() && !std::isspace(static_cast<unsigned char>(args[at]))) {
      word += args[at++];
    }
  }
  return words;
}

bool passes(std::string const& filter, std::string_view value) {
  return filter == "None" || filter == value;
}

}  // namespace

ShowAgent& ShowAgent::instance() {
  static ShowAgent agent;
  return agent;
}

ShowAgent::ShowAgent() : dir_(socketDirectory()), harness_(settingsFor(dir_)) {
  harness_.start();
  program();
  // The chip programs the batch, as it does at the end of each batch of changes.
  harness_.batchDone();
  auto const callback =
      socket().agentSocketCallback(Hardware::MarlTunnel::VplsSmWrapper::kShowCommand);
  auto* show = dynamic_cast<Hardware::MarlTunnel::ShowVplsDecapCliCallback*>(callback.get());
  require(show != nullptr, "the wrapper registered no show command");
  all_ = show->decapEntries("None", "None", "None");
  // Every programmed pseudowire shows, so that the filters have something to choose from.
  require(all_.size() == 5, "the show command does not show the five pseudowires");
}

ShowAgent::~ShowAgent() {
  harness_.stop();
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

void ShowAgent::program() {
  struct Pw {
    std::uint32_t number;
    char const* instance;
    char const* group;
    bool standby;
    bool vlanAware;
    std::uint32_t vlan;
    std::uint32_t tag;
  };
  static constexpr std::array<Pw, 6> kPws{{
      {1, "vpls1", "g1", false, false, 10, 110},
      {1, "vpls1", "g1", false, false, 20, 120},
      {2, "vpls1", "g2", false, true, 10, 210},
      {3, "vpls2", "", true, false, 30, 0},
      {4, "None", "g1", false, false, 20, 0},
      {12, "vpls2", "g1", false, false, 30, 330},
  }};
  for (auto const& p : kPws) {
    auto const id = Netcore::IntfId::pseudowire(p.number);
    harness_.hwVplsPwConfig->vplsPwIntfInfoIs(id, Fab::VplsPwIntfInfo(id)
                                                      .vplsInstanceNameIs(p.instance)
                                                      .groupNameIs(p.group)
                                                      .splitHorizonIs(true)
                                                      .standbyIs(p.standby)
                                                      .vlanAwareIs(p.vlanAware));
    auto& decap = *harness_.hwVplsPwDecapConfig;
    decap.decapLabelIs(id, Netcore::MplsLabel(1000 + p.number));
    decap.vlanTagInfoIs(Fab::VplsPwIntfVlanKey(id, Bridging::VlanId(p.vlan)),
                        Bridging::VlanIdOrNone(p.tag));
    decap.encapHwFecIdIs(id, Fab::NexthopIndex(0x100 + p.number, 0x5000 + p.number));
  }
}

Orb::AgentSocketHandlerSm& ShowAgent::socket() const {
  return *harness_.wrapper().agentSocketSm();
}

std::string ShowAgent::expectedShow(std::string_view args) const {
  auto const [instance, group, name] = filterWords(args);
  Hardware::MarlTunnel::VplsDecapEntryMap shown;
  for (auto const& [pwName, perVlan] : all_) {
    auto const shortName = harness_.intfIdDisplayContext->shortName(Netcore::IntfId(pwName.view()));
    for (auto const& [vlan, entry] : perVlan) {
      if (passes(instance, entry.instanceContext().view()) &&
          passes(group, entry.groupName().view()) && passes(name, shortName)) {
        shown[pwName][vlan] = entry;
      }
    }
  }
  return Hardware::MarlTunnel::printVplsDecapEntries(shown).str();
}

}  // namespace Fuzz
