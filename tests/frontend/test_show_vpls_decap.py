"""Tests of the show-vpls-decap front end: its request, its reading of answers and its errors
against a scripted socket server, and end to end against a serving scenario runner whose
programmed state (vpls-decap-sim run --json) says what the answer must hold.

The end-to-end cases need $VPLS_DECAP_SIM, the runner's path (CTest sets it)."""

import contextlib
import io
import json
import os
import pathlib
import runpy
import socket
import subprocess
import sys
import tempfile
import threading
import time
import types
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FRONTEND = ROOT / "frontend" / "show-vpls-decap"
SCENARIO = ROOT / "examples" / "show-command.json"


# The front end is a script without a .py suffix, so it is run from its path rather than imported.
show = types.SimpleNamespace(**runpy.run_path(str(FRONTEND), run_name="show_vpls_decap"))

# One pseudowire with two VLANs, then a standby one under VLAN 0, as the agent writes them.
TWO_PSEUDOWIRES = (
    "{'pseudowires' : {'Pseudowire1' : {'instanceContext' : 'vpls1','groupName' : 'grpA',"
    "'label' : '900001','controlWord' : 'True','flowLabel' : 'False','termProfile' : '2',"
    "'globalInLif' : '20000','active' : 'True','vlans' : {'10' : {'normalizedTag' : '100',"
    "'lifIndex' : '33'},'20' : {'normalizedTag' : '200','lifIndex' : '34'},},"
    "'hwFec' : '4096','inLifProfile' : '8','orientation' : '1',},"
    "'Pseudowire12' : {'instanceContext' : 'vpls1','groupName' : '','label' : '77',"
    "'controlWord' : 'False','flowLabel' : 'True','termProfile' : '0','globalInLif' : '-',"
    "'active' : 'False','vlans' : {'0' : {'normalizedTag' : '0','lifIndex' : '5'},},"
    "'hwFec' : '-','inLifProfile' : '-','orientation' : '-',},},}")


class Request(unittest.TestCase):
    def test_filters_become_the_request_words(self):
        cases = [
            ({}, "vplsDecap None None None\n"),
            ({"instance": "vpls-red"}, "vplsDecap vpls-red None None\n"),
            ({"group": "east", "interface": "Pw7"}, "vplsDecap None east Pw7\n"),
            ({"interface": "Pseudowire7"}, "vplsDecap None None Pw7\n"),
            ({"interface": "Pw65535"}, "vplsDecap None None Pw65535\n"),
        ]
        for filters, line in cases:
            with self.subTest(filters=filters):
                self.assertEqual(show.request_line(**filters), line)

    def test_names_the_agent_cannot_read_as_one_word_are_refused(self):
        for filters in ({"instance": "a b"}, {"group": ""}, {"interface": "Pw1\n"}):
            with self.subTest(filters=filters), self.assertRaises(ValueError):
                show.request_line(**filters)

    def test_interface_names_no_pseudowire_has_are_refused_naming_the_forms(self):
        for name in ("pw4", "Pw0", "Pw65536", "Pseudowire07", "Ethernet1", "Pw", "Pw1x"):
            with self.subTest(name=name), self.assertRaises(ValueError) as raised:
                show.request_line(interface=name)
            self.assertEqual(str(raised.exception),
                             f"--interface: {name!r} is not a pseudowire's name "
                             "(expected PwN or PseudowireN, N from 1 to 65535)")


class Answer(unittest.TestCase):
    def test_rows_per_pseudowire_and_vlan_with_typed_json(self):
        pseudowires = show.parse_answer(TWO_PSEUDOWIRES)
        result = show.to_json(pseudowires)["pseudowires"]
        self.assertEqual([p["pseudowire"] for p in result], ["Pseudowire1", "Pseudowire12"])
        first, standby = result
        self.assertEqual(first["vlans"], [{"vlan": 10, "normalizedTag": 100, "lifIndex": 33},
                                          {"vlan": 20, "normalizedTag": 200, "lifIndex": 34}])
        self.assertEqual((first["label"], first["controlWord"], first["flowLabel"]),
                         (900001, True, False))
        self.assertEqual((first["hwFec"], first["inLifProfile"], first["orientation"]),
                         (4096, 8, 1))
        self.assertEqual((standby["active"], standby["globalInLif"], standby["hwFec"]),
                         (False, None, None))
        # No group: '-' in the table, null in JSON.
        self.assertEqual((first["groupName"], standby["groupName"]), ("grpA", None))

        lines = show.table(pseudowires).splitlines()
        self.assertEqual(len(lines), 2 + 3)
        self.assertEqual(lines[2].split()[:7],
                         ["Pseudowire1", "vpls1", "grpA", "900001", "10", "100", "33"])
        self.assertEqual(lines[4].split()[-4:], ["no", "-", "-", "-"])
        self.assertEqual(lines[4].split()[2], "-")

    def test_answers_that_are_not_a_decap_dictionary_are_errors(self):
        cases = [
            ("", "the agent answered nothing"),
            ("error: unknown command 'vplsDecap'\n",
             "the agent refused the request: error: unknown command 'vplsDecap'"),
            ("[1, 2]", "the answer is not a dictionary: '[1, 2]'"),
            ("{'pseudowires' : {", "the answer is not a dictionary"),
            ("__import__('os')", "the answer is not a dictionary"),
            ("{'other' : {}}", "the answer has no 'pseudowires' dictionary"),
            ("{'pseudowires' : {'Pw1' : 'x'}}", "the answer's pseudowire 'Pw1' is not"),
            # A pseudowire without entries closes a block it never opened.
            ("{'pseudowires' : {'Pw1' : {},'hwFec' : '-','inLifProfile' : '-',"
             "'orientation' : '-',},},}", "the answer is not a dictionary"),
        ]
        for text, message in cases:
            with self.subTest(text=text):
                with self.assertRaises(show.ShowError) as raised:
                    show.parse_answer(text)
                self.assertTrue(str(raised.exception).startswith(message), raised.exception)


