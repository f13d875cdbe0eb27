#include "agent/Lease.h"

#include <unistd.h>

#include <array>
#include <ctime>

#include "dblink/KeyLayout.h"

namespace VplsAgent {
namespace {

using DbLink::RedisReply;

// Renews the lease that names the holder (for ARGV[2] ms), takes the lease that nobody holds;
// answers {1, ""} renewed, {2, pid} taken, with the pid in the agent status (KEYS[2]) then,
// {0, holder} held by another.
constexpr std::string_view kTakeOrRenew = R"lua(
local v = redis.call('GET', KEYS[1])
if v == ARGV[1] then
  redis.call('PEXPIRE', KEYS[1], ARGV[2])
  return {1, ''}
end
if not v then
  redis.call('SET', KEYS[1], ARGV[1], 'PX', ARGV[2])
  return {2, redis.call('HGET', KEYS[2], 'pid') or ''}
end
return {0, v}
)lua";

// Runs inside WATCH: answers 1 when the lease names the holder and 2 when nobody holds it and
// the agent status (KEYS[2]) names no other process (ARGV[2] is this one's pid): the
// transaction may run; whoever takes the lease before EXEC breaks the watch. Otherwise the
// lease key is touched without changing it, which breaks the watch: a lease of another holder
// keeps what is left of its expiry (PEXPIRE writes without taking memory) and answers 0; an
// absent lease while the status names another process (an agent that held the lease meanwhile
// and wrote) is set and deleted again and answers 3.
constexpr std::string_view kFence = R"lua(
local v = redis.call('GET', KEYS[1])
if v == ARGV[1] then return 1 end
if not v then
  local pid = redis.call('HGET', KEYS[2], 'pid')
  if not pid or pid == ARGV[2] then return 2 end
  redis.call('SET', KEYS[1], ARGV[1])
  redis.call('DEL', KEYS[1])
  return 3
end
local left = redis.call('PTTL', KEYS[1])
if left > 0 then redis.call('PEXPIRE', KEYS[1], left) else redis.call('SET', KEYS[1], v) end
return 0
)lua";

constexpr std::string_view kRelease = R"lua(
if redis.call('GET', KEYS[1]) == ARGV[1] then return redis.call('DEL', KEYS[1]) end
return 0
)lua";

}  // namespace

Lease::Lease(std::string holder, std::string pid)
    : holder_(std::move(holder)), pid_(std::move(pid)) {}

std::string Lease::holderName() {
  std::array<char, 256> host{};
  if (::gethostname(host.data(), host.size() - 1) != 0) {
    host[0] = '\0';
  }
  auto const now = std::time(nullptr);
  std::tm utc{};
  ::gmtime_r(&now, &utc);
  std::array<char, 32> started{};
  std::strftime(started.data(), started.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  std::string name = host.data();
  name.append(" pid ").append(std::to_string(::getpid()));
  name.append(" started ").append(started.data());
  return name;
}

void Lease::takeOrRenew(DbLink::RedisConnection& connection, std::function<void(Outcome)> done,
                        std::chrono::milliseconds expiry) const {
  connection.command({"EVAL", std::string(kTakeOrRenew), "2", std::string(DbLink::kAgentLease),
                      std::string(DbLink::kAgentStatus), holder_, std::to_string(expiry.count())},
                     [this, done = std::move(done)](RedisReply&& reply) {
                       Outcome outcome;
                       if (reply.isError()) {
                         outcome.text = reply.text;
                       } else if (reply.elements.size() != 2) {
                         outcome.text = "an answer of another shape to the lease script";
                       } else if (reply.elements[0].integer == 0) {
                         outcome.kind = Outcome::Kind::heldByOther;
                         outcome.text = reply.elements[1].text;
                       } else {
                         outcome.kind = Outcome::Kind::held;
                         outcome.taken = reply.elements[0].integer == 2;
                         auto const& pid = reply.elements[1].text;
                         if (outcome.taken && !pid.empty() && pid != pid_) {
                           outcome.text = "pid " + pid;
                         }
                       }
                       done(std::move(outcome));
                     });
}

void Lease::release(DbLink::RedisConnection& connection, std::function<void()> done) const {
  connection.command(
      {"EVAL", std::string(kRelease), "1", std::string(DbLink::kAgentLease), holder_},
      [done = std::move(done)](RedisReply&&) { done(); });
}

void Lease::appendFence(std::string& out) const {
  DbLink::appendCommand(out, {"WATCH", DbLink::kAgentLease});
  DbLink::appendCommand(
      out, {"EVAL", kFence, "2", DbLink::kAgentLease, DbLink::kAgentStatus, holder_, pid_});
}

bool Lease::fenceHeld(RedisReply const& checkReply) {
  return checkReply.kind == RedisReply::Kind::integer &&
         (checkReply.integer == 1 || checkReply.integer == 2);
}

}  // namespace VplsAgent
