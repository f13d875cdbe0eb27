"""The agent daemon against a real redis-server: the example scenarios written into Redis
event by event give, after each event's barrier, exactly the outputs of the scenario runner
(across agent restarts by SIGTERM and SIGKILL); a settled restart writes no output key; bad
input is named and treated as absent; a server restart is survived; a recording replays to
the same outputs and a restart keeps the earlier one; as a service, the agent is ready only once
its start-up is written and feeds the watchdog, its lines carry priorities in the journal, a
database the server does not have is a usage error, and its unit verifies.

Needs $VPLS_DECAP_AGENT and $VPLS_DECAP_SIM (CTest sets them) and Debian's python3-redis."""

import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import agent_rig as rig  # noqa: E402

SOURCE = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = sorted((SOURCE / "examples").glob("*.json"))


def runner_states(scenario_path):
    """The runner's state after start-up and after every event."""
    out = subprocess.run([os.environ["VPLS_DECAP_SIM"], "run", str(scenario_path), "--json",
                          "--each"], capture_output=True, text=True, check=True).stdout
    return [json.loads(line) for line in out.splitlines()]


class AgentCase(unittest.TestCase):
    def setUp(self):
        self.prepare()

    def prepare(self):
        """A fresh directory and server (a test may take several)."""
        for name in ("VPLS_DECAP_AGENT", "VPLS_DECAP_SIM"):
            if not os.environ.get(name):
                self.skipTest(name + " is not set")
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)
        self.server = rig.RedisServer(self.dir.name)
        self.addCleanup(self.server.stop)
        self.db = self.server.client()
        self.addCleanup(lambda: self.db.close())

    def agent(self, args=(), env=None):
        agent = rig.Agent(os.environ["VPLS_DECAP_AGENT"], self.server.url, self.dir.name, args,
                          env)
        self.addCleanup(agent.stop, signal.SIGKILL)
        agent.start()
        return agent

    def assertOutputs(self, state, where, agent):
        expected = rig.expected_rows(state)
        actual = rig.output_rows(self.db)
        if actual != expected:
            missing = sorted(k for k, v in expected.items() if actual.get(k) != v)
            extra = sorted(k for k, v in actual.items() if expected.get(k) != v)
            self.fail(f"{where}: outputs differ\n expected, not found ({len(missing)}): "
                      f"{missing[:5]}\n found, not expected ({len(extra)}): {extra[:5]}\n"
                      f"agent:\n{agent.output()[-3000:]}")
        self.assertEqual(rig.logs(self.db), state["logs"], where)


