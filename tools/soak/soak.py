"""Soak of the agent daemon: random configuration changes written into a real redis-server for
a given time, with settle points, agent kills and stops and server restarts at random moments;
with --chaos also writes refused, notifications switched off, other clients writing the agent's
keys, FLUSHDB, a second agent standing by and taking over, SIGSTOP of the active one, and the
library's own aborts and range errors, each accepted when the runner's replay of the recording
stops the same way. At every settle point the outputs and log entries in Redis must be what the
scenario runner computes from the active agent's current recording, and the inputs must be
those the recording ends with. Usage and what it checks: docs/reliability.md, Soak.

Uses Debian's python3-redis: run it with /usr/bin/python3 (scripts/soak does)."""

import argparse
import json
import os
import pathlib
import random
import re
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
# Every fourth pseudowire is "own-label": it has labels of its own (1000 N and 1000 N + 1). The
# others share labels with their neighbours (500 + (N .. N + 2) mod 24), so that labels collide.
# With the writer's avoidance on, only an own-label pseudowire may be standby or leave a VLAN
# untagged, VLAN 6 only (so that no two of its entries share a key): any entry (label, none) is
# of one pseudowire only.
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

    With avoidance on, the sequences that reach the state machine's own assertions and range
    errors are not generated. They all come from a record whose standby flag is not its
    configuration's (a configuration gone, or a change refused under VXLAN DCI or for want of an
    orientation), which programs or removes the wrong kind of entry under its label, or from an
    entry (label, none) that the record does not own and a non-standby record takes for its own
    VLAN-less entry: one left behind when an agent restart built the record again without its
    standby flag, its FEC id or its untagged VLAN's entry. Only the own-label pseudowires may
    then be standby or leave a VLAN untagged. The writer learns the records' flags, the entries
    (label, none) and their owners at every settle point from the runner's state; in between,
    what a write may have changed is not known, and that pseudowire is restricted until the
    next settle point. With avoidance off, every step is valid, any pseudowire may be standby
    and any VLAN untagged: the sequences above come up within a few hundred changes."""

    def __init__(self, rng, avoid=True):
        self.avoid = avoid
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
        if not self.avoid:
            return True
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
            "standby": (pw in OWN_LABEL or not self.avoid) and self.chance(12),
            "vlanAware": self.chance(30), "splitHorizon": self.chance(80)})

    def new_label(self, pw, n):
        if pw in OWN_LABEL:
            return 1000 * n + self.rng.randrange(2)
        return 500 + (n + self.rng.randrange(3)) % len(PSEUDOWIRES)

    def tag(self, pw):
        vlan = self.rng.choice(VLANS)
        untagged = not self.avoid or (vlan == UNTAGGED_VLAN and pw in OWN_LABEL)
        i = self.rng.randrange(3 if untagged else 2)
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

    def held_ops(self):
        """A set op of every input the writer holds, to write them all again."""
        return list(self.inputs.values()) + [
            {"op": "set", "table": name, "value": value} for name, value in self.vxlan.items()]

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


def redis_rows(db, tables):
    """Every key of the tables with its hash, read in one pipeline; a key of another type reads
    as the server's error, so that it differs from any hash."""
    keys = [key for key in db.scan_iter(count=10000) if key.split("|", 1)[0] in tables]
    pipe = db.pipeline(transaction=False)
    for key in keys:
        pipe.hgetall(key)
    return {key: value if isinstance(value, dict) else {"(not a hash)": str(value)}
            for key, value in zip(keys, pipe.execute(raise_on_error=False))}


def log_entry(fields):
    return {"id": fields["id"], "args": json.loads(fields["args"])}


def log_entries(db, last_id):
    """The entries of the log stream after last_id, each with its stream id."""
    return [(i, log_entry(f)) for i, f in db.xrange("VPLS_LOG", min="(" + last_id)]


def differing_keys(expected, actual):
    return sorted(k for k in expected.keys() | actual.keys() if expected.get(k) != actual.get(k))


def first_difference(found, expected):
    return next((i for i, (a, b) in enumerate(zip(found, expected)) if a != b),
                min(len(found), len(expected)))


RAISED = re.compile(r"^vpls-decap-sim: (?:event (\d+) \(.*\)|start-up) raised: (.*)$")
SHOW = SOURCE / "frontend" / "show-vpls-decap"
LEASE_PID = re.compile(r" pid (\d+) ")
# What the agent says (docs/agent.md), as far as the soak reads it.
SAID = "vpls-decap-agent: "
RAISED_WHILE = SAID + "the library raised while applying "
STARTED = SAID + "started over "
STANDING_BY = SAID + "standing by: "
LOST_LEASE = SAID + "lost the lease "
STARTUP_ERROR = "start-up: "
# A status whose heartbeat is older was not written by the agent in the last second or so.
HEARTBEAT_FRESH_MS = 2500


