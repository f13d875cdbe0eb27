"""What the agent's tests and benchmark need around a real `vpls-decap-agent`: a private
`redis-server` on a unix socket in a temporary directory (no port, no persistence files), the
agent process, a writer that puts scenario ops into the database as other agents would, the
barrier, and the expected database rows of a scenario runner's JSON state, built from the key
and field contract independently of the agent's own encoding.

Uses Debian's python3-redis: run it with /usr/bin/python3."""

import json
import os
import pathlib
import signal
import socket
import subprocess
import time

import redis

INPUT_TABLES = ("VPLS_PW_INTF_INFO", "VPLS_DECAP_LABEL", "VPLS_VLAN_TAG_INFO",
                "VPLS_ENCAP_HW_FEC_ID", "VPLS_DECAP_CONFIG", "VTEP_TYPE_STATUS")
OUTPUT_TABLES = ("MPLS_DECAP_CONFIG", "LABEL_TO_PW_INTF", "VPLS_DECAP_STATUS",
                 "VPLS_ENCAP_ADDITIONAL_ID", "VPLS_ADDITIONAL_DATA", "LPO_REQUEST", "LPO_RESPONSE",
                 "INTF_TO_LPO_KEY", "ESEM_CONFIG", "TAG_POP_PUSH_APP", "EVEC_PROFILE_REQUEST",
                 "VPLS_SM_STATUS", "CHIP_DECAP_ENTRY")
# Each attribute is a key of its own, with one field, `value`; a deleted key is false.
ATTRIBUTE_KEYS = {name: f"{table}|{name}" for table, names in (
    ("VPLS_DECAP_CONFIG", ("startupSyncDone", "restartDone")),
    ("VTEP_TYPE_STATUS", ("vxlanPresent", "vxlanDciConfigured"))) for name in names}
PW_INFO_FIELDS = ("vplsInstanceName", "groupName", "splitHorizon", "standby", "vlanAware",
                  "controlWord", "flowLabel")


def text(value):
    if isinstance(value, bool):
        return "true" if value else "false"
    return str(value)