class Examples(AgentCase):
    """Each example scenario, event by event, through Redis."""

    def play(self, path, restart_signal):
        scenario = json.loads(path.read_text())
        states = runner_states(path)
        for op in scenario.get("before", []):
            rig.write_op(self.db, op)
        if not scenario.get("cleanSlate", True):
            self.db.hset("L2_UCAST_HW_FEC_ID_RESPONSE|1", "hwFecIdResponse", "1")
        env = rig.toggle_env(self.dir.name, scenario.get("toggles"))
        agent = self.agent(["--mesh-groups", str(scenario.get("meshGroups", 4)),
                            "--chip-rows", str(scenario.get("chipRows", 131071))], env)
        rig.barrier(self.db, "start")
        self.assertOutputs(states[0]["state"], f"{path.name} after start-up", agent)
        for i, op in enumerate(scenario.get("events", [])):
            if op["op"] == "restart":
                self.assertEqual(agent.stop(restart_signal), 0 if restart_signal ==
                                 signal.SIGTERM else -signal.SIGKILL)
                agent.start()
            elif op["op"] in ("set", "del"):
                rig.write_op(self.db, op)
            rig.barrier(self.db, f"event {i}")
            self.assertOutputs(states[i + 1]["state"], f"{path.name} after event {i} {op}", agent)
            if op["op"] == "show":
                # The chip's rows outlive the agent: the answer is the runner's, byte for byte.
                answer = ask(pathlib.Path(agent.socket_dir) / "MarlTunnelVpls",
                             f"vplsDecap {op.get('args', '')}\n".encode())
                self.assertEqual(answer, states[i + 1]["show"], f"{path.name} event {i}")
        return agent, states[-1]["state"]

    def test_examples_match_the_runner_after_every_event(self):
        for path in EXAMPLES:
            with self.subTest(example=path.name):
                self.prepare()
                self.play(path, signal.SIGTERM)

    def test_restarts_by_sigkill_match_the_runner(self):
        for name in ("agent-restart.json", "full-chip.json"):
            with self.subTest(example=name):
                self.prepare()
                self.play(SOURCE / "examples" / name, signal.SIGKILL)

    def test_a_settled_restart_writes_only_what_the_restart_changes(self):
        example = SOURCE / "examples" / "split-horizon-groups.json"
        agent, state = self.play(example, signal.SIGTERM)
        # What the runner's restart changes over the same state (the start-up walk's rules).
        scenario = json.loads(example.read_text())
        scenario["events"].append({"op": "restart"})
        restarted = pathlib.Path(self.dir.name) / "restarted.json"
        restarted.write_text(json.dumps(scenario))
        before, after = (rig.expected_rows(s["state"]) for s in runner_states(restarted)[-2:])
        changed = {k for k in before.keys() | after.keys() if before.get(k) != after.get(k)}

        watcher = self.db.pubsub()
        self.addCleanup(watcher.close)
        watcher.psubscribe("__keyspace@0__:*")
        agent.stop(signal.SIGTERM)
        agent.start()
        rig.barrier(self.db, "settled")
        written = set()
        while (message := watcher.get_message(timeout=0.2)) is not None:
            if message["type"] == "pmessage":
                written.add(message["channel"].split(":", 1)[1])
        outputs = {k for k in written if k.split("|", 1)[0] in rig.OUTPUT_TABLES}
        self.assertEqual(outputs, changed, agent.output())
        self.assertOutputs(runner_states(restarted)[-1]["state"], "after the restart", agent)


