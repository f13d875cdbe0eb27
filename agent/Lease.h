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
// checked (a stopped process, a slow network).
//
// Invariants: the holder name is unique per process start. Threading: the agent's scheduler
// thread (the callbacks run there).
class Lease {
 public:
  // How long the lease holds without renewal; the holder renews it every second.
  static constexpr std::chrono::milliseconds kExpiry{3000};

  explicit Lease(std::string holder);

  std::string const& holder() const noexcept { return holder_; }

  // What a take-or-renew found: held (renewed, or taken because nobody held it), or held by
  // another agent (named), or not known (the server refused the script: the reason).
  struct Outcome {
    enum class Kind : std::uint8_t { held, heldByOther, unknown } kind = Kind::unknown;
    bool taken = false;  // held, and nobody held it before
    std::string text;    // the other holder, or the reason
  };
  void takeOrRenew(DbLink::RedisConnection& connection, std::function<void(Outcome)> done) const;

  // Gives the lease up when it names this agent (an orderly stop: another agent need not
  // wait for it to lapse); `done` runs with the reply.
  void release(DbLink::RedisConnection& connection, std::function<void()> done) const;

  // The fence that precedes a transaction's MULTI: two commands, WATCH and the check.
  static constexpr std::size_t kFenceReplies = 2;
  void appendFence(std::string& out) const;
  // Whether the check's reply says that the lease named this agent. Anything else (another
  // holder, nobody, an error) means that the fenced transaction did not run.
  static bool fenceHeld(DbLink::RedisReply const& checkReply);

  // The holder name for this process: host, process id and start time.
  static std::string holderName();

 private:
  std::string holder_;
  std::string expiryMs_;
};

}  // namespace VplsAgent
