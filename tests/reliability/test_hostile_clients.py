"""Clients that do not play by the rules, against a live `vpls-decap-sim serve` holding 2000
programmed pseudowires: after each kind of abuse the agent still answers a well-behaved client
in full, it is alive (no SIGPIPE), its open descriptors are back to where they were, and its memory
stays flat. The exact refusal texts, the socket file's mode and half-closed clients are checked
in-process by tests/platform/Orb/AgentSocketHandlerSmTest.cpp.

Needs $VPLS_DECAP_SIM, the runner's path (CTest sets it)."""

import ast
import json
import os
import pathlib
import socket
import subprocess
import tempfile
import threading
import time
import unittest

PSEUDOWIRES = 2000
REQUEST = b"vplsDecap None None None\n"
STALL_TIMEOUT = 10  # seconds the agent waits for a client that does not read


def scenario():
    """2000 spokes with a label, a VLAN and a FEC id each: a show answer of about 700 KB,
    more than a socket buffer holds."""
    before = []
    for n in range(1, PSEUDOWIRES + 1):
        pw = f"Pseudowire{n}"
        before += [
            {"op": "set", "table": "vplsPwIntfInfo", "key": pw,
             "value": {"vplsInstanceName": f"vpls-{n % 7}"}},
            {"op": "set", "table": "decapLabel", "key": pw, "value": 10000 + n},
            {"op": "set", "table": "vlanTagInfo", "key": {"pw": pw, "vlan": 1 + n % 4000},
             "value": 1 + n % 4000},
            {"op": "set", "table": "encapHwFecId", "key": pw,
             "value": {"hwFecId": 20000 + n, "globalInLif": 30000 + n}},
        ]
    return {"before": before}


def connect(path):
    client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    client.settimeout(60)
    client.connect(path)
    return client


def read_to_end(client):
    chunks = []
    while True:
        chunk = client.recv(1 << 16)
        if not chunk:
            return b"".join(chunks)
        chunks.append(chunk)


class HostileClients(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        runner = os.environ.get("VPLS_DECAP_SIM")
        if not runner:
            raise unittest.SkipTest("VPLS_DECAP_SIM (the scenario runner's path) is not set")
        cls.dir = tempfile.TemporaryDirectory()
        scenario_file = pathlib.Path(cls.dir.name) / "many.json"
        scenario_file.write_text(json.dumps(scenario()))
        sockets = pathlib.Path(cls.dir.name) / "sockets"
        cls.path = str(sockets / "MarlTunnelVpls")
        cls.agent = subprocess.Popen(
            [runner, "serve", str(scenario_file), "--socket-dir", str(sockets)],
            env={**os.environ, "MARL_FLASHLOG_DIR": cls.dir.name},
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        deadline = time.monotonic() + 120
        while not os.path.exists(cls.path):
            if cls.agent.poll() is not None or time.monotonic() > deadline:
                cls.tearDownClass()
                raise RuntimeError("the agent did not open its socket")
            time.sleep(0.05)
        cls.full_answer = cls.ask()
        cls.baseline_fds = cls.open_fds()

    @classmethod
    def tearDownClass(cls):
        if cls.agent.poll() is None:
            cls.agent.terminate()
        cls.agent.wait(timeout=60)
        cls.agent.stderr.close()
        cls.dir.cleanup()

    @classmethod
    def ask(cls):
        with connect(cls.path) as client:
            client.sendall(REQUEST)
            return read_to_end(client)

    @classmethod
    def open_fds(cls):
        return len(os.listdir(f"/proc/{cls.agent.pid}/fd"))

    def rss_kib(self):
        with open(f"/proc/{self.agent.pid}/status") as status:
            for line in status:
                if line.startswith("VmRSS:"):
                    return int(line.split()[1])
        raise AssertionError("no VmRSS")

    def assert_healthy(self):
        """Alive, answering a well-behaved client in full, descriptors back to the baseline."""
        self.assertIsNone(self.agent.poll(), "the agent died")
        self.assertEqual(self.ask(), self.full_answer)
        deadline = time.monotonic() + 30
        while self.open_fds() != self.baseline_fds and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertEqual(self.open_fds(), self.baseline_fds, "descriptors left open")

    def test_the_answer_is_the_whole_decap_table(self):
        answer = ast.literal_eval(self.full_answer.decode())
        self.assertEqual(len(answer["pseudowires"]), PSEUDOWIRES)
        self.assertGreater(len(self.full_answer), 500_000)

    def test_bad_requests_are_refused_with_one_line(self):
        cases = [
            ("a 1 MiB request", b"vplsDecap " + b"x" * (1 << 20) + b"\n",
             b"error: request too long\n"),
            ("binary garbage", bytes(range(256)) * 4 + b"\n", b"error: "),
        ]
        for name, request, answer in cases:
            with self.subTest(name), connect(self.path) as client:
                # The agent refuses after the request limit and may close before all is sent.
                try:
                    client.sendall(request)
                except (BrokenPipeError, ConnectionResetError):
                    pass
                try:
                    received = read_to_end(client)
                except ConnectionResetError:
                    received = b""
                if received:
                    self.assertTrue(received.startswith(answer), received[:80])
                self.assert_healthy()

    def test_client_that_closes_before_the_answer(self):
        for _ in range(20):
            with connect(self.path) as client:
                client.sendall(REQUEST)
        self.assert_healthy()

    def test_client_that_never_reads_a_large_answer(self):
        stuck = connect(self.path)
        stuck.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
        stuck.sendall(REQUEST)
        # While the stuck client holds its connection, others are answered in full.
        for _ in range(5):
            self.assertEqual(self.ask(), self.full_answer)
        self.assertIsNone(self.agent.poll())
        self.assertGreater(self.open_fds(), self.baseline_fds, "the stuck client is held")
        # It is dropped after the stall timeout: the agent's descriptors go back to the baseline.
        deadline = time.monotonic() + STALL_TIMEOUT + 30
        while self.open_fds() != self.baseline_fds and time.monotonic() < deadline:
            time.sleep(0.2)
        self.assertEqual(self.open_fds(), self.baseline_fds, "the stuck client was not dropped")
        stuck.close()
        self.assert_healthy()

    def test_many_clients_in_a_row_and_at_once(self):
        self.ask()
        rss_before = self.rss_kib()
        for _ in range(200):
            self.assertEqual(self.ask(), self.full_answer)
        answers = [None] * 50
        start = threading.Barrier(50)

        def client(i):
            start.wait()
            answers[i] = self.ask()

        threads = [threading.Thread(target=client, args=(i,)) for i in range(50)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(timeout=120)
        self.assertEqual(sum(answer == self.full_answer for answer in answers), 50)
        self.assert_healthy()
        if os.environ.get("VPLS_DECAP_SIM_SANITIZED") == "1":
            return  # the address sanitizer's quarantine holds freed memory back on purpose
        growth = self.rss_kib() - rss_before
        self.assertLess(growth, 4096, f"resident memory grew by {growth} KiB over 250 clients")


if __name__ == "__main__":
    unittest.main()