class Faults(AgentCase):
    BEFORE = [
        {"op": "set", "table": "vplsPwIntfInfo", "key": pw, "value": {"vplsInstanceName": "v1"}}
        for pw in ("Pseudowire1", "Pseudowire2")] + [
        {"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 1001},
        {"op": "set", "table": "decapLabel", "key": "Pseudowire2", "value": 1002},
        {"op": "set", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 10},
         "value": 10},
        {"op": "set", "table": "vlanTagInfo", "key": {"pw": "Pseudowire2", "vlan": 10},
         "value": 10}] + [
        {"op": "set", "table": "encapHwFecId", "key": pw,
         "value": {"hwFecId": 4000 + n, "globalInLif": 8000 + n}}
        for n, pw in ((1, "Pseudowire1"), (2, "Pseudowire2"))]

    def scenario_file(self, events):
        path = pathlib.Path(self.dir.name) / "equivalent.json"
        path.write_text(json.dumps({"before": self.BEFORE, "events": events}))
        return path

    def test_bad_input_is_named_and_treated_as_absent(self):
        def delete(table, key):
            return [{"op": "del", "table": table, "key": key}]
        # What is written, what the agent must say, and what the write then amounts to.
        rows = [
            (("hset", "VPLS_DECAP_LABEL|Pseudowire2", {"label": "abc"}),
             "VPLS_DECAP_LABEL|Pseudowire2: field label: \"abc\" is not a number",
             delete("decapLabel", "Pseudowire2")),
            (("hset", "VPLS_DECAP_LABEL|Pseudowire2", {"label": "1048576"}),
             "is not a number from 0 to 1048575", []),
            (("hset", "VPLS_VLAN_TAG_INFO|Pseudowire2|5000", {"tag": "1"}),
             "VPLS_VLAN_TAG_INFO|Pseudowire2|5000: the key does not parse", []),
            (("hset", "VPLS_DECAP_LABEL|Pseudowire0", {"label": "5"}),
             "is not an interface name", []),
            (("hset", "VPLS_ENCAP_HW_FEC_ID|Pseudowire2", {"hwFecId": "-1", "globalInLif": "1"}),
             "field hwFecId: \"-1\"", delete("encapHwFecId", "Pseudowire2")),
            (("hset", "VPLS_PW_INTF_INFO|Pseudowire2", {"vplsInstanceName": "a|b"}),
             "contains '|'", delete("vplsPwIntfInfo", "Pseudowire2")),
            (("set", "VPLS_VLAN_TAG_INFO|Pseudowire2|10", "10"),
             "VPLS_VLAN_TAG_INFO|Pseudowire2|10: holds a value of another type",
             delete("vlanTagInfo", {"pw": "Pseudowire2", "vlan": 10})),
            (("hset", "VPLS_DECAP_LABEL|Pseudowire1", {"label": "1001", "color": "red"}),
             "field \"color\" is not one of this table's", delete("decapLabel", "Pseudowire1")),
            (("hset", "VTEP_TYPE_STATUS|vxlanPresent", {"value": "yes"}),
             "VTEP_TYPE_STATUS|vxlanPresent: field value: \"yes\" is not a boolean",
             [{"op": "set", "table": "vxlanPresent", "value": False}]),
            (("hdel", "VPLS_DECAP_LABEL|Pseudowire1", "color"), None,
             [{"op": "set", "table": "decapLabel", "key": "Pseudowire1", "value": 1001}]),
        ]
        events = []
        for _, _, equivalent in rows:
            events += equivalent + [{"op": "show", "args": "None None None"}]
        states = runner_states(self.scenario_file(events))
        for op in self.BEFORE:
            rig.write_op(self.db, op)
        agent = self.agent()
        rig.barrier(self.db, "start")
        step = 0
        for (command, key, value), said, equivalent in rows:
            if command == "set":
                self.db.delete(key)
                self.db.set(key, value)
            elif command == "hdel":
                self.db.hdel(key, value)
            else:
                self.db.hset(key, mapping=value)
            rig.barrier(self.db, key + str(step))
            step += len(equivalent) + 1
            self.assertOutputs(states[step]["state"], f"after {key} = {value}", agent)
            if said:
                self.assertIn(said, agent.output())
        self.assertIsNone(agent.process.poll(), "the agent stopped")

    def test_each_write_of_an_attribute_key_is_one_set_of_it(self):
        def attribute(name, value):
            return {"op": "set", "table": name, "value": value}
        # The writes, each settled by a barrier; a tuple is written in one pipeline.
        steps = [attribute("startupSyncDone", True), attribute("restartDone", True),
                 attribute("restartDone", True),  # the same value: a set, as the runner's
                 (attribute("vxlanPresent", True), attribute("vxlanDciConfigured", True)),
                 "del VPLS_DECAP_CONFIG|restartDone",  # a deleted key is false
                 "old hash"]  # the one hash of two attributes is no input
        events = [attribute("startupSyncDone", True), attribute("restartDone", True),
                  attribute("restartDone", True), attribute("vxlanPresent", True),
                  attribute("vxlanDciConfigured", True), attribute("restartDone", False)]
        states = runner_states(self.scenario_file(events))
        for op in self.BEFORE:
            rig.write_op(self.db, op)
        record = pathlib.Path(self.dir.name) / "recording.jsonl"
        agent = self.agent(["--record", str(record)])
        rig.barrier(self.db, "start")
        done = 0
        for i, step in enumerate(steps):
            if step == "old hash":
                self.db.hset("VPLS_DECAP_CONFIG", mapping={"restartDone": "true"})
            elif isinstance(step, str):
                self.db.delete(step.split(" ", 1)[1])
                done += 1
            else:
                with self.db.pipeline(transaction=False) as pipe:
                    for op in step if isinstance(step, tuple) else (step,):
                        rig.write_op(pipe, op)
                        done += 1
                    pipe.execute()
            rig.barrier(self.db, f"step {i}")
            self.assertOutputs(states[done]["state"], f"after {step}", agent)
        agent.stop(signal.SIGKILL)
        recorded = [json.loads(line) for line in record.read_text().splitlines()[1:]]
        self.assertEqual([{k: v for k, v in op.items() if k != "sameBatch"} for op in recorded],
                         events)
        self.assertOutputs(runner_states(record)[-1]["state"], "the recording replayed", agent)

    def test_a_server_restart_is_survived(self):
        self.server.stop()
        self.server = rig.RedisServer(self.dir.name, persistent=True)
        self.addCleanup(self.server.stop)
        self.db = self.server.client()
        for op in self.BEFORE:
            rig.write_op(self.db, op)
        states = runner_states(self.scenario_file([]))
        agent = self.agent()
        rig.barrier(self.db, "before")
        self.server.process.terminate()  # a clean stop writes the append-only file
        self.server.process.wait()
        # Down: the show command still answers from memory.
        answer = ask(pathlib.Path(agent.socket_dir) / "MarlTunnelVpls")
        self.assertIn("1001", answer)
        self.server.start()
        self.db = self.server.client()
        rig.barrier(self.db, "after")
        self.assertOutputs(states[-1]["state"], "after the server restart", agent)
        self.assertIn("lost the state database", agent.output())
        rig.write_op(self.db, {"op": "del", "table": "decapLabel", "key": "Pseudowire2"})
        rig.barrier(self.db, "changed")
        states = runner_states(self.scenario_file(
            [{"op": "del", "table": "decapLabel", "key": "Pseudowire2"}]))
        self.assertOutputs(states[-1]["state"], "a change after the restart", agent)

    def test_changes_made_while_the_agent_is_disconnected_are_caught_up(self):
        for op in self.BEFORE:
            rig.write_op(self.db, op)
        agent = self.agent()
        rig.barrier(self.db, "before")
        change = [{"op": "del", "table": "decapLabel", "key": "Pseudowire2"},
                  {"op": "set", "table": "vlanTagInfo", "key": {"pw": "Pseudowire1", "vlan": 20},
                   "value": 20}]
        self.db.client_kill_filter(_type="normal", skipme=True)
        self.db.client_kill_filter(_type="pubsub")
        for op in change:  # before the agent is back: no notification reaches it
            rig.write_op(self.db, op)
        rig.barrier(self.db, "after")
        self.assertOutputs(runner_states(self.scenario_file(change))[-1]["state"],
                           "after catching up", agent)
        self.assertIn("resynchronised", agent.output())

    def test_the_agent_waits_for_a_server_that_is_not_there_yet(self):
        self.server.stop()
        agent = self.agent()
        time.sleep(0.5)
        self.assertIsNone(agent.process.poll())
        self.server.start()
        self.db = self.server.client()
        rig.barrier(self.db, "up")
        self.assertEqual(agent.output().count("waiting for the state database"), 1)


