"""End-to-end benchmark of vpls-decap-agent on a private redis-server.

For P pseudowires of V VLANs (the scale benchmark's mix: instances of 16, every eighth
VLAN-aware, groups core/edge/dc, spokes, one standby per instance):
  program  the configuration written by a pipelined writer (redis-cli --pipe), then one
           barrier; seconds from the first byte written until the agent acknowledges the
           barrier, so every output is in Redis;
  floor    the same output hashes (every key the agent wrote) written into the same server by
           the same pipelined client, into another database (under a prefix of its own);
  startup  the agent stopped (SIGTERM) and started again over that settled state: seconds until
           it acknowledges a barrier, how many output keys it wrote (keyspace notifications) and
           its peak memory then, against the settled agent's before the stop; beside it, its
           floor: the server's CPU time for listing every key (SCAN) and reading every hash
           (HGETALL, pipelined);
  burst    then `--burst` writes of input keys already there (100000 by default), as fast as
           the writer goes: seconds to the barrier and the growth of the agent's peak memory.
Each size runs `--repetitions` times on a fresh server and agent; the best run is reported.

Usage: bench_agent.py AGENT [--pseudowires P] [--vlans V] [--repetitions N] [--json FILE]"""

import argparse
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "agent"))
import agent_rig as rig  # noqa: E402

PER_INSTANCE = 16
VLAN_AWARE_EVERY = 8


def mix(pseudowires, vlans):
    """The configuration as input rows: (key, fields) in the order a configuration agent
    writes them."""
    rows = []
    for n in range(1, pseudowires + 1):
        instance, place = (n - 1) // PER_INSTANCE, (n - 1) % PER_INSTANCE
        group = ("core" if place <= 5 or place == 15 else "edge" if place <= 9
                 else "dc" if place <= 11 else "")
        pw = f"Pseudowire{n}"
        rows.append((f"VPLS_PW_INTF_INFO|{pw}", {
            "vplsInstanceName": f"vpls{instance}", "groupName": group,
            "splitHorizon": rig.text(bool(group)), "standby": rig.text(place == 15),
            "vlanAware": rig.text(instance % VLAN_AWARE_EVERY == VLAN_AWARE_EVERY - 1),
            "controlWord": rig.text(place % 2 == 0), "flowLabel": "false"}))
        rows.append((f"VPLS_DECAP_LABEL|{pw}", {"label": str(1000 + n)}))
        for v in range(vlans):
            vlan = 1 + (instance * vlans + v) % 4000
            rows.append((f"VPLS_VLAN_TAG_INFO|{pw}|{vlan}", {"tag": str(4001 + v)}))
        rows.append((f"VPLS_ENCAP_HW_FEC_ID|{pw}",
                     {"hwFecId": str(0x10000 + n), "globalInLif": str(0x20000 + n)}))
    return rows


def resp(*args):
    out = [b"*%d\r\n" % len(args)]
    for arg in args:
        data = arg.encode() if isinstance(arg, str) else arg
        out.append(b"$%d\r\n%s\r\n" % (len(data), data))
    return b"".join(out)


def protocol(rows, db=None, tail=()):
    parts = [resp("SELECT", str(db))] if db is not None else []
    for key, fields in rows:
        flat = [x for item in fields.items() for x in item]
        parts.append(resp("HSET", key, *flat))
    parts.extend(resp(*command) for command in tail)
    return b"".join(parts)


def pipe(server, data):
    """Seconds redis-cli --pipe takes to write `data` and have every reply."""
    start = time.perf_counter()
    subprocess.run(["redis-cli", "-s", server.socket, "--pipe"], input=data, check=True,
                   stdout=subprocess.DEVNULL)
    return time.perf_counter() - start


