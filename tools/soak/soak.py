"""Soak of the agent daemon: random configuration changes written into a real redis-server for
a given time, with settle points, agent kills and stops and server restarts at random moments.
At every settle point the outputs and log entries in Redis must be what the scenario runner
computes from the agent's current recording, and the inputs must be those the recording ends
with. Usage and what it checks: docs/reliability.md, Soak.

Uses Debian's python3-redis: run it with /usr/bin/python3 (scripts/soak does)."""

import argparse
import json
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "tests" / "agent"))
import agent_rig as rig  # noqa: E402
import redis  # noqa: E402

PSEUDOWIRES = [f"Pseudowire{n}" for n in range(1, 25)]
INSTANCES = ("vpls1", "vpls2", "vpls3")
GROUPS = ("", "g1", "g2", "g3")
VLANS = range(1, 7)
# Every fourth pseudowire is "own-label": it has labels of its own (1000 N and 1000 N + 1) and
# may be standby or leave VLAN 6 untagged, the only VLAN that may be (so that no two of its
# entries share a key). The others share labels with their neighbours (500 + (N .. N + 2)
# mod 24), so that labels collide, and have neither a standby nor a VLAN-less entry: any entry
# (label, none) is of one pseudowire only.
OWN_LABEL = {pw for n, pw in enumerate(PSEUDOWIRES, 1) if n % 4 == 0}
UNTAGGED_VLAN = 6
# The attributes that the agent's wrapper resets at start-up.
RESET_ATTRIBUTES = ("startupSyncDone", "restartDone")
# The weight of a step that concerns the whole switch. The sequences of the randomized test have
# 3 pseudowires; here there are 8 times as many, so such steps weigh 8 times as much.
GLOBAL_WEIGHT = len(PSEUDOWIRES) // 3


def set_op(table, key, value):
    return {"op": "set", "table": table, "key": key, "value": value}


def pw_of(op):
    return op["key"]["pw"] if op["table"] == "vlanTagInfo" else op.get("key")