class Recording(AgentCase):
    def test_a_recording_replays_to_the_same_outputs(self):
        record = pathlib.Path(self.dir.name) / "recording.jsonl"
        example = json.loads((SOURCE / "examples" / "vxlan-regimes.json").read_text())
        half = len(example["before"]) // 2
        for op in example["before"][:half]:
            rig.write_op(self.db, op)
        agent = self.agent(["--record", str(record)])
        rig.barrier(self.db, "start")
        for op in example["before"][half:] + example.get("events", []):
            if op["op"] in ("set", "del"):
                rig.write_op(self.db, op)
        rig.barrier(self.db, "done")
        agent.stop(signal.SIGKILL)
        replayed = runner_states(record)[-1]["state"]
        self.assertOutputs(replayed, "the recording replayed", agent)

        # Cut inside its last line, as a kill while writing it would leave it.
        lines = record.read_bytes().splitlines(keepends=True)
        record.write_bytes(b"".join(lines[:-1]) + lines[-1][:-5])
        shorter = pathlib.Path(self.dir.name) / "shorter.jsonl"
        shorter.write_bytes(b"".join(lines[:-1]))
        run = subprocess.run([os.environ["VPLS_DECAP_SIM"], "run", str(record), "--json"],
                             capture_output=True, text=True)
        self.assertEqual(run.returncode, 0, run.stderr)
        self.assertIn("incomplete", run.stderr)
        self.assertEqual(json.loads(run.stdout), runner_states(shorter)[-1]["state"])

    def test_a_restart_keeps_the_earlier_recordings(self):
        record = pathlib.Path(self.dir.name) / "recording.jsonl"
        changed = 1764045015  # 2025-11-25 04:30:15 UTC, the time the earlier ones last changed
        kept = []
        # Each start moves the one before aside; the second one's name is taken by the first.
        for start, name in enumerate(("recording.jsonl.20251125T043015Z",
                                      "recording.jsonl.20251125T043015Z.1", None)):
            rig.write_op(self.db, Faults.BEFORE[start])
            agent = self.agent(["--record", str(record)])
            rig.barrier(self.db, f"start {start}")
            self.assertEqual(agent.stop(), 0)
            if name:
                os.utime(record, (changed, changed))
                kept.append((record.parent / name, record.read_bytes()))
        for path, content in kept:
            self.assertEqual(path.read_bytes(), content, path)
            self.assertIn(f"the earlier recording {record} is kept as {path}", agent.output())
        self.assertEqual(len(record.read_bytes().splitlines()), 1)  # the third start's header
        self.assertEqual(sorted(p.name for p in record.parent.glob("recording.jsonl*")),
                         ["recording.jsonl", "recording.jsonl.20251125T043015Z",
                          "recording.jsonl.20251125T043015Z.1"])


