#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "dblink/RedisConnection.h"

namespace VplsAgent {

// The agent's lease on its database: one agent writes, any other stands by. The lease is the
// string key VPLS_AGENT_LEASE naming its holder, with an expiry that the holder renews.
//
// Taking and renewing are one server-side script, so that checking the holder and setting
// the expiry cannot be split by another client: the lease is renewed when it names this
// agent, taken when nobody holds it, and left alone (naming its holder) otherwise.
//
// Every write transaction of the agent is fenced by the lease (appendFence): the lease key is
// watched and a script checks that it names this agent; when it does not, the script touches
// the key so that the watch fails and the transaction does not run. A transaction therefore
// runs only while this agent holds the lease, whatever time passed since the agent last
// checked (a stopped process, a slow network). A lease that lapsed or vanished (a FLUSHDB)
// while nobody else took it does not stop the holder; one that another agent took and gave
// up again meanwhile does, and the agent status tells which: every transaction of an agent
// writes its pid there. So a lease found absent lets a transaction run, and is taken again by
// a renewal, only while the status names no other process (or is gone).
//
// Invariants: the holder name is unique per process start. Threading: the agent's scheduler
// thread (the callbacks run there).
class Lease {
 public:
  // How long the lease holds without renewal; the holder renews it every second.
  static constexpr std::chrono::milliseconds kExpiry{3000};

  // `pid` is what this agent writes as its status's pid.
  Lease(std::string holder, std::string pid);

  std::string const& holder() const noexcept { return holder_; }

  // What a take-or-renew found: held (renewed, or taken because nobody held it), or held by
  // another agent (named), or not known (the server refused the script: the reason).
  struct Outcome {
    enum class Kind : std::uint8_t { held, heldByOther, unknown } kind = Kind::unknown;
    bool taken = false;  // held, and nobody held it before
    // The other holder, or the reason; for a lease taken, the other process that the agent
    // status names ("pid N"): an agent that held the lease and wrote since this one last did.
    std::string text;
  };
  // Takes or renews the lease for `expiry` (longer than kExpiry before work that keeps the
  // agent from renewing it meanwhile).
  void takeOrRenew(DbLink::RedisConnection& connection, std::function<void(Outcome)> done,
                   std::chrono::milliseconds expiry = kExpiry) const;

  // Gives the lease up when it names this agent (an orderly stop: another agent need not
  // wait for it to lapse); `done` runs with the reply.
  void release(DbLink::RedisConnection& connection, std::function<void()> done) const;

  // The fence that precedes a transaction's MULTI: two commands, WATCH and the check.
  static constexpr std::size_t kFenceReplies = 2;
  void appendFence(std::string& out) const;
  // Whether the check's reply says that the transaction may run: the lease names this agent,
  // or nobody holds it and no other agent wrote its status since. Anything else (another
  // holder, an error) means that the fenced transaction did not run.
  static bool fenceHeld(DbLink::RedisReply const& checkReply);

  // The holder name for this process: host, process id and start time.
  static std::string holderName();

 private:
  std::string holder_;
  std::string pid_;
};

}  // namespace VplsAgent