class Writer:
    """Random valid input changes, chosen as the randomized test of the decap state machine
    chooses them (tests/MarlTunnel/DecapSequence.cpp): a step among those valid now, weighted
    (writes of configuration 2, label, FEC id and VLAN tag 3, each removal 1), then its values.
    Added: re-sets of unchanged values, start-up sync and restart done, and labels that collide.

    The sequences that reach the state machine's own assertions and range errors are not
    generated. They all come from a record whose standby flag is not its configuration's (a
    configuration gone, or a change refused under VXLAN DCI or for want of an orientation),
    which programs or removes the wrong kind of entry under its label, or from an entry
    (label, none) that the record does not own and a non-standby record takes for its own
    VLAN-less entry: one left behind when an agent restart built the record again without its
    standby flag, its FEC id or its untagged VLAN's entry. The writer learns the records' flags,
    the entries (label, none) and their owners at every settle point from the runner's state; in
    between, what a write may have changed is not known, and that pseudowire is restricted until
    the next settle point."""

    def __init__(self, rng):
        self.rng = rng
        self.inputs = {}  # element key in Redis -> the set op that holds it
        self.vxlan = {"vxlanPresent": False, "vxlanDciConfigured": False}
        self.standby = {}  # pseudowire -> its record's standby flag; None: not known
        self.vlanless = set()  # labels that have, or may have, an entry (label, none)
        self.owners = set()  # pseudowires known to own the entry (label, none) of their label

    def learn(self, state):
        self.standby = {e["pwIntfId"]: e["standby"] for e in state["localPwInfo"]}
        self.vlanless = {e["label"] for e in state["mplsDecapConfig"] if e["innerDot1QTag"] == 0}
        self.owners = {e["pwIntfId"] for e in state["localPwInfo"] if e["standby"] or (
            e["normalisedTagPerVlan"].get(str(UNTAGGED_VLAN)) == 0 and e["vplsInstanceName"]
            and e["encapHwFecIdAvail"] and e["countProgrammed"] > 0)}

    def agent_restarted(self):
        """The new agent builds its records again from the inputs: what they own is not known."""
        self.standby = {pw: None if flag is not False else False
                        for pw, flag in self.standby.items()}
        self.owners = set()

    def chance(self, percent):
        return self.rng.randrange(100) < percent

    def flag(self, pw):
        return self.standby.get(pw, False)

    def label(self, pw):
        op = self.inputs.get("VPLS_DECAP_LABEL|" + pw)
        return op and op["value"]

    def config_standby(self, pw):
        op = self.inputs.get("VPLS_PW_INTF_INFO|" + pw)
        return bool(op and op["value"]["standby"])

    def stuck(self, pw):
        """The record's standby flag is not (known to be) its configuration's."""
        return self.flag(pw) is not self.config_standby(pw)

    def trapped(self, pw):
        """An entry (label, none) under its label that its record may not own."""
        return self.label(pw) in self.vlanless and pw not in self.owners

    def allowed(self, op):
        """Whether writing the op now keeps clear of the state machine's assertions."""
        pw, table = pw_of(op), op["table"]
        if table in self.vxlan:
            # VXLAN going away runs every VLAN tag again. The agent applies the changed flags of
            # the hash together, in field order, so that any change may pass through "both off".
            return not any(self.stuck(p) and self.label(p) for p in PSEUDOWIRES)
        if table == "vplsPwIntfInfo":
            return not self.trapped(pw) and (op["op"] == "del" or op["value"]["standby"]
                                             or self.flag(pw) is False or not self.label(pw))
        if op["op"] == "del":
            return True
        if table == "decapLabel":
            return not self.stuck(pw) and op["value"] not in self.vlanless
        if table in ("vlanTagInfo", "encapHwFecId"):
            return not self.trapped(pw) and not (self.stuck(pw) and self.label(pw))
        return True

    def config(self, pw):
        return set_op("vplsPwIntfInfo", pw, {
            "vplsInstanceName": self.rng.choice(INSTANCES), "groupName": self.rng.choice(GROUPS),
            "standby": pw in OWN_LABEL and self.chance(12), "vlanAware": self.chance(30),
            "splitHorizon": self.chance(80)})

    def new_label(self, pw, n):
        if pw in OWN_LABEL:
            return 1000 * n + self.rng.randrange(2)
        return 500 + (n + self.rng.randrange(3)) % len(PSEUDOWIRES)

    def tag(self, pw):
        vlan = self.rng.choice(VLANS)
        i = self.rng.randrange(3 if vlan == UNTAGGED_VLAN and pw in OWN_LABEL else 2)
        return set_op("vlanTagInfo", {"pw": pw, "vlan": vlan},
                      0 if i == 2 else 100 * (i + 1) + vlan)

    def steps(self):
        """(weight, op) of every step valid now; an op's values are chosen with the step, and a
        step whose values turn out not valid is left out."""
        out = [(1, {"op": "del", "table": op["table"], "key": op["key"]})
               for op in self.inputs.values()]
        for n, pw in enumerate(PSEUDOWIRES, 1):
            out += [(2, self.config(pw)), (3, set_op("decapLabel", pw, self.new_label(pw, n))),
                    (3, set_op("encapHwFecId", pw, {
                        "hwFecId": 0x1000 + 16 * n + self.rng.randrange(2),
                        "globalInLif": 0x5000 + 16 * n + self.rng.randrange(2)})),
                    (3, self.tag(pw))]
        out += [(GLOBAL_WEIGHT, {"op": "set", "table": name, "value": not value})
                for name, value in self.vxlan.items()]
        out += [(GLOBAL_WEIGHT, {"op": "set", "table": name, "value": self.chance(50)})
                for name in RESET_ATTRIBUTES]
        unchanged = list(self.inputs.values()) + [
            {"op": "set", "table": name, "value": value} for name, value in self.vxlan.items()]
        out.append((2 * GLOBAL_WEIGHT, self.rng.choice(unchanged)))
        return [(weight, op) for weight, op in out if self.allowed(op)]

    def next_op(self):
        steps = self.steps()
        op = self.rng.choices([op for _, op in steps], weights=[w for w, _ in steps])[0]
        pw, table = pw_of(op), op["table"]
        if table in self.vxlan:
            self.vxlan[table] = op["value"]
        elif table not in RESET_ATTRIBUTES:
            key = rig.op_row(op)[0]
            if op["op"] == "del":
                del self.inputs[key]
            else:
                self.inputs[key] = op
            # What a write may change before the next settle point tells.
            if table == "vplsPwIntfInfo" and op["op"] == "set" and \
                    op["value"]["standby"] is not self.flag(pw):
                self.standby[pw] = None
            untagged = self.inputs.get(f"VPLS_VLAN_TAG_INFO|{pw}|{UNTAGGED_VLAN}")
            if self.label(pw) and (self.flag(pw) is not False or self.config_standby(pw) or (
                    untagged and untagged["value"] == 0)):
                self.vlanless.add(self.label(pw))
                self.owners.discard(pw)
        return op