class Service(AgentCase):
    """The agent as systemd runs it: readiness, watchdog and stop through $NOTIFY_SOCKET, log
    priorities when stderr is the journal, a database the server does not have, the unit."""

    def scenario_states(self, ops):
        path = pathlib.Path(self.dir.name) / "scenario.json"
        path.write_text(json.dumps({"before": ops}))
        return runner_states(path)

    def test_ready_once_the_start_up_is_written_then_the_watchdog_until_stopping(self):
        notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(notify.close)
        notify.bind(str(pathlib.Path(self.dir.name) / "notify.sock"))
        notify.settimeout(20)
        for op in Faults.BEFORE:
            rig.write_op(self.db, op)
        expected = rig.expected_rows(self.scenario_states(Faults.BEFORE)[-1]["state"])
        # Writes wait while the agent reads and starts: a READY=1 sent before its start-up is
        # written would arrive while the outputs are not there.
        self.db.execute_command("CLIENT", "PAUSE", "1000", "WRITE")
        agent = self.agent(env={"NOTIFY_SOCKET": notify.getsockname(), "WATCHDOG_USEC": "200000"})

        def messages():
            while True:
                yield notify.recv(4096).decode()

        received = messages()
        ready = next(m for m in received if "READY=1" in m)
        self.assertEqual(rig.output_rows(self.db), expected, agent.output())
        self.assertIn("STATUS=running on the state database", ready)
        for _ in range(3):  # a receive that times out fails the test
            next(m for m in received if m == "WATCHDOG=1")
        # A second agent stands by: settled too, so ready, with the reason as its status.
        standby_dir = pathlib.Path(self.dir.name) / "standby"
        standby_dir.mkdir()
        standby = rig.Agent(os.environ["VPLS_DECAP_AGENT"], self.server.url, standby_dir,
                            env={"NOTIFY_SOCKET": notify.getsockname()})
        self.addCleanup(standby.stop, signal.SIGKILL)
        standby.start()
        next(m for m in received if m.startswith("READY=1\nSTATUS=standing by: the lease"))
        agent.process.send_signal(signal.SIGTERM)
        self.assertTrue(any(m == "STOPPING=1" for m in received))
        self.assertEqual(agent.stop(), 0)

    def test_lines_carry_their_priority_only_when_stderr_is_the_journal(self):
        example = json.loads((SOURCE / "examples" / "vxlan-regimes.json").read_text())
        # JOURNAL_STREAM naming stderr's file (as "device:inode"), or another file.
        for names_stderr, starting, bad, library in (
                (True, "<6>starting;", "<4>bad input: VPLS_DECAP_LABEL|Pseudowire9",
                 "<3>MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN: "),
                (False, "vpls-decap-agent: starting;",
                 "vpls-decap-agent: bad input: VPLS_DECAP_LABEL|Pseudowire9",
                 "MARL_VPLS_SPLIT_HORIZON_REDUCED_WITH_VXLAN: ")):
            with self.subTest(names_stderr=names_stderr):
                self.prepare()
                log = pathlib.Path(self.dir.name) / "agent.log"
                log.touch()
                status = log.stat()
                stream = f"{status.st_dev}:{status.st_ino + (0 if names_stderr else 1)}"
                for op in example["before"]:
                    rig.write_op(self.db, op)
                agent = self.agent(env={"JOURNAL_STREAM": stream})
                rig.write_op(self.db, example["events"][0])  # VXLAN: the library logs
                self.db.hset("VPLS_DECAP_LABEL|Pseudowire9", "label", "abc")
                rig.barrier(self.db, "logged")
                self.assertEqual(agent.stop(), 0)
                lines = agent.output().splitlines()
                for expected in (starting, bad, library):
                    self.assertTrue(any(line.startswith(expected) for line in lines),
                                    f"no line starts with {expected!r}:\n{agent.output()}")
                prefixed = [line.startswith("<") for line in lines]
                self.assertEqual(prefixed, [names_stderr] * len(lines), agent.output())

        # A usage error in the journal: the error, then the usage text, every line prefixed.
        with open(log, "w") as stderr:
            status = os.fstat(stderr.fileno())
            usage = subprocess.run(
                [os.environ["VPLS_DECAP_AGENT"], "--color"], stderr=stderr, timeout=30,
                env={**os.environ, "JOURNAL_STREAM": f"{status.st_dev}:{status.st_ino}"})
        self.assertEqual(usage.returncode, 2)
        lines = log.read_text().splitlines()
        self.assertEqual(lines[:2], ["<3>unknown option '--color'", "<6>usage: vpls-decap-agent "
                                     "--redis URL [--db N] [--socket-dir DIR] [--mesh-groups N]"])
        self.assertTrue(all(line.startswith("<6>") for line in lines[1:]), lines)

    def test_a_database_the_server_does_not_have_is_a_usage_error(self):
        for op in Faults.BEFORE:
            rig.write_op(self.db, op)
        keys = sorted(self.db.keys())
        run = subprocess.run([os.environ["VPLS_DECAP_AGENT"], "--redis", self.server.url,
                              "--db", "99", "--socket-dir", self.dir.name],
                             capture_output=True, text=True, timeout=10)
        self.assertEqual(run.returncode, 2, run.stderr)
        refusals = [line for line in run.stderr.splitlines() if "--db" in line]
        self.assertEqual(refusals, [f"vpls-decap-agent: --db 99: the state database at "
                                    f"{self.server.url} refused it (ERR DB index is out of "
                                    f"range); the server has 16 databases, 0 to 15"])
        self.assertEqual(sorted(self.db.keys()), keys, "the agent ran on database 0")

    def test_the_unit_verifies(self):
        analyze = shutil.which("systemd-analyze")
        if analyze is None:
            self.skipTest("no systemd-analyze")
        unit = pathlib.Path(self.dir.name) / "vpls-decap-agent.service"
        unit.write_text((SOURCE / "packaging" / "vpls-decap-agent.service.in").read_text()
                        .replace("@BINDIR@", str(pathlib.Path(os.environ["VPLS_DECAP_AGENT"])
                                                 .parent))
                        .replace("@DOCDIR@", "/usr/share/doc/vpls-decap")
                        .replace("@SYSCONFDIR@", "/etc"))
        run = subprocess.run([analyze, "verify", "--man=no", str(unit)], capture_output=True,
                             text=True, timeout=60)
        self.assertEqual((run.returncode, run.stdout + run.stderr), (0, ""))
        for setting in ("Type=notify", "NotifyAccess=main", "WatchdogSec=", "Restart=on-failure",
                        "RestartPreventExitStatus=2"):
            self.assertIn("\n" + setting, unit.read_text())


def ask(path, request=b"vplsDecap None None None\n"):
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        client.settimeout(10)
        client.connect(str(path))
        client.sendall(request)
        chunks = []
        while chunk := client.recv(1 << 16):
            chunks.append(chunk)
    return b"".join(chunks).decode()


if __name__ == "__main__":
    unittest.main()
