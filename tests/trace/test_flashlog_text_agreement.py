"""The Flashlog and the text trace hold the same messages.

Every example scenario, and the scenarios next to this file that reach the traces the examples
do not, is run with the library's text traces at all levels and a Flashlog; the Flashlog,
decoded by flashlog-cat, must hold the text trace's lines, in the same order, as its records of
the library's facility. The Flashlog records every level of every facility, so the
records of other facilities (structured logs, the framework's own) are left out of the
comparison; nothing else may tell the two apart.
"""

import os
import pathlib
import subprocess
import tempfile
import unittest

SIM = os.environ["VPLS_DECAP_SIM"]
FLASHLOG_CAT = os.environ["FLASHLOG_CAT"]
EXAMPLES = pathlib.Path(os.environ["VPLS_DECAP_EXAMPLES"])
FACILITY = "MarlTunnel"


def run(args, **kwargs):
    return subprocess.run(args, capture_output=True, text=True, timeout=120, check=False, **kwargs)


class FlashlogTextAgreementTest(unittest.TestCase):
    def test_every_scenario_decodes_to_its_text_trace(self):
        examples = sorted(EXAMPLES.glob("*.json"))
        self.assertTrue(examples, EXAMPLES)
        for example in examples + sorted(pathlib.Path(__file__).parent.glob("*.json")):
            with self.subTest(example=example.stem), tempfile.TemporaryDirectory() as tmp:
                trace, flashlog = pathlib.Path(tmp, "trace"), pathlib.Path(tmp, "run.flashlog")
                sim = run([SIM, "run", example, "--trace-level", "9", "--trace-file", trace,
                           "--flashlog", flashlog],
                          env=dict(os.environ, MARL_FLASHLOG_DIR=tmp, TMPDIR=tmp))
                self.assertEqual(sim.returncode, 0, sim.stderr)
                cat = run([FLASHLOG_CAT, flashlog])
                self.assertEqual((cat.returncode, cat.stderr), (0, ""))
                # "<time> <facility>/<level> <text>"; the text may be empty or hold spaces.
                decoded = [line.split(" ", 2) for line in cat.stdout.splitlines()]
                library = [text for _, source, text in decoded
                           if source.partition("/")[0] == FACILITY]
                lines = trace.read_text().splitlines()
                self.assertTrue(lines)
                self.assertEqual(library, lines)


if __name__ == "__main__":
    unittest.main()