class Replay:
    """The runner's replay of a recording (`vpls-decap-sim run FILE --json`): its exit code, its
    final state (after a range error: up to it), the range error it stopped on (the event's
    index, None for the start-up, and the text) and the assertion it aborted on."""

    def __init__(self, sim, recording):
        run = subprocess.run([sim, "run", str(recording), "--json"], capture_output=True,
                             text=True)
        self.code = run.returncode
        self.state = json.loads(run.stdout) if self.code in (0, 1) and run.stdout else None
        self.said = run.stderr.strip().splitlines()
        raised = next((m for m in map(RAISED.match, self.said) if m), None)
        self.raised = raised is not None
        self.event = int(raised[1]) if raised and raised[1] is not None else None
        self.error = raised and raised[2]
        self.assertion = next((line for line in self.said if line.startswith('assertion "')),
                              None)

    @property
    def aborted(self):
        return self.code == -signal.SIGABRT

    def __str__(self):
        return f"exit {self.code}: {(self.said or ['(nothing said)'])[-1]}"


class AgentSlot:
    """Where one agent process at a time runs: its own directory (command socket, log, flashlog)
    and a new recording per process start (rec-<slot>-0001.jsonl, ...)."""

    def __init__(self, name, binary, url, work, recordings, args, env):
        directory = pathlib.Path(work) / f"agent-{name}"
        directory.mkdir()
        self.name = name
        self.agent = rig.Agent(binary, url, directory, args, env)
        self.recordings = recordings
        self.starts = 0
        self.recording = None
        self.output_start = 0

    @property
    def process(self):
        return self.agent.process

    @property
    def pid(self):
        return self.agent.process.pid if self.agent.process else None

    def running(self):
        """Started and not known to have ended (a stopped process runs)."""
        return self.agent.process is not None and self.agent.process.poll() is None

    def start(self):
        self.starts += 1
        self.recording = self.recordings / f"rec-{self.name}-{self.starts:04d}.jsonl"
        self.output_start = self.agent.log.stat().st_size if self.agent.log.exists() else 0
        self.agent.start(["--record", str(self.recording)])

    def wait_running(self, timeout=10):
        """Waits until the process has said its first line: a SIGTERM stops it orderly then."""
        deadline = time.monotonic() + timeout
        while self.running() and not any(line.startswith(SAID + "starting")
                                         for line in self.lines()):
            if time.monotonic() > deadline:
                return
            time.sleep(0.01)

    def wait_stopped(self, timeout=10):
        """Waits until the process is stopped (SIGSTOP): it does nothing more then."""
        deadline = time.monotonic() + timeout
        while self.running() and time.monotonic() < deadline:
            with open(f"/proc/{self.pid}/stat") as stat:
                if stat.read().rsplit(")", 1)[1].split()[0] in "Tt":
                    return
            time.sleep(0.001)

    def stop(self, sig):
        """Stops the process (TimeoutExpired when it does not end within 30 s); returns its
        exit code. The slot is free then."""
        if self.agent.process is None:
            return None
        if self.running():
            self.agent.process.send_signal(signal.SIGCONT)
        try:
            return self.agent.stop(sig)
        finally:
            if self.agent.process and self.agent.process.poll() is not None:
                self.agent.process = None

    def ended(self):
        """The exit code of a process that ended by itself (the slot is free then), else None."""
        code = self.agent.process.poll() if self.agent.process else None
        if code is not None:
            self.agent.process = None
        return code

    def lines(self):
        """What the current process said so far."""
        with open(self.agent.log, "rb") as log:
            log.seek(self.output_start)
            return log.read().decode(errors="replace").splitlines()

    def raised(self):
        """The library errors the process said: (key, text) each."""
        return [tuple(line[len(RAISED_WHILE):].split(": ", 1)) for line in self.lines()
                if line.startswith(RAISED_WHILE)]

    def recording_lines(self, offset):
        """The lines the recording got after that many bytes."""
        with open(self.recording, "rb") as recording:
            recording.seek(offset)
            return recording.read().decode().splitlines()

    def recording_id(self):
        """Which file the recording is (a new start of the agent's wrapper writes a new one)."""
        return self.recording.stat().st_ino if self.recording and self.recording.exists() else None

    def recording_size(self):
        return self.recording.stat().st_size if self.recording and self.recording.exists() else 0


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


COUNTS = ("changes", "writes refused", "kills", "stops", "server restarts", "write refusals",
          "notification switches", "foreign writes", "keys written by others", "flushes",
          "second agents", "takeovers", "sigstops", "aborts", "range errors",
          "blocked start-ups", "settle points", "mismatches", "crashes")