def normalised_inputs(rows):
    """Input rows with every attribute at its value or, its key absent, false."""
    rows = dict(rows)
    for key in rig.ATTRIBUTE_KEYS.values():
        rows[key] = {"value": rows.get(key, {}).get("value", "false")}
    return rows


def recorded_inputs(path):
    """The input rows a recording ends with: the inputs found at start-up, the wrapper's reset
    of start-up sync and restart done, then every change the agent applied."""
    lines = path.read_text().splitlines()
    rows = {}

    def apply(op):
        key, fields = rig.op_row(op)
        if fields is None:
            rows.pop(key, None)
        else:
            rows[key] = fields

    for op in json.loads(lines[0]).get("before", []):
        apply(op)
    for name in RESET_ATTRIBUTES:
        rows.pop(rig.ATTRIBUTE_KEYS[name], None)
    for line in lines[1:]:
        apply(json.loads(line))
    return normalised_inputs(rows)


def redis_inputs(db):
    return normalised_inputs({key: db.hgetall(key) for key in db.scan_iter(count=10000)
                              if key.split("|", 1)[0] in rig.INPUT_TABLES})


def logs_since(db, last_id):
    return [{"id": f["id"], "args": json.loads(f["args"])}
            for _, f in db.xrange("VPLS_LOG", min="(" + last_id)]


def differing_keys(expected, actual):
    return sorted(k for k in expected.keys() | actual.keys() if expected.get(k) != actual.get(k))


class DurableServer(rig.RedisServer):
    """The private server with its append-only file synced on every write, so that nothing it
    acknowledged is lost when it is killed. The soak's connections carry its name."""

    def client(self):
        return redis.Redis(unix_socket_path=self.socket, decode_responses=True,
                           client_name="vpls-soak")

    def others_gone(self, db, timeout=10):
        """Waits until no other client is connected: whatever a stopped agent had sent is
        handled then."""
        deadline = time.monotonic() + timeout
        while any(c["name"] != "vpls-soak" for c in db.client_list()):
            if time.monotonic() > deadline:
                raise TimeoutError("the stopped agent's connections are still open")
            time.sleep(0.01)

    def start(self):
        super().start()
        with self.client() as db:
            db.config_set("appendfsync", "always")

    def restart(self, sig):
        self.process.send_signal(sig)
        self.process.wait()
        self.start()


