#include "agent/Lease.h"

#include <unistd.h>

#include <array>
#include <ctime>

#include "dblink/KeyLayout.h"

namespace VplsAgent {
namespace {

using DbLink::RedisReply;

// Renews the lease that names the holder, takes the lease that nobody holds; answers
// {1, ""} renewed, {2, ""} taken, {0, holder} held by another.
constexpr std::string_view kTakeOrRenew = R"lua(
local v = redis.call('GET', KEYS[1])
if v == ARGV[1] then
  redis.call('PEXPIRE', KEYS[1], ARGV[2])
  return {1, ''}
end
if not v then
  redis.call('SET', KEYS[1], ARGV[1], 'PX', ARGV[2])
  return {2, ''}
end
return {0, v}
)lua";

// Runs inside WATCH: answers 1 when the lease names the holder and 2 when nobody holds it
// (the transaction may run: whoever takes the lease before EXEC breaks the watch). A lease of
// another holder is touched without changing it, which breaks the watch, and answers 0. The
// touch resets the expiry to what is left of it (PEXPIRE writes without taking memory).
constexpr std::string_view kFence = R"lua(
local v = redis.call('GET', KEYS[1])
if v == ARGV[1] then return 1 end
if not v then return 2 end
local left = redis.call('PTTL', KEYS[1])
if left > 0 then redis.call('PEXPIRE', KEYS[1], left) else redis.call('SET', KEYS[1], v) end
return 0
)lua";

constexpr std::string_view kRelease = R"lua(
if redis.call('GET', KEYS[1]) == ARGV[1] then return redis.call('DEL', KEYS[1]) end
return 0
)lua";

}  // namespace

Lease::Lease(std::string holder)
    : holder_(std::move(holder)), expiryMs_(std::to_string(kExpiry.count())) {}

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

void Lease::takeOrRenew(DbLink::RedisConnection& connection,
                        std::function<void(Outcome)> done) const {
  connection.command({"EVAL", std::string(kTakeOrRenew), "1", std::string(DbLink::kAgentLease),
                      holder_, expiryMs_},
                     [done = std::move(done)](RedisReply&& reply) {
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
  DbLink::appendCommand(out, {"EVAL", kFence, "1", DbLink::kAgentLease, holder_});
}

bool Lease::fenceHeld(RedisReply const& checkReply) {
  return checkReply.kind == RedisReply::Kind::integer &&
         (checkReply.integer == 1 || checkReply.integer == 2);
}

}  // namespace VplsAgent
