"""Runs a fleet of units and Prometheus. Started by fleet.sh, in namespaces of its own."""
import argparse
import json
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

from faults import FAULTS
from unit import Unit, read_cost, run

SETTLE = 60  # s before the first fault
ALERT_TIME = 150  # s after a fault's end in which its alert must fire
PROMETHEUS = "127.0.0.1:9090"
MACHINE_ALERT = "V2xSpatClockNotSynchronised"  # true or false for all units: they share this machine's clock


def read_options():
    parser = argparse.ArgumentParser(prog="fleet.sh")
    parser.add_argument("root", type=pathlib.Path, help=argparse.SUPPRESS)
    parser.add_argument("programs", type=pathlib.Path, help=argparse.SUPPRESS)
    parser.add_argument("--units", type=int, default=10, choices=range(1, 1001), metavar="N")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--faulty", type=float, default=0.6)
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32))
    return parser.parse_args()


def start_network():
    run("ip", "link", "set", "lo", "up")
    run("ip", "link", "add", "fleet", "type", "bridge")
    run("ip", "address", "add", "10.77.255.254/16", "dev", "fleet")
    run("ip", "link", "set", "fleet", "up")


def start_prometheus(root, folder, units):
    conf = folder / "prometheus"
    shutil.copytree(root / "contrib/prometheus", conf)
    (conf / "units/example.yml").unlink()
    targets = [{"targets": [f"{unit.address}:8080"], "labels": {"unit": unit.name}} for unit in units]
    (conf / "units/fleet.yml").write_text(json.dumps(targets))  # JSON is YAML
    with open(folder / "prometheus.out", "wb") as output:
        return subprocess.Popen(
            ["prometheus", f"--config.file={conf}/prometheus.yml", f"--storage.tsdb.path={folder}/data",
             f"--web.listen-address={PROMETHEUS}"], stdout=output, stderr=output)


def query(path, **parameters):
    url = f"http://{PROMETHEUS}/api/v1/{path}?{urllib.parse.urlencode(parameters)}"
    with urllib.request.urlopen(url) as answer:
        return json.load(answer)["data"]["result"]


def choose_faults(options, units):
    """Returns [(start, unit, fault)] in the order of the start, at most one for each unit."""
    end = options.minutes * 60 - ALERT_TIME
    chosen = []
    faulty = random.sample(units, round(len(units) * options.faulty))
    possible = [fault for fault in FAULTS if SETTLE + fault.seconds <= end]
    if not possible:
        return []
    order = random.sample(possible, len(possible))
    for number, unit in enumerate(faulty):
        fault = order[number % len(order)]  # every fault before one comes twice
        chosen.append((random.uniform(SETTLE, end - fault.seconds), unit, fault))
    return sorted(chosen, key=lambda item: item[0])


def play(options, units, plan, prometheus):
    """Runs the faults of the plan until the time is over. Returns {unit: (fault, time of its start)}."""
    start = time.time()
    waiting = [(start + at, unit, fault, None) for at, unit, fault in plan]
    injected = {}
    while time.time() < start + options.minutes * 60:
        for item in [item for item in waiting if item[0] <= time.time()]:
            waiting.remove(item)
            _, unit, fault, steps = item
            if steps is None:
                injected[unit] = (fault, time.time())
                print(f"fleet: {time.time() - start:5.0f} s  {unit.name}: {fault.name}", flush=True)
                steps = fault.inject(unit)
            pause = next(steps, None)
            if pause is not None:
                waiting.append((time.time() + pause, unit, fault, steps))
        for unit in units:
            unit.supervise()
        if prometheus.poll() is not None:
            sys.exit("fleet: Prometheus has ended")
        time.sleep(0.2)
    return injected


def stop(units):
    """Stops senders first, so that nothing is on its way when a receiver ends."""
    for names, pause in ((("learner", "controller"), 2), (("stack", "serve"), 1), (("daemon", "cloud"), 0)):
        for unit in units:
            for name in names:
                if name in unit.processes:
                    unit.signal(name, signal.SIGTERM)
                    unit.off.add(name)
        for unit in units:
            for name in names:
                if name in unit.processes:
                    unit.processes[name].wait()
        time.sleep(pause)


def read_alerts(start, end):
    """Returns {(unit name, alert): time of its first firing}."""
    first = {}
    for series in query("query_range", query='ALERTS{alertstate="firing"}', start=start, end=end, step=5):
        labels = series["metric"]
        key = (labels["unit"], labels["alertname"])
        first[key] = min(first.get(key, end), float(series["values"][0][0]))
    return first


