"""The agent against hostile input and hostile conditions, on a real redis-server: every kind of
bad value, missing and extra fields, keys that do not parse and keys of the wrong type, on every
input table, each named in one line and changing nothing; a notification burst that makes the
server drop the agent's subscription ends in a resynchronisation with every change applied; and
access control with a password file that only its owner can read.

Needs $VPLS_DECAP_AGENT and $VPLS_DECAP_SIM (CTest sets them) and Debian's python3-redis."""

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

MIB = "x" * (1 << 20)
BAD_VALUES = ["", "-5", "99999999999999999999999", "abc", b"\xff\xfe", MIB]


def hostile_writes():
    """(description, how to write it) for every input table: bad values in each field, missing
    and extra fields, keys that do not parse, and other Redis types where a hash belongs.
    Pseudowire9 exists nowhere else, so that counting it as absent changes nothing."""
    pw = "Pseudowire9"
    tables = {
        f"VPLS_PW_INTF_INFO|{pw}": {"vplsInstanceName": "v", "splitHorizon": "true"},
        f"VPLS_DECAP_LABEL|{pw}": {"label": "900"},
        f"VPLS_VLAN_TAG_INFO|{pw}|10": {"tag": "10"},
        f"VPLS_ENCAP_HW_FEC_ID|{pw}": {"hwFecId": "1", "globalInLif": "2"},
        "VTEP_TYPE_STATUS|vxlanPresent": {"value": "false"},
    }
    writes = []
    for key, good in tables.items():
        for field in good:
            for value in BAD_VALUES:
                if key.startswith("VPLS_PW_INTF_INFO") and field == "vplsInstanceName" and \
                        value in ("", "-5", "abc", "99999999999999999999999"):
                    continue  # a name may be any short UTF-8 text
                writes.append((f"{key} {field}={value[:20]!r}", key, {**good, field: value}))
        writes.append((f"{key} extra field", key, {**good, "color": "red"}))
        if not key.startswith("VPLS_PW_INTF_INFO"):
            writes.append((f"{key} missing field", key, {"color": "red"}))
        for kind in ("string", "list", "set", "zset"):
            writes.append((f"{key} as a {kind}", key, kind))
    for key in ("VPLS_DECAP_LABEL|Pseudowire0", "VPLS_DECAP_LABEL|Pseudowire65536",
                "VPLS_DECAP_LABEL|pseudowire9", "VPLS_DECAP_LABEL|Pseudowire9|1",
                "VPLS_VLAN_TAG_INFO|Pseudowire9|4095", "VPLS_VLAN_TAG_INFO|Pseudowire9",
                "VPLS_PW_INTF_INFO|", "VPLS_DECAP_LABEL|Pseudo\xffwire9",
                "VPLS_DECAP_CONFIG|startupSyncdone", "VTEP_TYPE_STATUS|vxlanPresent|1"):
        writes.append((f"{key!r} does not parse", key, {"label": "1", "tag": "1"}))
    return writes


def write(db, key, value):
    db.delete(key)
    if value == "string":
        db.set(key, "1")
    elif value == "list":
        db.rpush(key, "1")
    elif value == "set":
        db.sadd(key, "1")
    elif value == "zset":
        db.zadd(key, {"1": 1})
    else:
        db.hset(key, mapping=value)


class HostileInput(base.AgentCase):
    def test_every_bad_input_is_named_once_and_changes_nothing(self):
        for op in base.Faults.BEFORE:
            rig.write_op(self.db, op)
        agent = self.agent()
        rig.barrier(self.db, "start")
        # A bad or absent attribute is false: its set changes outputs the first time only. The
        # key is left absent, as every key written below is before its write.
        rig.write_op(self.db, {"op": "set", "table": "vxlanPresent", "value": False})
        self.db.delete(rig.ATTRIBUTE_KEYS["vxlanPresent"])
        rig.barrier(self.db, "vxlanPresent false")
        outputs, answer = rig.output_rows(self.db), base.ask(pathlib.Path(agent.socket_dir) /
                                                        "MarlTunnelVpls")
        for i, (what, key, value) in enumerate(hostile_writes()):
            said = agent.output().count("bad input:")
            write(self.db, key, value)
            rig.barrier(self.db, f"hostile {i}")
            self.assertEqual(agent.output().count("bad input:"), said + 1, what)
            self.assertEqual(rig.output_rows(self.db), outputs, what)
            self.db.delete(key)  # settled before the next write, which may be to the same key
            rig.barrier(self.db, f"cleared {i}")
        self.assertEqual(base.ask(pathlib.Path(agent.socket_dir) / "MarlTunnelVpls"), answer)
        self.assertIsNone(agent.process.poll(), "the agent stopped")
        self.assertNotIn(MIB[:1000], agent.output(), "a 1 MiB value reached the log whole")