class ScriptedAgent:
    """A socket server at <dir>/MarlTunnelVpls that reads one request line per connection and
    answers with `reply(line)` (None: close without answering)."""

    def __init__(self, directory, reply):
        self.path = os.path.join(directory, show.SOCKET_NAME)
        self.reply = reply
        self.requests = []
        self.server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.server.bind(self.path)
        self.server.listen()
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        while True:
            try:
                connection, _ = self.server.accept()
            except OSError:
                return
            with connection:
                line = b""
                while not line.endswith(b"\n"):
                    chunk = connection.recv(4096)
                    if not chunk:
                        break
                    line += chunk
                self.requests.append(line.decode())
                answer = self.reply(line.decode())
                if answer is not None:
                    connection.sendall(answer.encode())

    def close(self):
        self.server.close()


class Connection(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)

    def run_main(self, *argv):
        out, err = io.StringIO(), io.StringIO()
        with contextlib.redirect_stdout(out), contextlib.redirect_stderr(err):
            code = show.main(["--socket-dir", self.dir.name, *argv])
        return code, out.getvalue(), err.getvalue()

    def test_request_goes_out_and_the_answer_is_shown(self):
        agent = ScriptedAgent(self.dir.name, lambda line: TWO_PSEUDOWIRES)
        self.addCleanup(agent.close)
        code, out, err = self.run_main("--json", "--interface", "Pseudowire1")
        self.assertEqual((code, err), (0, ""))
        self.assertEqual(agent.requests, ["vplsDecap None None Pw1\n"])
        self.assertEqual(len(json.loads(out)["pseudowires"]), 2)

    def test_an_interface_no_pseudowire_has_is_a_usage_error_before_any_request(self):
        agent = ScriptedAgent(self.dir.name, lambda line: TWO_PSEUDOWIRES)
        self.addCleanup(agent.close)
        with self.assertRaises(SystemExit) as exited:
            self.run_main("--interface", "pw4")
        self.assertEqual((exited.exception.code, agent.requests), (2, []))

    def test_failures_name_what_is_wrong_and_exit_1(self):
        path = os.path.join(self.dir.name, show.SOCKET_NAME)
        cases = [
            ("no agent", None, "the agent is not running: no socket at"),
            ("a socket file nobody serves", "stale", "refuses connections"),
            ("refusal", lambda line: "error: request too long\n",
             "the agent refused the request: error: request too long"),
            ("silence", lambda line: None, "the agent answered nothing"),
            ("not a dictionary", lambda line: "hello\n", "the answer is not a dictionary"),
        ]
        for name, reply, message in cases:
            with self.subTest(name):
                agent = None
                if reply == "stale":
                    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as stale:
                        stale.bind(path)
                elif reply is not None:
                    agent = ScriptedAgent(self.dir.name, reply)
                code, out, err = self.run_main()
                if agent is not None:
                    agent.close()
                if os.path.exists(path):
                    os.unlink(path)
                self.assertEqual((code, out), (1, ""))
                self.assertIn(message, err)
                self.assertTrue(err.startswith("show-vpls-decap: "), err)


def runner():
    path = os.environ.get("VPLS_DECAP_SIM")
    return pathlib.Path(path) if path else None


