#include "Trace/ArgKind.h"

#include <charconv>

#include "Netcore/IntfId.h"

namespace Trace {

void appendNumeric(std::string& out, ArgKind kind, std::uint64_t raw) {
  char buf[24];
  char* end = buf;
  switch (kind) {
    case ArgKind::kSigned:
      end = std::to_chars(buf, buf + sizeof buf, static_cast<std::int64_t>(raw)).ptr;
      break;
    case ArgKind::kUnsigned:
      end = std::to_chars(buf, buf + sizeof buf, raw).ptr;
      break;
    case ArgKind::kBool:
      *end++ = raw != 0 ? '1' : '0';
      break;
    case ArgKind::kIntfId:
      out += Netcore::IntfId::fromValue(static_cast<std::uint32_t>(raw)).toString();
      return;
    case ArgKind::kFragment:
    case ArgKind::kText:
    case ArgKind::kStaticText:
      return;
  }
  out.append(buf, end);
}

}  // namespace Trace
