#!/usr/bin/env python3
"""What boards cost, measured with the programs as people run them: put, update, a holder that dies, and memory.

    bench/BoardBench.py BUILD/tools SAMPLES [put] [update] [lock] [memory] [--json FILE] [--folder DIR] [--runs N]
                        [--mebibytes N]

Without a name all of them are measured. Everything runs on loopback in a network namespace of its own. The files lie in
DIR (default: the current folder), which should be on the disk that is meant. FILE is given what was measured against
something as a list of objects: row, ours, peer (both in seconds), ratio (ours to peer) and limit.

put        kvinv put of a file of random bytes, from the start of the program to its end, against a plain copy of the same
           file through one socket: the sender uses sendfile, the receiver takes up to 1 MiB at a time into one block,
           writes, checksums with zlib.crc32, syncs the file, renames it, syncs the folder and answers. The two take
           turns; both write to DIR, and the source is in memory.
update     kvinv update, from the start of the program to its end, less the board's own --update-seconds.
lock       from kill -9 of the holder, right after its lock was granted, until another client has got the lock.
memory     resident memory of kvboardd with 200 boards, whose trees are those of rack.json in turn, before and after all of
           them have been scanned at once.
"""

import argparse
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import threading
import time
import zlib

ADDRESS = "127.0.0.11"
MAPPER = "10111"
CHUNK = 1 << 20
ROWS = ("put", "update", "lock", "memory")