class RedisServer:
    """A private redis-server; persistent: with an append-only file in its directory, so
    that what was written survives a restart."""

    def __init__(self, directory, persistent=False):
        self.dir = pathlib.Path(directory)
        self.persistent = persistent
        self.socket = str(self.dir / "redis.sock")
        self.url = "unix://" + self.socket
        self.process = None
        self.start()

    def start(self):
        self.process = subprocess.Popen(
            ["redis-server", "--port", "0", "--unixsocket", self.socket, "--unixsocketperm", "700",
             "--save", "", "--appendonly", "yes" if self.persistent else "no",
             "--dir", str(self.dir)],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + 20
        while not self.answers():
            if time.monotonic() > deadline or self.process.poll() is not None:
                raise RuntimeError("redis-server did not start")
            time.sleep(0.02)

    def answers(self):
        try:
            with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as probe:
                probe.connect(self.socket)
                probe.sendall(b"PING\r\n")
                return probe.recv(16).startswith(b"+PONG")
        except OSError:
            return False

    def client(self):
        return redis.Redis(unix_socket_path=self.socket, decode_responses=True)

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.kill()
            self.process.wait()



class Agent:
    """The agent process; its stderr goes to a file kept for failure messages."""

    def __init__(self, binary, url, directory, args=(), env=None):
        self.binary, self.url, self.dir = binary, url, pathlib.Path(directory)
        self.socket_dir = str(self.dir / "sockets")
        self.args, self.env = list(args), {**os.environ, **(env or {})}
        self.env.setdefault("MARL_FLASHLOG_DIR", str(self.dir))
        self.log = self.dir / "agent.log"
        self.process = None

    def start(self, extra=()):
        with open(self.log, "a") as log:
            self.process = subprocess.Popen(
                [self.binary, "--redis", self.url, "--socket-dir", self.socket_dir, *self.args,
                 *extra], stdout=log, stderr=log, env=self.env)

    def stop(self, sig=signal.SIGTERM, timeout=30):
        if self.process and self.process.poll() is None:
            self.process.send_signal(sig)
            self.process.wait(timeout)
        return self.process.returncode

    def output(self):
        return self.log.read_text(errors="replace")


def op_row(op):
    """The key and hash (None for a del) that stand for a scenario op in the database."""
    table, value = op["table"], op.get("value")
    if table in ATTRIBUTE_KEYS:
        return ATTRIBUTE_KEYS[table], {"value": text(value)}
    key = op["key"]
    if table == "vplsPwIntfInfo":
        value = value or {}
        return ("VPLS_PW_INTF_INFO|" + key,
                {f: text(value.get(f, "" if f in ("vplsInstanceName", "groupName") else False))
                 for f in PW_INFO_FIELDS} if op["op"] == "set" else None)
    if table == "decapLabel":
        return "VPLS_DECAP_LABEL|" + key, {"label": text(value)} if op["op"] == "set" else None
    if table == "vlanTagInfo":
        return (f"VPLS_VLAN_TAG_INFO|{key['pw']}|{key['vlan']}",
                {"tag": text(value)} if op["op"] == "set" else None)
    if table == "encapHwFecId":
        return ("VPLS_ENCAP_HW_FEC_ID|" + key,
                {k: text(v) for k, v in value.items()} if op["op"] == "set" else None)
    raise ValueError("not an input op: " + json.dumps(op))


def write_op(client, op):
    """One op as one command, so that it is one notification: a set writes every field."""
    key, fields = op_row(op)
    if fields is None:
        client.delete(key)
    else:
        client.hset(key, mapping=fields)


def write_start_state(client, start):
    """A recording's start state (its first line) into the database: the inputs found, the
    outputs found and, without clean slate, an HW FEC id response."""
    pipe = client.pipeline(transaction=False)
    for op in start.get("before", []):
        write_op(pipe, op)
    for key, fields in start.get("outputs", {}).items():
        pipe.hset(key, mapping=fields)
    if not start.get("cleanSlate", True):
        pipe.hset("L2_UCAST_HW_FEC_ID_RESPONSE|1", "hwFecIdResponse", "1")
    pipe.execute()


def barrier(client, token, timeout=60):
    client.hset("VPLS_AGENT_SYNC", "token", token)
    deadline = time.monotonic() + timeout
    while client.hget("VPLS_AGENT_STATUS", "sync") != token:
        if time.monotonic() > deadline:
            raise TimeoutError(f"the agent did not reach barrier {token!r}")
        time.sleep(0.005)


def output_rows(client):
    """Every output key of the contract's tables (statuses aside) and its hash."""
    rows = {}
    for key in client.scan_iter(count=10000):
        if key.split("|", 1)[0] in OUTPUT_TABLES:
            rows[key] = client.hgetall(key)
    return rows


def logs(client):
    return log_entries(client.xrange("VPLS_LOG"))


def log_entries(stream):
    """Log stream entries (XRANGE's answer) as the runner's JSON state has them."""
    return [{"id": fields["id"], "args": json.loads(fields["args"])} for _, fields in stream]


def expected_rows(state):
    """The output rows that the runner's JSON state stands for, by the contract."""
    rows = {}

    def lpo(prefix, e):
        return "|".join([prefix, e["instanceName"], text(e["vlan"]), e["groupName"],
                         text(e["splitHorizon"]), e["pw"]])

    for e in state["mplsDecapConfig"]:
        key = "|".join(["MPLS_DECAP_CONFIG", text(e["label"]), text(e["innerDot1QTag"]),
                        text(e["keyField3"])])
        rows[key] = {f: text(e[f]) for f in ("name", "flag", "hwFecId", "globalInLif",
                                             "inLifProfile", "vlanId", "field8", "field9")}
    for label, pw in state["labelToPwIntf"].items():
        rows["LABEL_TO_PW_INTF|" + label] = {"pw": pw}
    for e in state["decapStatus"]:
        rows[f"VPLS_DECAP_STATUS|{e['pw']}|{e['vlan']}"] = {"index": text(e["index"])}
    for pw, value in state["encapAdditionalId"].items():
        rows["VPLS_ENCAP_ADDITIONAL_ID|" + pw] = {"value": text(value)}
    for e in state["additionalDataMap"]:
        key = "|".join(["VPLS_ADDITIONAL_DATA", e["vplsInstanceName"], e["groupName"], e["pw"],
                        text(e["splitHorizon"])])
        rows[key] = {"value": text(e["value"])}
    for e in state["lpoRequest"]:
        rows[lpo("LPO_REQUEST", e)] = {"requested": "true"}
    for e in state["lpoResponse"]:
        rows[lpo("LPO_RESPONSE", e)] = {"inLifProfile": text(e["inLifProfile"]),
                                        "orientation": text(e["orientation"])}
    for pw, e in state["intfToLifProfileOrientationKey"].items():
        rows["INTF_TO_LPO_KEY|" + pw] = {f: text(e[f]) for f in
                                          ("instanceName", "vlan", "groupName", "splitHorizon",
                                           "pw")}
    for e in state["esemConfig"]:
        key = "|".join(["ESEM_CONFIG", text(e["vlanDomain"]), text(e["vlanId"]),
                        text(e["keyField3"])])
        rows[key] = {f: text(e[f]) for f in ("tag", "editProfile", "outLifProfile")}
    for app, enabled in state["tagPopPushApp"].items():
        rows["TAG_POP_PUSH_APP|" + app] = {"enabled": text(enabled)}
    for e in state["evecProfileRequest"]:
        rows[f"EVEC_PROFILE_REQUEST|{e['first']}|{e['second']}"] = {"requested": "true"}
    for e in state["chipDecapEntries"]:
        key = "|".join(["CHIP_DECAP_ENTRY", text(e["label"]), text(e["innerDot1QTag"]),
                        text(e["keyField3"])])
        rows[key] = {f: text(e[f]) for f in ("lifIndex", "name", "flag", "hwFecId", "globalInLif",
                                             "inLifProfile", "vlanId", "field8", "field9")}
    rows["VPLS_SM_STATUS"] = {"vplsSmReady": text(state["vplsSmReady"]),
                              "allocatorStartupSyncDoneCalls":
                                  text(state["allocatorStartupSyncDoneCalls"])}
    return rows


def toggle_env(directory, toggles):
    """The toggle directory for a scenario's toggles (none: no toggle file)."""
    toggle_dir = pathlib.Path(directory) / "toggles"
    toggle_dir.mkdir(exist_ok=True)
    if toggles is not None:
        (toggle_dir / "MarlTunnel.json").write_text(json.dumps(toggles))
    return {"MARL_TOGGLE_DIR": str(toggle_dir)}