class Soak:
    def __init__(self, args, work, keep):
        self.args = args
        # Copies, so that a build meanwhile does not change them under the run.
        self.agent_binary, self.sim = (shutil.copy2(b, pathlib.Path(work) / pathlib.Path(b).name)
                                       for b in (args.agent, args.sim))
        self.rng = random.Random(args.seed)
        self.writer = Writer(random.Random(args.seed * 7919 + 1))
        self.count = dict.fromkeys(("changes", "kills", "stops", "server restarts", "settle points",
                                    "mismatches", "crashes"), 0)
        self.server = DurableServer(work, persistent=True)
        self.db = self.server.client()
        toggles = {"MarlTunnelSplitHorizonGroup": self.rng.random() < 0.5}
        mesh_groups = self.rng.choice((1, 3))
        clean_slate = self.rng.random() < 0.5
        print(f"soak: seed {args.seed}: {toggles}, --mesh-groups {mesh_groups}, "
              f"clean slate {clean_slate}", flush=True)
        if not clean_slate:
            self.db.hset("L2_UCAST_HW_FEC_ID_RESPONSE|1", "hwFecIdResponse", "1")
        self.agent = rig.Agent(self.agent_binary, self.server.url, work,
                               ["--mesh-groups", str(mesh_groups)],
                               rig.toggle_env(work, toggles))
        self.starts = 0
        self.since = []  # what happened since the last settle point, for a mismatch's line
        self.recordings = keep or pathlib.Path(work)
        self.fault_dir = keep

    # ---- The agent ----

    def start_agent(self):
        self.starts += 1
        self.writer.agent_restarted()
        self.server.others_gone(self.db)
        last = self.db.xrevrange("VPLS_LOG", count=1)
        self.log_start = last[0][0] if last else "0-0"
        self.recording = self.recordings / f"rec-{self.starts:04d}.jsonl"
        self.output_start = self.agent.log.stat().st_size if self.agent.log.exists() else 0
        self.agent.start(["--record", str(self.recording)])

    def agent_lines(self, n=15):
        with open(self.agent.log, "rb") as log:
            log.seek(self.output_start)
            return log.read().decode(errors="replace").splitlines()[-n:]

    def crash(self, what):
        self.count["crashes"] += 1
        self.since.append("agent crash")
        where = self.keep_files(f"crash-{self.count['crashes']:03d}", {})
        print(f"CRASH: agent start {self.starts} ({self.recording.name}) {what}; kept in {where}; "
              "its last lines:\n  " + "\n  ".join(self.agent_lines()), flush=True)
        self.start_agent()

    def check_agent(self):
        """An agent that exited by itself is a crash: reported, counted and started again."""
        code = self.agent.process.poll()
        if code is not None:
            self.crash(f"exited by itself with {code}")

    def restart_agent(self):
        self.check_agent()
        sig = self.rng.choice((signal.SIGKILL, signal.SIGTERM))
        try:
            code = self.agent.stop(sig)
        except subprocess.TimeoutExpired:
            self.agent.stop(signal.SIGKILL)
            return self.crash("did not stop within 30 s of SIGTERM")
        if sig == signal.SIGTERM and code != 0:
            return self.crash(f"exited with {code} after SIGTERM")
        self.count["kills" if sig == signal.SIGKILL else "stops"] += 1
        self.since.append(f"agent {sig.name}")
        self.start_agent()

    def restart_server(self):
        self.db.close()
        sig = self.rng.choice((signal.SIGKILL, signal.SIGTERM))
        self.server.restart(sig)
        self.db = self.server.client()
        self.count["server restarts"] += 1
        self.since.append(f"server {sig.name}")

    # ---- Changes and settle points ----

    def burst(self):
        ops = [self.writer.next_op() for _ in range(self.rng.randint(1, 60))]
        if self.rng.random() < 0.5:
            pipe = self.db.pipeline(transaction=False)
            for op in ops:
                rig.write_op(pipe, op)
            pipe.execute()
        else:
            for op in ops:
                rig.write_op(self.db, op)
                time.sleep(self.rng.uniform(0, 0.01))
        self.count["changes"] += len(ops)

    def settle(self):
        self.count["settle points"] += 1
        n = self.count["settle points"]
        token = f"settle {n}"
        deadline = time.monotonic() + 60
        while True:
            try:
                rig.barrier(self.db, token, timeout=0.5)
                break
            except TimeoutError:
                self.check_agent()
                if time.monotonic() > deadline:
                    self.agent.stop(signal.SIGKILL)
                    self.crash(f"did not reach settle point {n} within 60 s")
                    deadline = time.monotonic() + 60
        run = subprocess.run([self.sim, "run", str(self.recording), "--json"],
                             capture_output=True, text=True)
        where = (f"settle point {n} (agent start {self.starts}, {self.recording.name}; since the "
                 f"last one: {', '.join(self.since) or 'changes only'})")
        self.since = []
        actual = {"outputs": rig.output_rows(self.db),
                  "logs": logs_since(self.db, self.log_start),
                  "inputs": redis_inputs(self.db)}
        if run.returncode != 0:
            problem = "the runner stopped: " + (run.stderr.strip().splitlines() or ["?"])[-1]
        else:
            state = json.loads(run.stdout)
            self.writer.learn(state)
            problem = self.compare(state, actual)
        if problem:
            self.count["mismatches"] += 1
            kept = self.keep_files(f"settle-{n:04d}", actual)
            print(f"MISMATCH at {where}: {problem}; kept in {kept}", flush=True)

    def compare(self, state, actual):
        """What differs between Redis and the runner's replay of the recording, if anything."""
        problems = []
        for what, expected, found in (
                ("outputs", rig.expected_rows(state), actual["outputs"]),
                ("inputs", recorded_inputs(self.recording), actual["inputs"])):
            keys = differing_keys(expected, found)
            if keys:
                problems.append(f"{what} differ at {', '.join(keys[:3])}"
                                + (f" (+{len(keys) - 3} more)" if len(keys) > 3 else ""))
        expected_logs, logs = state["logs"], actual["logs"]
        if logs != expected_logs:
            first = next((i for i, (a, b) in enumerate(zip(logs, expected_logs)) if a != b),
                         min(len(logs), len(expected_logs)))
            problems.append(f"logs differ from entry {first} (Redis {len(logs)}, "
                            f"runner {len(expected_logs)})")
        return "; ".join(problems)

    def keep_files(self, name, dump):
        """The current recording and a dump of Redis, for a fault; returns where."""
        if self.fault_dir is None:
            self.fault_dir = pathlib.Path(tempfile.mkdtemp(prefix="vpls-soak-faults."))
        where = self.fault_dir / name
        where.mkdir(parents=True, exist_ok=True)
        shutil.copy(self.recording, where)
        if dump:
            (where / "redis.json").write_text(json.dumps(dump, indent=1, sort_keys=True))
        return where

    # ---- The run ----

    def run(self, seconds):
        began = time.monotonic()
        end = began + seconds
        # An agent restart every 20 to 40 s and a server restart every 60 to 90 s; closer
        # together in a run shorter than two minutes, so that it has both.
        pace = min(1.0, seconds / 120)
        self.start_agent()
        next_agent = began + pace * self.rng.uniform(20, 40)
        next_server = began + pace * self.rng.uniform(60, 90)
        next_settle = began + self.rng.uniform(1, 5)
        while time.monotonic() < end:
            self.burst()
            self.check_agent()
            now = time.monotonic()
            if now >= next_server:
                self.restart_server()
                next_server = now + pace * self.rng.uniform(60, 90)
            elif now >= next_agent:
                self.restart_agent()
                next_agent = now + pace * self.rng.uniform(20, 40)
            if now >= next_settle:
                self.settle()
                next_settle = time.monotonic() + self.rng.uniform(1, 5)
            time.sleep(self.rng.uniform(0, 0.25))
        self.settle()
        try:
            code = self.agent.stop(signal.SIGTERM)
        except subprocess.TimeoutExpired:
            code = "a timeout"
        if code != 0:
            self.crash(f"exited with {code} after the final SIGTERM")
        minutes = (time.monotonic() - began) / 60
        c = self.count
        print(f"soak: seed {self.args.seed}, {minutes:.1f} minutes\n"
              f"  changes written  {c['changes']}\n"
              f"  agent kills      {c['kills']} (SIGKILL)\n"
              f"  agent stops      {c['stops']} (SIGTERM)\n"
              f"  server restarts  {c['server restarts']}\n"
              f"  settle points    {c['settle points']}\n"
              f"  mismatches       {c['mismatches']}\n"
              f"  crashes          {c['crashes']}", flush=True)
        if self.fault_dir and (c["mismatches"] or c["crashes"]):
            print(f"soak: recordings and dumps of the faults are in {self.fault_dir}")
        return 0 if c["mismatches"] == 0 and c["crashes"] == 0 else 1

    def close(self):
        self.agent.stop(signal.SIGKILL)
        self.db.close()
        self.server.stop()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--agent", required=True, help="the vpls-decap-agent binary")
    parser.add_argument("--sim", required=True, help="the vpls-decap-sim binary")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--seconds", type=float, help="the duration in seconds instead")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 31))
    parser.add_argument("--keep", type=pathlib.Path,
                        help="keep the recordings, and the dumps of the faults, in this folder")
    args = parser.parse_args()
    seconds = args.seconds if args.seconds is not None else args.minutes * 60
    if args.keep:
        args.keep.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(prefix="vpls-soak.") as work:
        soak = Soak(args, work, args.keep)
        try:
            return soak.run(seconds)
        finally:
            soak.close()


if __name__ == "__main__":
    sys.exit(main())
