"""A start-up that the library's range errors stop, from a state that the soak found (a
pseudowire's entry (label, none) left in the decap table, its record not standby, VXLAN DCI
configured): the agent stays up in state blocked, writes nothing, says why on its status and
its command socket, and starts as the runner does once an input change lets it.

Needs $VPLS_DECAP_AGENT and $VPLS_DECAP_SIM (CTest sets them) and Debian's python3-redis."""

import os
import pathlib
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
import agent_rig as rig  # noqa: E402
import test_agent_redis as base  # noqa: E402

SHOW = base.SOURCE / "frontend" / "show-vpls-decap"
PW_INFO = {"vplsInstanceName": "vpls1", "groupName": "g1", "splitHorizon": True}
START = {
    "cleanSlate": True, "toggles": {"MarlTunnelSplitHorizonGroup": True}, "meshGroups": 3,
    "before": [{"op": "set", "table": "decapLabel", "key": "Pseudowire13", "value": 514},
               {"op": "set", "table": "vplsPwIntfInfo", "key": "Pseudowire13", "value": PW_INFO},
               {"op": "set", "table": "vxlanDciConfigured", "value": True}],
    "outputs": {
        "LPO_REQUEST||2|g1|true|Pseudowire13": {"requested": "true"},
        "LPO_REQUEST||3|g1|true|Pseudowire13": {"requested": "true"},
        "MPLS_DECAP_CONFIG|514|0|0": {"name": "", "flag": "false", "hwFecId": "0",
                                      "globalInLif": "0", "inLifProfile": "0", "vlanId": "1",
                                      "field8": "0", "field9": "2"}}}


class Blocked(base.AgentCase):
    def test_a_blocked_start_waits_for_the_input_change_that_lets_it_start(self):
        rig.write_start_state(self.db, START)
        recording = pathlib.Path(self.dir.name) / "recording.jsonl"
        agent = self.agent(["--mesh-groups", "3", "--record", str(recording)],
                           rig.toggle_env(self.dir.name, START["toggles"]))
        self.db.hset("VPLS_AGENT_SYNC", "token", "before")
        deadline = time.monotonic() + 20
        while self.db.hget("VPLS_AGENT_STATUS", "state") != "blocked":
            self.assertLess(time.monotonic(), deadline, agent.output())
            time.sleep(0.02)

        runner = subprocess.run([os.environ["VPLS_DECAP_SIM"], "run", str(recording)],
                                capture_output=True, text=True)
        self.assertEqual(runner.returncode, 1, runner.stderr)
        error = runner.stderr.split("start-up raised: ", 1)[1].strip()
        status = self.db.hgetall("VPLS_AGENT_STATUS")
        self.assertEqual(status["lastError"], "start-up: " + error)
        self.assertNotEqual(status.get("sync"), "before")
        self.assertEqual(rig.output_rows(self.db), START["outputs"])
        self.assertEqual(rig.logs(self.db), [])  # the failed start's messages are not written
        show = subprocess.run([sys.executable, str(SHOW)], capture_output=True, text=True,
                              env={**os.environ, "MARL_SOCKET_DIR": agent.socket_dir})
        self.assertEqual(show.returncode, 1)
        self.assertEqual(len(show.stderr.splitlines()), 1, show.stderr)
        self.assertIn(f"the agent is blocked: the library raised while starting ({error})",
                      show.stderr)

        self.db.delete("VTEP_TYPE_STATUS|vxlanDciConfigured")
        rig.barrier(self.db, "started", timeout=20)
        self.assertEqual(self.db.hget("VPLS_AGENT_STATUS", "state"), "running")
        self.assertOutputs(base.runner_states(recording)[-1]["state"], "after the start", agent)


if __name__ == "__main__":
    unittest.main()