def report_faults(injected, alerts):
    """Prints the table of the faults. Returns the number of missing alerts."""
    missing = 0
    print("\n| unit | what was done | alert | fired after |\n|---|---|---|---|")
    for unit, (fault, begin) in injected.items():
        fired = alerts.get((unit.name, fault.alert))
        missing += fault.alert is not None and fired is None
        delay = "-" if fault.alert is None else "MISSING" if fired is None else f"{fired - begin:.0f} s"
        print(f"| {unit.name} | {fault.name} | {fault.alert or '-'} | {delay} |")
    return missing


def report_false_alarms(injected, alerts):
    expected = {(unit.name, fault.alert) for unit, (fault, _) in injected.items()}
    false = [key for key in alerts if key not in expected and key[1] != MACHINE_ALERT]
    machine = sum(key[1] == MACHINE_ALERT for key in alerts)
    print(f"\nfalse alarms: {len(false)}{''.join(f'; {unit} {alert}' for unit, alert in false)}")
    print(f"{MACHINE_ALERT} fired for {machine} units: they share the clock of this machine")
    return len(false)


def report_losses(units, injected):
    sent = received = up = delivered = ends = 0
    for unit in units:
        if unit in injected:
            continue
        sent += sum(unit.summary(name).get("sent", 0) for name in ("learner", "controller"))
        received += unit.summary("stack").get("records", 0)
        up += unit.summary("stack").get("repliesGood", 0)
        delivered += unit.summary("cloud").get("upGood", 0)
        ends += len(unit.exits)
    print(f"\n{len(units) - len(injected)} units without a fault: {sent} reports and frames sent, {received} records received; "
          f"{up} SPATs from the stacks, {delivered} in the cloud; {ends} processes ended by themselves")
    return sent != received or up != delivered or ends != 0


def read_costs(units):
    return {(unit, name): read_cost(unit.processes[name].pid)
            for unit in units for name in ("daemon", "serve") if name in unit.processes}


def report_costs(before, after, seconds):
    print("\n| of units without a fault | CPU | memory (PSS) | wake-ups |\n|---|---|---|---|")
    for name in ("daemon", "serve"):
        pairs = [(before[key], after[key]) for key in before if key[1] == name and key in after]
        if not pairs:
            continue
        cpu = sum(late[0] - early[0] for early, late in pairs) / len(pairs) / seconds * 1000
        memory = sum(late[1] for _, late in pairs) / len(pairs)
        wakeups = sum(late[2] - early[2] for early, late in pairs) / len(pairs) / seconds
        print(f"| one {name} | {cpu:.1f} ms/s | {memory:.1f} MiB | {wakeups:.1f} /s |")


def read_machine():
    """Returns the machine's busy time and total time in ticks."""
    numbers = [int(field) for field in pathlib.Path("/proc/stat").read_text().split("\n")[0].split()[1:9]]
    return sum(numbers) - numbers[3] - numbers[4], sum(numbers)


def main():
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit("fleet: interrupted"))
    options = read_options()
    random.seed(options.seed)
    print(f"fleet: {options.units} units, {options.minutes:g} minutes, seed {options.seed}", flush=True)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="v2x_fleet."))
    try:
        start_network()
        units = []
        for index in range(options.units):
            unit = Unit(options.root, options.programs, folder, index)
            for name in ("stack", "cloud", "daemon"):
                unit.start(name)
            units.append(unit)
        time.sleep(3)  # discovery of the cloud's topics
        for unit in units:
            for name in ("serve", "learner", "controller"):
                unit.start(name)
        time.sleep(3)
        begin = time.time()
        prometheus = start_prometheus(options.root, folder, units)
        plan = choose_faults(options, units)
        healthy = [unit for unit in units if unit not in {item[1] for item in plan}]
        costs, machine = read_costs(healthy), read_machine()
        injected = play(options, units, plan, prometheus)
        later, machine_later = read_costs(healthy), read_machine()
        seconds = time.time() - begin
        alerts = read_alerts(begin, time.time())
        prometheus_cost = read_cost(prometheus.pid)
        stop(units)
        failed = report_faults(injected, alerts) + report_false_alarms(injected, alerts) + report_losses(units, injected)
        report_costs(costs, later, seconds)
        busy = (machine_later[0] - machine[0]) / (machine_later[1] - machine[1])
        print(f"| Prometheus | {prometheus_cost[0] / seconds * 1000:.1f} ms/s | {prometheus_cost[1]:.1f} MiB | |")
        print(f"\nmachine: {busy:.0%} of its processors in use, simulators included")
        sys.exit(1 if failed else 0)
    finally:
        shutil.rmtree(folder, ignore_errors=True)


main()