class Bursts(base.AgentCase):
    def test_a_dropped_subscription_ends_in_a_resynchronisation(self):
        # A tiny output buffer for subscribers: the server drops the agent's notification
        # connection during the burst.
        self.db.config_set("client-output-buffer-limit", "pubsub 16kb 8kb 1")
        agent = self.agent()
        rig.barrier(self.db, "start")
        ops = []
        for n in range(1, 2001):
            pw = f"Pseudowire{n}"
            ops += [{"op": "set", "table": "vplsPwIntfInfo", "key": pw,
                     "value": {"vplsInstanceName": f"v{n % 5}"}},
                    {"op": "set", "table": "decapLabel", "key": pw, "value": 1000 + n},
                    {"op": "set", "table": "vlanTagInfo", "key": {"pw": pw, "vlan": 1 + n % 7},
                     "value": 5},
                    {"op": "set", "table": "encapHwFecId", "key": pw,
                     "value": {"hwFecId": n, "globalInLif": n}}]
        with self.db.pipeline(transaction=False) as pipe:
            for op in ops:
                rig.write_op(pipe, op)
            pipe.execute()
        rig.barrier(self.db, "burst", timeout=120)
        self.assertIn("lost the state database", agent.output())
        self.assertIn("resynchronised", agent.output())
        scenario = pathlib.Path(self.dir.name) / "burst.json"
        scenario.write_text(__import__("json").dumps({"before": ops}))
        self.assertOutputs(base.runner_states(scenario)[-1]["state"], "after the burst", agent)


class AccessControl(base.AgentCase):
    def password_file(self, text, mode):
        path = pathlib.Path(self.dir.name) / f"password-{mode:o}"
        path.write_text(text + "\n")
        path.chmod(mode)
        return str(path)

    def test_the_agent_authenticates_with_a_password_only_its_owner_reads(self):
        secret = "s3cret-of-the-agent"
        self.db.execute_command("ACL", "SETUSER", "vpls", "on", ">" + secret, "~*", "&*",
                                "+@all")
        self.db.execute_command("ACL", "SETUSER", "default", "off")
        admin = rig.redis.Redis(unix_socket_path=self.server.socket, username="vpls",
                                password=secret, decode_responses=True)
        self.addCleanup(admin.close)

        loose = self.password_file(secret, 0o644)
        refused = subprocess.run([os.environ["VPLS_DECAP_AGENT"], "--redis", self.server.url,
                                  "--redis-user", "vpls", "--redis-password-file", loose],
                                 capture_output=True, text=True, timeout=30)
        self.assertEqual(refused.returncode, 2)
        self.assertIn(f"the password file {loose} can be read or written by others (mode 0644)",
                      refused.stderr)

        wrong = self.password_file("not-it", 0o600)
        agent = self.agent(["--redis-user", "vpls", "--redis-password-file", wrong])
        time.sleep(1.0)
        self.assertIsNone(agent.process.poll())
        self.assertEqual(agent.output().count("authentication failed"), 1, agent.output())
        agent.stop(signal.SIGTERM)

        good = self.password_file(secret, 0o400)
        agent = self.agent(["--redis-user", "vpls", "--redis-password-file", good])
        rig.write_op(admin, base.Faults.BEFORE[0])
        rig.barrier(admin, "authenticated")
        self.assertIn("VPLS_PW_STATUS|Pseudowire1", rig.output_rows(admin) | {
            k: 1 for k in admin.scan_iter("VPLS_PW_STATUS|*")})
        self.assertNotIn(secret, agent.output())
        self.assertEqual(oct(os.stat(pathlib.Path(agent.socket_dir) / "MarlTunnelVpls").st_mode
                             & 0o777), oct(0o600))


if __name__ == "__main__":
    unittest.main()