@unittest.skipUnless(runner(), "VPLS_DECAP_SIM (the scenario runner's path) is not set")
class EndToEnd(unittest.TestCase):
    """The scenario is served; each front-end answer is checked against the programmed state."""

    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.TemporaryDirectory()
        env = {**os.environ, "MARL_FLASHLOG_DIR": cls.dir.name}
        ran = subprocess.run([runner(), "run", SCENARIO, "--json"], env=env,
                             capture_output=True, text=True, check=True)
        cls.state = json.loads(ran.stdout)
        cls.agent = subprocess.Popen(
            [runner(), "serve", SCENARIO, "--socket-dir", cls.dir.name], env=env,
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        socket_path = pathlib.Path(cls.dir.name) / show.SOCKET_NAME
        deadline = time.monotonic() + 30
        while not socket_path.exists():
            if cls.agent.poll() is not None or time.monotonic() > deadline:
                cls.tearDownClass()
                raise RuntimeError("the runner did not open its socket")
            time.sleep(0.05)

    @classmethod
    def tearDownClass(cls):
        cls.agent.terminate()
        cls.agent.wait(timeout=30)
        cls.dir.cleanup()

    def front_end(self, *argv):
        done = subprocess.run([sys.executable, FRONTEND, "--socket-dir", self.dir.name, *argv],
                              capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout

    def answer(self, *filters):
        return json.loads(self.front_end("--json", *filters))["pseudowires"]

    def expected(self):
        """(pseudowire, VLAN) -> the fields the answer must carry, from the programmed entries:
        normal entries (profiles 10-14) under their VLAN, standby entries (profile 0) under
        VLAN 0; VTT2 entries (profile 15) are not decap entries."""
        records = {r["pwIntfId"]: r for r in self.state["localPwInfo"]}
        by_label = {r["decapLabel"]: name for name, r in records.items()}
        orientation = {(r["pw"], r["vlan"]): r["orientation"] for r in self.state["lpoResponse"]}
        expected = {}
        for entry in self.state["mplsDecapConfig"]:
            if entry["inLifProfile"] == 15:
                continue
            pw = by_label[entry["label"]]
            vlan = entry["vlanId"] if entry["inLifProfile"] else 0
            expected[(pw, vlan)] = {
                "label": entry["label"], "normalizedTag": entry["innerDot1QTag"],
                "hwFec": entry["hwFecId"] if vlan else None,
                "globalInLif": entry["globalInLif"],
                "inLifProfile": entry["inLifProfile"] or None,
                "orientation": orientation.get((pw, vlan), orientation.get((pw, 0))),
                "instanceContext": records[pw]["vplsInstanceName"],
                "groupName": records[pw]["groupName"] or None,
                "active": not records[pw]["standby"]}
        return expected

    def test_answer_holds_what_was_programmed(self):
        expected = self.expected()
        answer = self.answer()
        got = {(p["pseudowire"], v["vlan"]): (p, v) for p in answer for v in p["vlans"]}
        self.assertEqual(sorted(got), sorted(expected))
        self.assertGreaterEqual(len({pw for pw, _ in expected}), 5)
        for key, want in expected.items():
            pseudowire, vlan = got[key]
            with self.subTest(key=key):
                self.assertEqual(vlan["normalizedTag"], want["normalizedTag"])
                for field in ("label", "instanceContext", "groupName", "active"):
                    self.assertEqual(pseudowire[field], want[field], field)
                if key == (pseudowire["pseudowire"], pseudowire["vlans"][-1]["vlan"]):
                    # The summary comes from the last VLAN of an active pseudowire.
                    for field in ("hwFec", "inLifProfile", "orientation"):
                        self.assertEqual(pseudowire[field],
                                         want[field] if want["active"] else None, field)
                    if want["active"]:
                        self.assertEqual(pseudowire["globalInLif"], want["globalInLif"])

    def test_filters_select_pseudowires(self):
        every = self.answer()
        names = [p["pseudowire"] for p in every]
        cases = [
            (("--instance", "vpls-blue"), lambda p: p["instanceContext"] == "vpls-blue"),
            (("--group", "east"), lambda p: p["groupName"] == "east"),
            (("--interface", "Pw2"), lambda p: p["pseudowire"] == "Pseudowire2"),
            (("--interface", "Pseudowire5"), lambda p: p["pseudowire"] == "Pseudowire5"),
            (("--instance", "vpls-red", "--group", "west"), lambda p: p["groupName"] == "west"),
            (("--instance", "no-such-instance"), lambda p: False),
        ]
        for filters, keep in cases:
            with self.subTest(filters=filters):
                self.assertEqual([p["pseudowire"] for p in self.answer(*filters)],
                                 [n for n, p in zip(names, every) if keep(p)])

    def test_table_has_a_row_per_pseudowire_and_vlan_or_says_there_is_none(self):
        lines = self.front_end().splitlines()
        self.assertEqual(lines[0].split()[:3], ["Pseudowire", "Instance", "Group"])
        self.assertEqual(len(lines) - 2, len(self.expected()))
        self.assertEqual(self.front_end("--instance", "nothing"), "No VPLS decap entries\n")


if __name__ == "__main__":
    unittest.main()
