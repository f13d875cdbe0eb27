"""The agent's promises off the happy path, on a real redis-server: whatever happens to the
server between two barriers (writes refused, the notification setting switched off and back,
other clients writing or deleting the agent's keys, a FLUSHDB), the next barrier is
acknowledged only with the runner's outputs in Redis; one agent writes, a second stands by and
takes over, and an agent that lost its lease writes nothing; the status says who runs and how.

Needs $VPLS_DECAP_AGENT and $VPLS_DECAP_SIM (CTest sets them) and Debian's python3-redis."""

import json
import os
import pathlib
import signal
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import agent_rig as rig  # noqa: E402
import test_agent_redis as base  # noqa: E402

EXAMPLE = base.SOURCE / "examples" / "split-horizon-groups.json"
SHOW = base.SOURCE / "frontend" / "show-vpls-decap"


def example_ops():
    scenario = json.loads(EXAMPLE.read_text())
    return scenario, scenario.get("before", []) + scenario["events"]


def write(client, ops):
    pipe = client.pipeline(transaction=False)
    for op in ops:
        rig.write_op(pipe, op)
    pipe.execute()


class Faults(base.AgentCase):
    def setUp(self):
        super().setUp()
        self.scenario, self.ops = example_ops()
        self.half = len(self.ops) // 2
        self.flushed_logs = []

    def start(self, directory=None):
        """An agent recording what it applies into its directory's recording.jsonl."""
        directory = pathlib.Path(directory or self.dir.name)
        args = ["--mesh-groups", str(self.scenario.get("meshGroups", 4)),
                "--record", str(directory / "recording.jsonl")]
        agent = rig.Agent(os.environ["VPLS_DECAP_AGENT"], self.server.url, directory, args)
        self.addCleanup(agent.stop, signal.SIGKILL)
        agent.start()
        return agent

    def assertRunnersOutputs(self, agent, where):
        """Redis holds what the runner makes of the agent's recording (its log stream after
        the entries that a FLUSHDB took)."""
        final = base.runner_states(agent.dir / "recording.jsonl")[-1]["state"]
        flushed = rig.log_entries(self.flushed_logs)
        self.assertEqual(final["logs"][:len(flushed)], flushed, where)
        final["logs"] = final["logs"][len(flushed):]
        self.assertOutputs(final, where, agent)

    def test_each_fault_ends_in_the_runners_outputs_before_the_barrier(self):
        def refuse(db, rest):
            pipe = db.pipeline(transaction=False)
            for op in rest:
                rig.write_op(pipe, op)
            pipe.config_set("maxmemory-policy", "noeviction")
            pipe.config_set("maxmemory", "1")
            pipe.execute()
            time.sleep(1.5)  # the agent's writes are refused meanwhile
            db.config_set("maxmemory", "0")

        def notifications_off(db, rest):
            db.config_set("notify-keyspace-events", "")
            write(db, rest)
            db.config_set("notify-keyspace-events", "KEA")

        def foreign_writes(db, rest):
            write(db, rest)
            rig.barrier(db, "written")
            outputs = sorted(rig.output_rows(db))
            db.delete(*outputs[:3])
            db.hset(outputs[3], "extra", "1")
            db.hset(outputs[4], mapping={k: "0" for k in db.hgetall(outputs[4])})
            db.hset("LABEL_TO_PW_INTF|999999", "pw", "Pseudowire99")
            db.delete("VPLS_SM_STATUS")

        def flush(db, rest):
            # While the agent applies the rest: the log entries that the flush takes are kept
            # and must not be written again (the agent's transactions under way ran).
            write(db, rest)
            pipe = db.pipeline(transaction=True)
            pipe.xrange("VPLS_LOG")
            pipe.flushdb()
            self.flushed_logs = pipe.execute()[0]
            write(db, self.ops)

        for fault in (refuse, notifications_off, foreign_writes, flush):
            with self.subTest(fault.__name__):
                if fault is not refuse:
                    self.prepare()
                agent = self.start()
                rig.barrier(self.db, "empty")
                write(self.db, self.ops[:self.half])
                rig.barrier(self.db, "half")
                fault(self.db, self.ops[self.half:])
                rig.barrier(self.db, "after")
                self.assertRunnersOutputs(agent, fault.__name__)
                status = self.db.hgetall("VPLS_AGENT_STATUS")
                self.assertEqual(status["state"], "running")
                if fault is refuse:
                    self.assertGreater(int(status["refusedWrites"]), 0)
                    self.assertIn("OOM", status["lastRefusal"])
                agent.stop(signal.SIGKILL)

    def test_one_writer_a_standby_takes_over_and_a_stopped_agent_writes_nothing(self):
        first = self.start()
        rig.barrier(self.db, "empty")
        second_dir = pathlib.Path(self.dir.name) / "second"
        second_dir.mkdir()
        second = self.start(second_dir)
        write(self.db, self.ops[:self.half])
        rig.barrier(self.db, "half")
        self.assertIn(f"pid {first.process.pid} ", self.db.get("VPLS_AGENT_LEASE"))
        deadline = time.monotonic() + 30
        while "standing by" not in second.output():
            self.assertLess(time.monotonic(), deadline, "the second agent did not stand by")
            time.sleep(0.05)
        show = subprocess.run([sys.executable, str(SHOW)], capture_output=True, text=True,
                              env={**os.environ, "MARL_SOCKET_DIR": str(second_dir / "sockets")})
        self.assertEqual(show.returncode, 1)
        self.assertIn("standing by: the lease VPLS_AGENT_LEASE is held by", show.stderr)

        first.process.send_signal(signal.SIGSTOP)
        deadline = time.monotonic() + 10
        while f"pid {second.process.pid} " not in (self.db.get("VPLS_AGENT_LEASE") or ""):
            self.assertLess(time.monotonic(), deadline, "the standby did not take over")
            time.sleep(0.05)
        write(self.db, self.ops[self.half:])
        rig.barrier(self.db, "taken over")
        self.assertRunnersOutputs(second, "after the takeover")
        held = rig.output_rows(self.db)
        first.process.send_signal(signal.SIGCONT)
        time.sleep(1.5)
        self.assertEqual(rig.output_rows(self.db), held)
        self.assertEqual(self.db.hget("VPLS_AGENT_STATUS", "pid"), str(second.process.pid))
        self.assertIn("lost the lease VPLS_AGENT_LEASE", first.output())

        second.stop(signal.SIGTERM)  # gives the lease up: the first takes over at once
        rig.barrier(self.db, "back", timeout=5)
        self.assertEqual(self.db.hget("VPLS_AGENT_STATUS", "pid"), str(first.process.pid))

        # Stopped again while another agent takes over, writes and gives the lease up: the
        # resumed agent finds the lease free but its memory stale, and starts again.
        second.start()
        first.process.send_signal(signal.SIGSTOP)
        deadline = time.monotonic() + 10
        while f"pid {second.process.pid} " not in (self.db.get("VPLS_AGENT_LEASE") or ""):
            self.assertLess(time.monotonic(), deadline, "the standby did not take over")
            time.sleep(0.05)
        write(self.db, [{"op": "del", "table": op["table"], "key": op["key"]}
                        for op in self.ops if op["table"] == "vplsPwIntfInfo"][:2])
        rig.barrier(self.db, "second again")
        second.stop(signal.SIGTERM)
        first.process.send_signal(signal.SIGCONT)
        rig.barrier(self.db, "resumed")
        self.assertIn(f"another agent (pid {second.process.pid}), which gave it up again",
                      first.output())
        self.assertEqual(self.db.hget("VPLS_AGENT_STATUS", "pid"), str(first.process.pid))
        final = base.runner_states(first.dir / "recording.jsonl")[-1]["state"]
        self.assertEqual(rig.output_rows(self.db), rig.expected_rows(final))

    def test_a_start_answers_the_requests_found_unanswered_as_the_runner_does(self):
        # Found so (their answers deleted by another client): the allocator answers them in
        # the order of their keys, as the runner's replay of the recording does.
        start = {"meshGroups": 1, "before": [{"op": "set", "table": "vxlanPresent", "value": True}],
                 "outputs": {f"LPO_REQUEST|vpls3|0|{group}|true|{pw}": {"requested": "true"}
                             for group, pw in (("g2", "Pseudowire21"), ("g3", "Pseudowire10"))}}
        rig.write_start_state(self.db, start)
        self.scenario = start
        agent = self.start()
        rig.barrier(self.db, "started")
        self.assertRunnersOutputs(agent, "after the start")

    def test_the_status_shows_the_agent_and_the_bad_input(self):
        agent = self.start()
        write(self.db, self.ops)
        self.db.hset("VPLS_DECAP_LABEL|Pseudowire40", "label", "abc")
        rig.barrier(self.db, "bad")
        status = self.db.hgetall("VPLS_AGENT_STATUS")
        self.assertEqual((status["state"], status["pid"]), ("running", str(agent.process.pid)))
        self.assertRegex(status["version"], r"^\d+\.\d+\.\d+")
        beat = int(status["heartbeat"])
        self.assertLess(abs(beat / 1000 - time.time()), 5)
        self.assertIn("Pseudowire40: field label: \"abc\"",
                      self.db.hget("VPLS_BAD_INPUT|VPLS_DECAP_LABEL|Pseudowire40", "problem"))
        self.assertTrue(all(self.db.hget(k, "code") for k in
                            self.db.scan_iter("VPLS_PW_STATUS|*")))
        self.db.delete("VPLS_DECAP_LABEL|Pseudowire40")
        time.sleep(1.1)
        rig.barrier(self.db, "good")
        self.assertFalse(self.db.exists("VPLS_BAD_INPUT|VPLS_DECAP_LABEL|Pseudowire40"))
        self.assertGreater(int(self.db.hget("VPLS_AGENT_STATUS", "heartbeat")), beat)


if __name__ == "__main__":
    unittest.main()