class Service:
    """kvboardd with the one board HCN[4711] at ADDRESS."""

    def __init__(self, tools, samples, folder, *options):
        boards = {"format": "korvel-board", "version": 1,
                  "boards": [{"serialNumber": 4711, "boardType": 6003, "boardName": "IO-1", "systemName": "Rack A",
                              "address": ADDRESS, "tree": str(samples / "single-board.json")}]}
        (folder / "boards.json").write_text(json.dumps(boards))
        self.process = subprocess.Popen(
            [tools / "kvboardd/kvboardd", "--boards", folder / "boards.json", "--portmap", MAPPER,
             "--state", folder / "state", *options],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        if not self.process.stdout.readline().startswith("ready"):
            sys.exit("kvboardd did not start")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()


class Client:
    def __init__(self, tools):
        self.program = tools / "kvinv/kvinv"
        self.environment = dict(os.environ, KVDAL_PORTMAP_PORT=MAPPER)

    def command(self, command, *arguments):
        return [self.program, command, "--ip", ADDRESS, *arguments]

    def run(self, command, *arguments):
        """The seconds it took and what it printed."""
        began = time.monotonic()
        done = subprocess.run(self.command(command, *arguments), env=self.environment, capture_output=True, text=True)
        took = time.monotonic() - began
        if done.returncode != 0:
            sys.exit(f"kvinv {command} failed: {done.stderr}")
        return took, done.stdout

    def start(self, command, *arguments):
        return subprocess.Popen(self.command(command, *arguments), env=self.environment, stdout=subprocess.PIPE,
                                stderr=subprocess.DEVNULL, text=True)

    def succeeds(self, command, *arguments):
        return subprocess.run(self.command(command, *arguments), env=self.environment,
                              capture_output=True).returncode == 0


def receive(listener, target):
    connection, _ = listener.accept()
    checksum = 0
    unfinished = target.with_suffix(".part")
    block = memoryview(bytearray(CHUNK))
    file = os.open(unfinished, os.O_WRONLY | os.O_CREAT | os.O_TRUNC)
    with connection:
        while size := connection.recv_into(block):
            data = block[:size]
            if os.write(file, data) != size:
                sys.exit("the plain copy cannot write")
            checksum = zlib.crc32(data, checksum)
        os.fsync(file)
        os.rename(unfinished, target)
        parent = os.open(target.parent, os.O_RDONLY)
        os.fsync(parent)
        connection.sendall(checksum.to_bytes(4, "big"))
    os.close(parent)
    os.close(file)


def plain_copy(source, target, checksum):
    with socket.create_server((ADDRESS, 0)) as listener:
        receiver = threading.Thread(target=receive, args=(listener, target))
        receiver.start()
        began = time.monotonic()
        with socket.create_connection(listener.getsockname()) as connection, open(source, "rb") as file:
            connection.sendfile(file)
            connection.shutdown(socket.SHUT_WR)
            answer = connection.recv(4)
        took = time.monotonic() - began
        receiver.join()
    if answer != checksum.to_bytes(4, "big"):
        sys.exit("the plain copy failed")
    target.unlink()
    return took


def summary(values, unit, scale=1.0):
    values = [value * scale for value in values]
    return (f"median {statistics.median(values):.2f} {unit} "
            f"({min(values):.2f} to {max(values):.2f}, {len(values)} runs)")


def measure_put(tools, samples, folder, runs, mebibytes):
    source = folder / "source"
    checksum = 0
    with open(source, "wb") as file:
        for _ in range(mebibytes):
            data = os.urandom(CHUNK)
            checksum = zlib.crc32(data, checksum)
            file.write(data)
        file.flush()
        os.fsync(file.fileno())
    client = Client(tools)
    puts, copies = [], []
    with Service(tools, samples, folder):
        for _ in range(runs):
            took, name = client.run("put", "HCN[4711]", str(source))
            puts.append(took)
            client.run("rm", "HCN[4711]", name.strip())
            copies.append(plain_copy(source, folder / "copy", checksum))
    source.unlink()
    print(f"put of {mebibytes} MiB: {summary([mebibytes / took for took in puts], 'MiB/s')}")
    print(f"plain socket copy: {summary([mebibytes / took for took in copies], 'MiB/s')}")
    ours, peer = statistics.median(puts), statistics.median(copies)
    ratio = ours / peer
    print(f"time of the one to that of the other, medians: {ratio:.2f} (at most 1.40)")
    return [{"row": f"put of {mebibytes} MiB", "ours": ours, "peer": peer, "ratio": ratio, "limit": 1.4}]


def measure_update(tools, samples, folder, runs):
    seconds = 1
    client = Client(tools)
    beyond = []
    with Service(tools, samples, folder, "--update-seconds", str(seconds)):
        for _ in range(runs):
            took, _ = client.run("update", "--force", "HCN[4711]/FIRMWARE", str(samples / "firmware-image.bin"))
            beyond.append(took - seconds)
    print(f"update beyond the board's own {seconds} s: {summary(beyond, 'ms', 1000)}")


def measure_dead_lock(tools, samples, folder, runs, lease):
    client = Client(tools)
    free = []
    with Service(tools, samples, folder, "--lease-seconds", str(lease)):
        for _ in range(runs):
            holder = client.start("lock", "HCN[4711]", "--", "sh", "-c", "echo $$; exec sleep 1000")
            child = int(holder.stdout.readline())
            began = time.monotonic()
            holder.send_signal(signal.SIGKILL)
            holder.wait()
            os.kill(child, signal.SIGKILL)
            while not client.succeeds("lock", "HCN[4711]", "--", "true"):
                time.sleep(0.005)
            free.append(time.monotonic() - began)
    print(f"lock of a dead holder free, lease of {lease} s: {summary(free, 's')}")


def resident_mebibytes(process):
    status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
    return {key: int(re.search(key + r":\s+(\d+) kB", status)[1]) / 1024 for key in ("VmRSS", "VmHWM")}


def measure_memory(tools, samples, folder, count=200):
    trees = json.loads((samples / "rack.json").read_text())["tree"]["items"]
    boards = []
    for i in range(count):
        tree = dict(trees[i % len(trees)], index=5000 + i)
        boards.append({"serialNumber": 5000 + i, "boardType": 6003, "boardName": f"IO-{i}", "systemName": "Rack",
                       "address": f"127.0.1.{i + 1}", "tree": tree})
    description = folder / "many.json"
    description.write_text(json.dumps({"format": "korvel-board", "version": 1, "boards": boards}))
    process = subprocess.Popen(
        [tools / "kvboardd/kvboardd", "--boards", description, "--portmap", MAPPER, "--state", folder / "many"],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    if not process.stdout.readline().startswith("ready"):
        sys.exit("kvboardd did not start")
    before = resident_mebibytes(process)
    addresses = ",".join(board["address"] for board in boards)
    began = time.monotonic()
    subprocess.run([tools / "kvinv/kvinv", "scan", "--ip", addresses, "-o", folder / "many.inv"], check=True,
                   env=dict(os.environ, KVDAL_PORTMAP_PORT=MAPPER))
    took = time.monotonic() - began
    after = resident_mebibytes(process)
    process.terminate()
    process.wait()
    print(f"memory with {count} boards: {before['VmRSS']:.1f} MiB, after a scan of all ({took:.2f} s) "
          f"{after['VmRSS']:.1f} MiB, at most {after['VmHWM']:.1f} MiB")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("tools", type=pathlib.Path)
    parser.add_argument("samples", type=pathlib.Path)
    parser.add_argument("rows", nargs="*", metavar="put, update, lock, memory")
    parser.add_argument("--json", type=pathlib.Path)
    parser.add_argument("--folder", type=pathlib.Path, default=pathlib.Path.cwd())
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--mebibytes", type=int, default=300)
    arguments = parser.parse_args()
    rows = arguments.rows or ROWS
    if not set(rows) <= set(ROWS):
        parser.error("the rows are " + ", ".join(ROWS))
    if "KV_OWN_NETWORK" not in os.environ:
        os.environ["KV_OWN_NETWORK"] = "1"
        os.execvp("unshare", ["unshare", "--net", "sh", "-c", 'ip link set lo up && exec "$@"', "sh", sys.executable,
                              *sys.argv])
    tools, samples = arguments.tools.resolve(), arguments.samples.resolve()
    folder = pathlib.Path(tempfile.mkdtemp(dir=arguments.folder))
    results = []
    try:
        if "put" in rows:
            results += measure_put(tools, samples, folder, arguments.runs, arguments.mebibytes)
        if "update" in rows:
            measure_update(tools, samples, folder, arguments.runs)
        if "lock" in rows:
            for lease, runs in ((2, arguments.runs), (20, 2)):
                measure_dead_lock(tools, samples, folder, runs, lease)
        if "memory" in rows:
            measure_memory(tools, samples, folder)
    finally:
        shutil.rmtree(folder)
    if arguments.json:
        arguments.json.write_text(json.dumps(results, indent=2) + "\n")


if __name__ == "__main__":
    main()
