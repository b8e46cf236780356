#!/usr/bin/env python3
"""Watched folders against `tavrin clean`, as whole processes.

  bench/watch_bench.py TAVRIN JPEG [FILES]

Latency: a watcher runs with the default intervals (stability 2 s, debounce 0.5 s); a small JPEG
is written and closed, and the time until its clean copy is on disk is taken, several times.
Throughput: FILES copies of the JPEG are dropped into the watched folder at once, and the time
until the last copy is cleaned gives files/s; `tavrin clean` on the same files gives the
reference. The watcher's figure includes the intervals it waits before a file counts as settled.
"""
import json, os, shutil, signal, statistics, subprocess, sys, tempfile, time

tavrin, jpeg = sys.argv[1], sys.argv[2]
count = int(sys.argv[3]) if len(sys.argv) > 3 else 1000
work = tempfile.mkdtemp(prefix="tavrin-watch-bench-")
env = dict(os.environ, XDG_DATA_HOME=f"{work}/data", XDG_RUNTIME_DIR=work, TAVRIN_USE_IN_MEMORY_STORE="0")
os.makedirs(f"{work}/data")


def tavrin_run(*args):
    subprocess.run([tavrin, *args], env=env, check=True, stdout=subprocess.DEVNULL)


def start_watcher(folder):
    tavrin_run("watch", "add", folder)
    tavrin_run("watch", "enable")
    out = open(f"{work}/run.out", "w")
    err = open(f"{work}/run.err", "w")
    child = subprocess.Popen([tavrin, "watch", "run", "--json"], env=env, stdout=out, stderr=err)
    while "Watching" not in open(f"{work}/run.err").read():
        time.sleep(0.01)
    return child


def wait_for(path, poll=0.002):
    while not os.path.exists(path):
        time.sleep(poll)
    return time.monotonic()


# Latency of one file.
latency_folder = f"{work}/latency"
os.makedirs(latency_folder)
child = start_watcher(latency_folder)
data = open(jpeg, "rb").read()
latencies = []
for i in range(5):
    name = f"{latency_folder}/photo{i}.jpg"
    with open(name, "wb") as f:
        f.write(data)
    closed = time.monotonic()
    latencies.append(wait_for(f"{latency_folder}/photo{i}-clean.jpg") - closed)
    time.sleep(0.3)
child.send_signal(signal.SIGTERM)
child.wait()
tavrin_run("watch", "remove", latency_folder)

# Throughput: the reference first.
ref = f"{work}/ref"
os.makedirs(ref)
for i in range(count):
    shutil.copyfile(jpeg, f"{ref}/p{i:04}.jpg")
os.makedirs(f"{work}/ref-out")
started = time.monotonic()
subprocess.run([tavrin, "clean", "--output-dir", f"{work}/ref-out", ref], env=env, check=True, stdout=subprocess.DEVNULL)
clean_seconds = time.monotonic() - started

drop = f"{work}/drop"
staging = f"{work}/drop-staging"
os.makedirs(drop)
os.makedirs(staging)
for i in range(count):
    shutil.copyfile(jpeg, f"{staging}/p{i:04}.jpg")
child = start_watcher(drop)
started = time.monotonic()
for i in range(count):
    os.rename(f"{staging}/p{i:04}.jpg", f"{drop}/p{i:04}.jpg")
while sum(1 for line in open(f"{work}/run.out") if line.strip()) < count:
    time.sleep(0.02)
watch_seconds = time.monotonic() - started
child.send_signal(signal.SIGTERM)
child.wait()
lines = [json.loads(l) for l in open(f"{work}/run.out") if l.strip()]
cleaned = sum(1 for l in lines if l["event"] == "cleaned")
settle = 2.5
print(f"watch: close to clean copy, small JPEG: median {statistics.median(latencies)*1000:.0f} ms, "
      f"max {max(latencies)*1000:.0f} ms (stability 2 s + debounce 0.5 s; budget 2100 ms after the last event)")
print(f"watch: {count} files dropped at once: {cleaned} cleaned in {watch_seconds:.2f} s = {count/watch_seconds:.1f} files/s "
      f"({count/max(watch_seconds-settle, 1e-9):.1f} files/s after the {settle} s of settling)")
print(f"clean: tavrin clean on the same {count} files: {clean_seconds:.2f} s = {count/clean_seconds:.1f} files/s")
print(f"watch/clean ratio: {clean_seconds/watch_seconds:.2f}x overall, {clean_seconds/max(watch_seconds-settle,1e-9):.2f}x after settling")
shutil.rmtree(work)