def read_floor(server, db):
    """The server's CPU seconds for what a start-up reads: every key's name (SCAN, 10000 a
    call) and then every hash (HGETALL, pipelined by redis-cli). Clients differ in what reading
    the answers costs them; the server's work is the same for any, so this bounds a start-up."""
    before = cpu_seconds(server.process.pid)
    keys = list(db.scan_iter(count=10000))
    commands = b"".join(resp("HGETALL", key) for key in keys)
    subprocess.run(["redis-cli", "-s", server.socket, "--pipe"], input=commands,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return cpu_seconds(server.process.pid) - before


def wait_sync(db, token, timeout=600):
    """The time the agent acknowledges the barrier `token`, waiting on the keyspace
    notification of its status rather than polling (which would take a core from the agent)."""
    watcher = db.pubsub()
    watcher.subscribe("__keyspace@0__:VPLS_AGENT_STATUS")
    try:
        deadline = time.monotonic() + timeout
        while db.hget("VPLS_AGENT_STATUS", "sync") != token:
            if time.monotonic() > deadline:
                raise TimeoutError("no barrier " + token)
            watcher.get_message(timeout=1.0)
        return time.perf_counter()
    finally:
        watcher.close()


def rss_kib(pid, field="VmRSS:"):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith(field):
            return int(line.split()[1])
    return 0


def cpu_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def burst(server, db, agent, rows, changes):
    """`changes` writes of input keys that are already there, with their values (every write
    notifies, so each is a change the agent applies), as fast as the pipelined writer goes:
    seconds until the barrier after them, and how much the agent's peak memory grew."""
    before = rss_kib(agent.process.pid, "VmHWM:")
    writes = [rows[i % len(rows)] for i in range(changes)]
    data = protocol(writes, tail=[("HSET", "VPLS_AGENT_SYNC", "token", "burst")])
    start = time.perf_counter()
    subprocess.run(["redis-cli", "-s", server.socket, "--pipe"], input=data, check=True,
                   stdout=subprocess.DEVNULL)
    seconds = wait_sync(db, "burst") - start
    return seconds, (rss_kib(agent.process.pid, "VmHWM:") - before) / 1024


def run_once(binary, pseudowires, vlans, changes):
    with tempfile.TemporaryDirectory() as directory:
        server = rig.RedisServer(directory)
        agent = rig.Agent(binary, server.url, directory, env={"MARL_TOGGLE_DIR": directory})
        db = server.client()
        try:
            agent.start()
            rig.barrier(db, "empty")
            rows = mix(pseudowires, vlans)
            data = protocol(rows, tail=[("HSET", "VPLS_AGENT_SYNC", "token", "programmed")])
            cpu = (cpu_seconds(agent.process.pid), cpu_seconds(server.process.pid))
            start = time.perf_counter()
            subprocess.run(["redis-cli", "-s", server.socket, "--pipe"], input=data, check=True,
                           stdout=subprocess.DEVNULL)
            program = wait_sync(db, "programmed") - start
            agentCpu = cpu_seconds(agent.process.pid) - cpu[0]
            serverCpu = cpu_seconds(server.process.pid) - cpu[1]
            rss = rss_kib(agent.process.pid)

            outputs = rig.output_rows(db)
            statuses = {k: db.hgetall(k) for k in db.scan_iter("VPLS_PW_STATUS|*", count=10000)}
            entries = sum(1 for k in outputs if k.startswith("MPLS_DECAP_CONFIG|"))
            # Decap entries (the VTT2 entries, profile 15, are none) without a row on the chip.
            decap = sum(1 for k, v in outputs.items()
                        if k.startswith("MPLS_DECAP_CONFIG|") and v.get("inLifProfile") != "15")
            waiting = decap - sum(1 for k in outputs if k.startswith("CHIP_DECAP_ENTRY|"))
            waitingPws = sum(1 for v in statuses.values()
                             if v.get("status", "").startswith("waiting for the chip"))
            written = list(outputs.items()) + list(statuses.items())
            # Under a prefix of its own: the agent writes again any of its keys that another
            # client writes, in whichever database.
            floor = pipe(server, protocol([("floor:" + k, f) for k, f in written], db=1))

            restartFloor = read_floor(server, db)

            watcher = db.pubsub()
            watcher.psubscribe("__keyspace@0__:*")
            agent.stop(signal.SIGTERM)
            start = time.perf_counter()
            agent.start()
            db.hset("VPLS_AGENT_SYNC", "token", "settled")
            startup = wait_sync(db, "settled") - start
            startupPeak = rss_kib(agent.process.pid, "VmHWM:")
            rewritten = set()
            while (message := watcher.get_message(timeout=0.5)) is not None:
                if message["type"] == "pmessage":
                    key = message["channel"].split(":", 1)[1]
                    if key.split("|", 1)[0] in rig.OUTPUT_TABLES + ("VPLS_PW_STATUS", "VPLS_LOG"):
                        rewritten.add(key)
            watcher.close()
            burstSeconds, burstGrowth = burst(server, db, agent, rows, changes)
            resyncs = agent.output().count("reading everything again") + \
                agent.output().count("lost the state database")
            return {"pseudowires": pseudowires, "vlans": vlans, "entries": entries,
                    "inputKeys": pseudowires * (3 + vlans), "outputKeys": len(written),
                    "programSeconds": program, "floorSeconds": floor,
                    "entriesPerSecond": entries / program, "ratioToFloor": program / floor,
                    "startupSeconds": startup, "startupOutputKeysWritten": len(rewritten),
                    "startupFloorSeconds": restartFloor, "startupPeakRssKiB": startupPeak, "startupPeakToSettled": startupPeak / rss,
                    "agentRssKiB": rss, "agentCpuSeconds": agentCpu,
                    "serverCpuSeconds": serverCpu, "burstChanges": changes,
                    "burstSeconds": burstSeconds, "burstPeakGrowthMiB": burstGrowth,
                    "burstResynchronisations": resyncs, "entriesWaitingForChip": waiting,
                    "pseudowiresWaitingForChip": waitingPws}
        finally:
            db.close()
            agent.stop(signal.SIGKILL)
            server.stop()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("agent")
    parser.add_argument("--pseudowires", type=int, nargs="+", default=[1024, 8192])
    parser.add_argument("--vlans", type=int, default=8)
    parser.add_argument("--repetitions", type=int, default=2)
    parser.add_argument("--burst", type=int, default=100000,
                        help="changes of the burst after start-up (re-sets of keys present)")
    parser.add_argument("--json")
    args = parser.parse_args()
    results = []
    print(f"{'P x V':>10} {'entries':>8} {'out keys':>9} {'program s':>10} {'entries/s':>10} "
          f"{'floor s':>8} {'x floor':>8} {'startup s':>10} {'rewritten':>9} {'RSS MiB':>8} "
          f"{'waiting':>8}")
    for pseudowires in args.pseudowires:
        runs = [run_once(args.agent, pseudowires, args.vlans, args.burst)
                for _ in range(args.repetitions)]
        best = min(runs, key=lambda r: r["programSeconds"])
        best["startupSeconds"] = min(r["startupSeconds"] for r in runs)
        best["floorSeconds"] = min(r["floorSeconds"] for r in runs)
        best["ratioToFloor"] = best["programSeconds"] / best["floorSeconds"]
        best["startupOutputKeysWritten"] = max(r["startupOutputKeysWritten"] for r in runs)
        best["startupFloorSeconds"] = min(r["startupFloorSeconds"] for r in runs)
        results.append(best)
        print(f"{pseudowires:>6} x {args.vlans:<2} {best['entries']:>8} {best['outputKeys']:>9} "
              f"{best['programSeconds']:>10.3f} {best['entriesPerSecond']:>10.0f} "
              f"{best['floorSeconds']:>8.3f} {best['ratioToFloor']:>8.2f} "
              f"{best['startupSeconds']:>10.3f} {best['startupOutputKeysWritten']:>9} "
              f"{best['agentRssKiB'] / 1024:>8.1f} {best['entriesWaitingForChip']:>8}  "
              f"(program CPU: agent "
              f"{best['agentCpuSeconds']:.2f} s, server {best['serverCpuSeconds']:.2f} s)",
              flush=True)
        if best["entriesWaitingForChip"]:
            print(f"{'':>13}{best['entriesWaitingForChip']} decap entries of "
                  f"{best['pseudowiresWaitingForChip']} pseudowires wait for the chip's in-LIF "
                  f"table", flush=True)
        print(f"{'':>13}start-up: read floor {best['startupFloorSeconds']:.2f} s "
              f"(the server's CPU for SCAN and HGETALL of every key), peak memory "
              f"{best['startupPeakRssKiB'] / 1024:.1f} MiB, "
              f"{best['startupPeakToSettled']:.2f} x the settled agent's", flush=True)
        print(f"{'':>13}burst of {args.burst} changes: {best['burstSeconds']:.2f} s, "
              f"{args.burst / best['burstSeconds']:.0f} changes/s, agent peak memory "
              f"+{best['burstPeakGrowthMiB']:.1f} MiB, "
              f"{best['burstResynchronisations']} resynchronisations", flush=True)
    if args.json:
        pathlib.Path(args.json).write_text(json.dumps({"cases": results}, indent=2) + "\n")


if __name__ == "__main__":
    main()
