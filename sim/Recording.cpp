#include "sim/Recording.h"

#include "host/Recording.h"

namespace Sim {

std::string recordingHeaderLine(Scenario const& scenario) {
  return Host::recordingHeaderLine(startState(scenario), scenario.comment);
}

std::string recordingOpLine(Op const& op) {
  nlohmann::ordered_json json;
  switch (op.kind) {
    case OpKind::change:
      json = Host::changeJson(op.change, op.sameBatch);
      break;
    case OpKind::show:
      json = {{"op", "show"}, {"args", op.showArgs}};
      break;
    case OpKind::restart:
      json = {{"op", "restart"}};
      break;
  }
  if (!op.comment.empty()) {
    json["comment"] = op.comment;
  }
  return Host::recordingLine(json);
}

}  // namespace Sim