class Soak:
    """The run: the server, two agent slots (the active agent and, from time to time, a second
    one standing by), the writer, the faults and the settle points. The soak follows the active
    agent, the one that acknowledges the barriers, and checks Redis against its recording."""

    def __init__(self, args, work, keep):
        self.args = args
        self.work = pathlib.Path(work)
        # Copies, so that a build meanwhile does not change them under the run.
        self.agent_binary, self.sim = (shutil.copy2(b, self.work / pathlib.Path(b).name)
                                       for b in (args.agent, args.sim))
        self.rng = random.Random(args.seed)
        avoid = (args.avoidance or ("off" if args.chaos else "on")) == "on"
        self.avoid = avoid
        self.writer = Writer(random.Random(args.seed * 7919 + 1), avoid)
        self.count = dict.fromkeys(COUNTS, 0)
        self.server = DurableServer(work, persistent=True)
        self.db = self.server.client()
        toggles = {"MarlTunnelSplitHorizonGroup": self.rng.random() < 0.5}
        mesh_groups = self.rng.choice((1, 3))
        self.clean_slate = self.rng.random() < 0.5
        self.mode = (f"{'chaos' if args.chaos else 'changes, restarts'}, "
                     f"avoidance {'on' if avoid else 'off'}")
        print(f"soak: seed {args.seed}: {self.mode}, {toggles}, --mesh-groups {mesh_groups}, "
              f"clean slate {self.clean_slate}", flush=True)
        if not self.clean_slate:
            self.db.hset("L2_UCAST_HW_FEC_ID_RESPONSE|1", "hwFecIdResponse", "1")
        recordings = keep or self.work
        self.slots = [AgentSlot(name, self.agent_binary, self.server.url, work, recordings,
                                ["--mesh-groups", str(mesh_groups)],
                                rig.toggle_env(work, toggles)) for name in "ab"]
        self.active = self.slots[0]
        self.pace = 1.0
        self.since = []  # what happened since the last settle point, for a fault's line
        self.fault_dir = keep
        # The log stream: the active agent's entries follow log_start; those that a FLUSHDB
        # took out of the stream are kept, in order. After a takeover, the entries of the agents
        # before (their recordings, in order) come first.
        self.log_start = "0-0"
        self.log_flushed = []
        self.handed_over = []
        self.log_skip = 0  # the runner's entries already compared, after a difference
        # The writer's changes that the server refused, in order, to write once it accepts.
        self.refusing = False
        self.backlog = []
        self.stopped = None  # the agent that the soak stopped with SIGSTOP, while it is
        self.settle_now = False

    # ---- The agents ----

    def other(self):
        return self.slots[1] if self.active is self.slots[0] else self.slots[0]

    def standby(self):
        return self.other() if self.other().running() else None

    def start_active(self):
        """Starts the active slot's agent while no other agent runs; the log entries from here
        on are its."""
        self.writer.agent_restarted()
        self.server.others_gone(self.db)
        last = self.db.xrevrange("VPLS_LOG", count=1)
        self.log_start = last[0][0] if last else "0-0"
        self.log_flushed = []
        self.handed_over = []
        self.log_skip = 0
        self.active.start()

    def hand_over(self):
        """The standby is the active agent from now on (it takes the lease once it lapses)."""
        old, self.active = self.active, self.other()
        self.handed_over.append(old.recording)
        self.log_skip = 0
        self.writer.agent_restarted()
        self.count["takeovers"] += 1
        self.since.append(f"agent {self.active.name} takes over")

    def replace_active(self):
        """The active agent is gone: the standby takes over (resumed, if the soak stopped it), or
        it starts again."""
        if self.standby() is self.stopped:
            self.resume()
        if self.standby():
            self.hand_over()
        else:
            self.start_active()

    def lease_pid(self):
        match = LEASE_PID.search(self.db.get("VPLS_AGENT_LEASE") or "")
        return int(match[1]) if match else None

    def crash(self, slot, what):
        self.count["crashes"] += 1
        self.since.append(f"agent {slot.name} crash")
        where = self.keep_files(f"crash-{self.count['crashes']:03d}", {}, slot)
        print(f"CRASH: agent {slot.name} start {slot.starts} ({slot.recording.name}) {what}; "
              f"kept in {where}; its last lines:\n  " + "\n  ".join(slot.lines()[-15:]),
              flush=True)

    def problem(self, where, what, slot=None, dump=None):
        """A fault of the agent seen outside a settle point's comparison, or by it."""
        self.count["mismatches"] += 1
        slot = slot or self.active
        kept = self.keep_files(f"fault-{self.count['mismatches']:04d}", dump or {}, slot)
        print(f"MISMATCH at {where}: {what}; kept in {kept}", flush=True)

    def check_agents(self):
        """An agent that ended by itself: an abort that the runner reproduces is accepted,
        anything else is a crash; an active agent gone is replaced. Returns whether any had
        ended."""
        ended = False
        for slot in self.slots:
            code = slot.ended()
            if code is None:
                continue
            ended = True
            if code == -signal.SIGABRT:
                self.accept_abort(slot)
            else:
                self.crash(slot, f"exited by itself with {code}")
            if slot is self.active:
                self.replace_active()
        return ended

    def accept_abort(self, slot):
        """An agent that aborted (a failed assertion) is accepted when the runner aborts on its
        recording with the same assertion, on its last change: without that change the
        recording replays. When the runner stops on a range error before, the range error is
        judged: what the agent did after it is beyond the runner's replay."""
        said = next((line for line in reversed(slot.lines()) if line.startswith('assertion "')),
                    None)
        full = Replay(self.sim, slot.recording)
        if full.raised and full.event is not None:
            problem = self.range_error_problem(slot, full)
            if problem is None:
                self.keep_accepted("range errors", slot)
        elif not full.aborted:
            problem = f"the runner does not abort on its recording ({full})"
        elif full.assertion != said:
            problem = f"the runner aborts on another assertion ({full.assertion})"
        else:
            problem = None
            lines = slot.recording.read_text().splitlines(keepends=True)
            if len(lines) > 1:
                shorter = self.work / "without-last-change.jsonl"
                shorter.write_text("".join(lines[:-1]))
                replay = Replay(self.sim, shorter)
                if replay.code != 0:
                    problem = ("the runner does not replay the recording without its last "
                               f"change ({replay})")
        if problem:
            self.crash(slot, "aborted: " + problem)
            return
        self.calm()
        self.keep_accepted("aborts", slot)
        self.since.append(f"agent {slot.name} abort" + (" after a range error" if full.raised
                                                        else ""))

    def range_error_problem(self, slot, replay, last_error=None):
        """What is wrong with a range error of the runner's replay, if anything: the agent must
        have said that the library raised on the change the runner stopped on, with the same
        text, and its lastError (when read) is the last error it said, with that text."""
        op = json.loads(slot.recording.read_text().splitlines()[replay.event + 1])
        key = rig.op_row(op)[0]
        raised = slot.raised()
        if (key, replay.error) not in raised:
            return f"the runner raised on {key} ({replay.error}); the agent said no such error"
        last = ": ".join(raised[-1])
        if last_error is not None and (last_error != last or
                                       not last_error.endswith(": " + replay.error)):
            return f"lastError is {last_error!r}; the runner's error: {replay.error}"
        return None

    def keep_accepted(self, kind, slot):
        """Counts an accepted fault of the library's and, with --keep, keeps its recording
        (`aborts-001.jsonl`, ...: a blocked agent's next start writes its own over it)."""
        self.count[kind] += 1
        if self.args.keep and slot.recording and slot.recording.exists():
            name = f"{kind.replace(' ', '-')}-{self.count[kind]:03d}.jsonl"
            shutil.copy(slot.recording, self.args.keep / name)

    def calm(self, settle_now=True):
        """After a fault of the library's own, the writer keeps clear of them until a settle
        point matches, which shows the agent converged; after an abort or a range error (the
        agent starts again) that settle point comes next, before any change."""
        self.writer.avoid = True
        self.settle_now = self.settle_now or settle_now

    def restart_active(self, sig=None):
        """Stops the active agent by SIGKILL or SIGTERM; it starts again, or the standby takes
        over."""
        slot = self.active
        sig = sig or self.rng.choice((signal.SIGKILL, signal.SIGTERM))
        slot.wait_running()
        try:
            code = slot.stop(sig)
        except subprocess.TimeoutExpired:
            slot.stop(signal.SIGKILL)
            self.crash(slot, "did not stop within 30 s of SIGTERM")
            return self.replace_active()
        if sig == signal.SIGTERM and code == -signal.SIGABRT:
            # The batch under way, which a stop finishes, reached an assertion.
            self.accept_abort(slot)
        elif sig == signal.SIGTERM and code != 0:
            self.crash(slot, f"exited with {code} after SIGTERM")
        else:
            self.count["kills" if sig == signal.SIGKILL else "stops"] += 1
            self.since.append(f"agent {slot.name} {sig.name}")
        self.replace_active()

    def restart_server(self):
        self.db.close()
        sig = self.rng.choice((signal.SIGKILL, signal.SIGTERM))
        self.server.restart(sig)
        self.db = self.server.client()
        self.count["server restarts"] += 1
        self.since.append(f"server {sig.name}")

    # ---- Changes ----

    def burst(self):
        ops = [self.writer.next_op() for _ in range(self.rng.randint(1, 60))]
        self.count["changes"] += len(ops)
        if self.refusing or self.backlog:
            self.write_refusable(ops)
        elif self.rng.random() < 0.5:
            self.write_pipelined(ops)
        else:
            for op in ops:
                rig.write_op(self.db, op)
                time.sleep(self.rng.uniform(0, 0.01))

    def write_pipelined(self, ops):
        pipe = self.db.pipeline(transaction=False)
        for op in ops:
            rig.write_op(pipe, op)
        pipe.execute()

    def write_refusable(self, ops):
        """One by one while the server may refuse writes: from the first refused on, the
        changes wait in the backlog, so that their order holds."""
        for i, op in enumerate(ops):
            if self.backlog:
                self.backlog += ops[i:]
                return
            try:
                rig.write_op(self.db, op)
            except redis.ResponseError as e:
                if not str(e).startswith("OOM"):
                    raise
                self.backlog = ops[i:]

    def go_on(self, seconds):
        """Changes for that long, as between faults."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.burst()
            self.check_agents()
            time.sleep(self.rng.uniform(0, 0.25))

    # ---- Faults beside the restarts ----

    def refuse_writes(self):
        """The server refuses writes (maxmemory 1 with noeviction) for 0.5 to 5 s while the
        writer goes on; its refused changes are written, in order, once it accepts again."""
        seconds = self.rng.uniform(0.5, 0.5 + 4.5 * self.pace)
        policy = self.db.config_get("maxmemory-policy")["maxmemory-policy"]
        self.db.config_set("maxmemory-policy", "noeviction")
        self.db.config_set("maxmemory", "1")
        self.refusing = True
        self.go_on(seconds)
        self.db.config_set("maxmemory", "0")
        self.db.config_set("maxmemory-policy", policy)
        self.refusing = False
        self.count["writes refused"] += len(self.backlog)
        refused = self.backlog
        self.write_pipelined(refused)
        self.backlog = []
        self.count["write refusals"] += 1
        self.since.append(f"writes refused {seconds:.1f} s ({len(refused)} of the soak's)")

    def switch_notifications(self):
        """Another client switches the keyspace notifications off or narrows them, changes are
        written meanwhile, and the setting is put back."""
        before = self.db.config_get("notify-keyspace-events")["notify-keyspace-events"]
        setting = self.rng.choice(("", "Kh", "K$g", "Ex"))
        self.db.config_set("notify-keyspace-events", setting)
        self.go_on(self.rng.uniform(0.1, 0.5 + 1.5 * self.pace))
        self.db.config_set("notify-keyspace-events", before)
        self.count["notification switches"] += 1
        self.since.append(f"notifications {setting!r} meanwhile")

    def foreign_writes(self):
        """Another client deletes and changes random output keys of the agent's, makes one a
        string, writes one the agent does not hold, or deletes the agent's status; half the
        time a settle point follows at once (its barrier waits for the keys written again)."""
        keys = sorted(k for k in self.db.scan_iter(count=10000)
                      if k.split("|", 1)[0] in rig.OUTPUT_TABLES)
        chosen = self.rng.sample(keys, min(len(keys), self.rng.randint(1, 8)))
        pipe = self.db.pipeline(transaction=False)
        for key in chosen:
            how = self.rng.randrange(5)
            if how == 0:
                pipe.delete(key)
            elif how == 1:
                pipe.hset(key, "foreign", "1")
            elif how == 2:
                pipe.delete(key)
                pipe.set(key, "foreign")
            else:
                fields = self.db.hgetall(key)
                if fields:
                    field = self.rng.choice(sorted(fields))
                    if how == 3:
                        pipe.hset(key, field, "0" if fields[field] != "0" else "1")
                    else:
                        pipe.hdel(key, field)
        if self.rng.random() < 0.3:
            pipe.hset("LABEL_TO_PW_INTF|999999", "pw", "Pseudowire99")
            chosen.append("LABEL_TO_PW_INTF|999999")
        if self.rng.random() < 0.2:
            pipe.delete("VPLS_AGENT_STATUS")
            chosen.append("VPLS_AGENT_STATUS")
        pipe.execute()
        self.count["foreign writes"] += 1
        self.count["keys written by others"] += len(chosen)
        self.since.append(f"{len(chosen)} of the agent's keys written by another client")
        if self.rng.random() < 0.5:
            self.settle()

    def flush(self):
        """Another client empties the database (FLUSHDB); the writer then writes its inputs
        again. The log entries since the agent's start are taken in the same transaction."""
        pipe = self.db.pipeline(transaction=True)
        pipe.xrange("VPLS_LOG", min="(" + self.log_start)
        pipe.flushdb()
        entries, _ = pipe.execute()
        self.log_flushed += [(i, log_entry(f)) for i, f in entries]
        self.log_start = "0-0"
        if not self.clean_slate:
            self.db.hset("L2_UCAST_HW_FEC_ID_RESPONSE|1", "hwFecIdResponse", "1")
        ops = self.writer.held_ops()
        self.write_pipelined(ops)
        self.count["changes"] += len(ops)
        self.count["flushes"] += 1
        self.since.append("FLUSHDB")

    def start_second_agent(self):
        """A second agent on the same database: it must stand by, say so once, and answer the
        show command with that line as its one error line."""
        slot = self.other()
        slot.start()
        self.count["second agents"] += 1
        self.since.append(f"agent {slot.name} started beside")
        deadline = time.monotonic() + 10
        while not any(line.startswith(STANDING_BY) for line in slot.lines()):
            if (not slot.running() or any(line.startswith(STARTED) for line in slot.lines())
                    or self.lease_pid() == slot.pid):
                # The active one was gone or had let the lease lapse (a server restart): the
                # settle points follow whichever runs.
                return
            if time.monotonic() > deadline:
                return self.problem(f"agent {slot.name}'s start", "it did not stand by within "
                                    "10 s", slot)
            time.sleep(0.05)
        show = subprocess.run([sys.executable, str(SHOW)], capture_output=True, text=True,
                              env={**os.environ, "MARL_SOCKET_DIR": slot.agent.socket_dir})
        said = show.stderr.splitlines()
        if show.returncode != 1 or len(said) != 1 or "standing by: the lease" not in said[0]:
            self.problem(f"agent {slot.name} standing by", "its show command answered "
                         f"{show.returncode}: {show.stdout[:200]!r} {show.stderr[:300]!r}", slot)

    def stop_active_agent(self):
        """SIGSTOP of the active agent, longer than the lease's expiry, while the second one
        stands by and changes go on: the second takes over; the stopped one, resumed, writes
        nothing, applies (records) no batch it had not begun, says it lost the lease and stands
        by."""
        if not self.standby():
            self.start_second_agent()
            if not self.standby() or self.lease_pid() != self.active.pid:
                return
        old, new = self.active, self.other()
        old.process.send_signal(signal.SIGSTOP)
        old.wait_stopped()
        self.stopped = old
        size = old.recording_size()  # what it recorded before it stopped
        recording = old.recording_id()
        self.count["sigstops"] += 1
        self.since.append(f"agent {old.name} SIGSTOP")
        deadline = time.monotonic() + 15
        while self.lease_pid() != new.pid and new.running():
            if time.monotonic() > deadline:
                self.problem(f"agent {old.name} stopped", f"agent {new.name} did not take "
                             "over within 15 s", new)
                break
            self.go_on(0.1)
        if self.lease_pid() == new.pid:
            self.hand_over()
            self.go_on(self.rng.uniform(0, 1.5))
            if self.active is new:
                self.settle()
        self.resume()
        if self.active is not new or not old.running():
            return  # the second one ended (an abort as it took over): the settle points follow
        deadline = time.monotonic() + 10
        while old.running() and not any(line.startswith(LOST_LEASE) for line in old.lines()):
            if time.monotonic() > deadline:
                self.problem(f"agent {old.name} resumed", "it did not say within 10 s that it "
                             "lost the lease", old)
                break
            self.go_on(0.1)
        # A stop can fall amid a batch, which the agent ends once resumed; it begins none.
        # (Unless the other one gave the lease up meanwhile: the resumed one may have taken
        # over again, which starts a new recording.)
        if old.recording_id() != recording and new.running() and self.lease_pid() == new.pid:
            self.problem(f"agent {old.name} resumed", "it started a new recording", old)
        elif old.recording_id() != recording:
            pass
        elif old.recording_size() < size:
            self.problem(f"agent {old.name} resumed", "it started its recording again", old)
        elif old.recording_size() > size:
            begun = [line for line in old.recording_lines(size)
                     if not json.loads(line).get("sameBatch")]
            if begun:
                self.problem(f"agent {old.name} resumed", f"it applied {len(begun)} batches "
                             f"after it was stopped, the first from {begun[0][:120]}", old)
        self.settle()

    def resume(self):
        """SIGCONT for the agent that the soak stopped, if any."""
        if self.stopped is not None and self.stopped.running():
            self.stopped.process.send_signal(signal.SIGCONT)
        self.stopped = None

    def chaos_fault(self):
        faults = [self.refuse_writes, self.switch_notifications, self.foreign_writes, self.flush,
                  self.stop_active_agent if self.standby() else self.start_second_agent,
                  self.stop_active_agent]
        self.rng.choice(faults)()

    # ---- Settle points ----

    def follow(self, status):
        """The agent that wrote the status is the active one: a takeover that the soak did not
        make (a lapsed lease taken by the standby) is followed. Returns a problem, if any."""
        pid = status.get("pid")
        if pid == str(self.active.pid):
            return None
        if pid == str(self.other().pid) and self.other().running():
            self.hand_over()
            return None
        return f"the status was written by pid {pid}, not by agent a or b"

    def blocked(self):
        """While a barrier waits: an active agent in state blocked is accepted when the runner
        stops at start-up on its recording with the same error (lastError "start-up: ...");
        the writer goes on, each change letting the agent try again. Returns whether it was."""
        status = self.db.hgetall("VPLS_AGENT_STATUS")
        if status.get("state") != "blocked":
            return False
        time.sleep(0.5)  # a start that a change set off ends first
        status = self.db.hgetall("VPLS_AGENT_STATUS")
        if status.get("state") != "blocked" or status.get("pid") not in {
                str(s.pid) for s in self.slots if s.running()}:
            return False
        if time.time() * 1000 - int(status.get("heartbeat") or 0) > HEARTBEAT_FRESH_MS:
            return False  # written before the server refused writes: the agent may run by now
        problem = self.follow(status)
        error = status.get("lastError", "")
        replay = Replay(self.sim, self.active.recording)
        if problem is None and not (
                error.startswith(STARTUP_ERROR) and replay.code == 1 and replay.raised and
                replay.event is None and replay.error == error[len(STARTUP_ERROR):]):
            problem = f"blocked by {error!r}; the runner: {replay}"
        if problem:
            self.problem(f"blocked agent {self.active.name}", problem)
        else:
            self.calm(settle_now=False)  # changes let it start again
            self.keep_accepted("blocked start-ups", self.active)
            self.since.append(f"blocked start-up ({error[len(STARTUP_ERROR):]})")
        return True

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
                if self.check_agents():
                    deadline = time.monotonic() + 60
                elif self.blocked():
                    return
                elif time.monotonic() > deadline:
                    self.active.stop(signal.SIGKILL)
                    self.crash(self.active, f"did not reach settle point {n} within 60 s")
                    self.replace_active()
                    deadline = time.monotonic() + 60
        status = self.db.hgetall("VPLS_AGENT_STATUS")
        problem = self.follow(status)
        slot = self.active
        replay = Replay(self.sim, slot.recording)
        where = (f"settle point {n} (agent {slot.name} start {slot.starts}, "
                 f"{slot.recording.name}; since the last one: "
                 f"{', '.join(self.since) or 'changes only'})")
        self.since = []
        actual = {"outputs": redis_rows(self.db, rig.OUTPUT_TABLES),
                  "logs": self.log_flushed + log_entries(self.db, self.log_start),
                  "inputs": redis_inputs(self.db), "status": status,
                  "log stream": {"since": self.log_start, "removed by FLUSHDB":
                                 len(self.log_flushed), "runner's entries passed": self.log_skip,
                                 "agents before": [r and r.name for r in self.handed_over]}}
        if problem is None and replay.raised and replay.event is not None:
            problem = self.range_error_problem(slot, replay, status.get("lastError"))
            if problem is None:
                # Accepted; the agent goes on past what the runner replays: it starts again.
                self.calm()
                self.keep_accepted("range errors", slot)
                self.since.append(f"range error ({replay.error})")
                return self.restart_active()
        elif problem is None and replay.code != 0:
            problem = f"the runner stopped ({replay})"
        elif problem is None:
            self.writer.learn(replay.state)
            problem = self.compare(replay.state, actual)
            if not problem:
                self.writer.avoid = self.avoid
        if problem:
            actual["logs"] = [{"stream id": i, **e} for i, e in actual["logs"]]
            self.problem(where, problem, slot, actual)

    def compare(self, state, actual):
        """What differs between Redis and the runner's replay of the recording, if anything."""
        problems = []
        for what, expected, found in (
                ("outputs", rig.expected_rows(state), actual["outputs"]),
                ("inputs", recorded_inputs(self.active.recording), actual["inputs"])):
            keys = differing_keys(expected, found)
            if keys:
                problems.append(f"{what} differ at {', '.join(keys[:3])}"
                                + (f" (+{len(keys) - 3} more)" if len(keys) > 3 else ""))
        problems.append(self.log_problem(state["logs"], actual["logs"]))
        if actual["status"].get("state") != "running":
            problems.append(f"the agent's state is {actual['status'].get('state')!r}")
        return "; ".join(p for p in problems if p)

    def log_problem(self, expected, entries):
        """Whether the log entries since the agent started are the runner's. After a takeover
        the entries of the agent before come first: a prefix of its recording's (it may have
        been stopped before it wrote them all). Once checked, they are left out from then on."""
        found = [e for _, e in entries]
        expected = expected[self.log_skip:]
        handed_over, self.handed_over = self.handed_over, []
        before = len(found) - len(expected) if handed_over else 0
        if before < 0 or found[before:] != expected:
            found = found[max(before, 0):]
            # Said once: the next settle points compare what comes after.
            self.log_skip += len(expected)
            if len(entries) > len(self.log_flushed):
                self.log_start = entries[-1][0]
            self.log_flushed = []
            return (f"logs differ from entry {first_difference(found, expected)} (Redis "
                    f"{len(found)}, runner {len(expected)})")
        if len(handed_over) == 1 and handed_over[0] and before > 0:
            previous = Replay(self.sim, handed_over[0])
            if previous.code == 0 and found[:before] != previous.state["logs"][:before]:
                return (f"the log entries before the takeover are not those of "
                        f"{handed_over[0].name} ({before} entries)")
        if before > len(self.log_flushed):
            self.log_start = entries[before - 1][0]
        self.log_flushed = self.log_flushed[before:]
        return None

    def keep_files(self, name, dump, slot):
        """The agent's recording, what each agent process said, and a dump of Redis, for a
        fault; returns where."""
        if self.fault_dir is None:
            self.fault_dir = pathlib.Path(tempfile.mkdtemp(prefix="vpls-soak-faults."))
        where = self.fault_dir / name
        where.mkdir(parents=True, exist_ok=True)
        if slot.recording and slot.recording.exists():
            shutil.copy(slot.recording, where)
        for other in self.slots:
            if other.agent.log.exists():
                (where / f"agent-{other.name}.log").write_text("\n".join(other.lines()) + "\n")
        if dump:
            (where / "redis.json").write_text(json.dumps(dump, indent=1, sort_keys=True))
        return where

    # ---- The run ----

    def run(self, seconds):
        began = time.monotonic()
        end = began + seconds
        # An agent restart every 20 to 40 s, a server restart every 60 to 90 s and, with chaos,
        # another fault every 3 to 8 s; closer together in a run shorter than two minutes, so
        # that it has each.
        self.pace = min(1.0, seconds / 120)
        self.start_active()
        next_agent = began + self.pace * self.rng.uniform(20, 40)
        next_server = began + self.pace * self.rng.uniform(60, 90)
        next_chaos = began + self.pace * self.rng.uniform(3, 8) if self.args.chaos else end
        next_settle = began + self.rng.uniform(1, 5)
        while time.monotonic() < end:
            if self.settle_now:
                self.settle_now = False
                self.settle()
                next_settle = time.monotonic() + self.rng.uniform(1, 5)
                continue
            self.burst()
            if self.check_agents():
                continue
            now = time.monotonic()
            if now >= next_server:
                self.restart_server()
                next_server = now + self.pace * self.rng.uniform(60, 90)
            elif now >= next_agent:
                self.restart_active()
                next_agent = now + self.pace * self.rng.uniform(20, 40)
            elif now >= next_chaos:
                self.chaos_fault()
                next_chaos = time.monotonic() + self.pace * self.rng.uniform(3, 8)
            if now >= next_settle:
                self.settle()
                next_settle = time.monotonic() + self.rng.uniform(1, 5)
            time.sleep(self.rng.uniform(0, 0.25))
        self.settle()
        for _ in range(5):  # the settle point after a fault of the library's, if one came last
            if not self.settle_now:
                break
            self.settle_now = False
            self.settle()
        for slot in (self.other(), self.active):
            if slot.running():
                slot.wait_running()
                try:
                    code = slot.stop(signal.SIGTERM)
                except subprocess.TimeoutExpired:
                    code = "a timeout"
                if code != 0:
                    self.crash(slot, f"exited with {code} after the final SIGTERM")
        return self.summary((time.monotonic() - began) / 60)

    def summary(self, minutes):
        c = self.count
        rows = [("changes written", f"{c['changes']} ({c['writes refused']} refused by the "
                                    "server and written again)"),
                ("agent kills", f"{c['kills']} (SIGKILL)"),
                ("agent stops", f"{c['stops']} (SIGTERM)"),
                ("server restarts", c["server restarts"])]
        if self.args.chaos:
            rows += [("write refusals", f"{c['write refusals']} (maxmemory 1, noeviction)"),
                     ("notification switches", f"{c['notification switches']} (off or narrowed, "
                                               "then back)"),
                     ("foreign writes", f"{c['foreign writes']} ({c['keys written by others']} "
                                        "keys deleted or changed)"),
                     ("flushes", f"{c['flushes']} (FLUSHDB)"),
                     ("second agents", f"{c['second agents']} (started beside the active one)"),
                     ("takeovers", c["takeovers"]),
                     ("agent SIGSTOPs", f"{c['sigstops']} (longer than the lease)")]
        rows += [("aborts", f"{c['aborts']} (as the runner's)"),
                 ("range errors", f"{c['range errors']} (as the runner's)"),
                 ("blocked start-ups", f"{c['blocked start-ups']} (as the runner's)"),
                 ("settle points", c["settle points"]),
                 ("mismatches", c["mismatches"]),
                 ("crashes", c["crashes"])]
        print(f"soak: seed {self.args.seed}, {self.mode}, {minutes:.1f} minutes\n" +
              "\n".join(f"  {name:<22} {value}" for name, value in rows), flush=True)
        if self.fault_dir and (c["mismatches"] or c["crashes"]):
            print(f"soak: recordings and dumps of the faults are in {self.fault_dir}")
        return 0 if c["mismatches"] == 0 and c["crashes"] == 0 else 1

    def close(self):
        for slot in self.slots:
            slot.stop(signal.SIGKILL)
        self.db.close()
        self.server.stop()


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--agent", required=True, help="the vpls-decap-agent binary")
    parser.add_argument("--sim", required=True, help="the vpls-decap-sim binary")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--seconds", type=float, help="the duration in seconds instead")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().randrange(1 << 31))
    parser.add_argument("--chaos", action="store_true",
                        help="faults of the server, other clients and a second agent too")
    parser.add_argument("--avoidance", choices=("on", "off"),
                        help="keep the writer clear of the library's assertions and range "
                             "errors (default: off with --chaos, else on)")
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
