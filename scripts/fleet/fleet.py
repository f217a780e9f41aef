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
ALERT_TIME = 150  # s after a fault's end until which its alert must fire
STEP = 5  # s between two looks at the alerts
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
    """Stops senders first, so that nothing is on its way when a receiver ends. Notes an unexpected end."""
    for names, pause in ((("learner", "controller"), 2), (("stack", "serve"), 1), (("daemon", "cloud"), 0)):
        running = [(unit, name) for unit in units for name in names if name in unit.processes]
        for unit, name in running:
            unit.off.add(name)
            unit.signal(name, signal.SIGTERM)
        for unit, name in running:
            if unit.processes[name].wait() != 0:
                unit.exits.append(f"{name} ended with {unit.processes[name].returncode}")
        time.sleep(pause)


def read_alerts(start, end):
    """Returns [(unit name, alert, source or "", time at which it fired)]."""
    fired = []
    for series in query("query_range", query='ALERTS{alertstate="firing"}', start=start, end=end, step=STEP):
        labels = series["metric"]
        last = 0
        for at, _ in series["values"]:
            if float(at) > last + STEP:
                fired.append((labels["unit"], labels["alertname"], labels.get("source", ""), float(at)))
            last = float(at)
    return fired


def take_expected(alerts, unit, fault, begin):
    """Removes the alerts of a fault from the list. Returns [(alert, source, seconds until it fired or None)]."""
    rows = []
    for alert, source in fault.alerts:
        found = [item for item in alerts
                 if item[:3] == (unit.name, alert, source) and begin <= item[3] <= begin + fault.seconds + ALERT_TIME]
        for item in found:
            alerts.remove(item)
        rows.append((alert, source, min(item[3] for item in found) - begin if found else None))
    return rows


def report_faults(injected, alerts):
    """Prints the table of the faults, and removes their alerts from the list. Returns the number of missing alerts."""
    missing = 0
    print("\n| unit | what was done | alert | fired after |\n|---|---|---|---|")
    for unit, (fault, begin) in injected.items():
        rows = take_expected(alerts, unit, fault, begin)
        missing += sum(delay is None for _, _, delay in rows)
        names = ", ".join(f"{alert} {source}".strip() for alert, source, _ in rows)
        delays = ", ".join("MISSING" if delay is None else f"{delay:.0f} s" for _, _, delay in rows)
        print(f"| {unit.name} | {fault.name} | {names or '-'} | {delays or '-'} |")
    return missing


def report_false_alarms(alerts):
    machine = sum(alert == MACHINE_ALERT for _, alert, _, _ in alerts)
    false = [f"; {unit} {alert} {source}" for unit, alert, source, _ in alerts if alert != MACHINE_ALERT]
    print(f"\nfalse alarms: {len(false)}{''.join(false)}")
    print(f"{MACHINE_ALERT} fired for {machine} units: they share the clock of this machine")
    return len(false)


def report_losses(healthy):
    """Returns the number of units that lost something or did nothing."""
    total = [0, 0, 0, 0]
    bad = []
    for unit in healthy:
        stack = unit.summary("stack")
        sent = sum(unit.summary(name)["sent"] for name in ("learner", "controller"))
        counts = sent, stack["records"], stack["repliesGood"], unit.summary("cloud")["upGood"]
        total = [old + new for old, new in zip(total, counts)]
        if counts[0] != counts[1] or counts[2] != counts[3] or 0 in counts or unit.exits:
            bad.append(f"; {unit.name} {counts} {', '.join(unit.exits)}")
    print(f"\n{len(healthy)} units without a fault: {total[0]} reports and frames sent, {total[1]} records received; "
          f"{total[2]} SPATs from the stacks, {total[3]} in the cloud; {len(bad)} units lost something{''.join(bad)}")
    return len(bad)


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
    failed = True
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
        if not healthy or (options.faulty > 0 and not plan):
            sys.exit("fleet: every unit has a fault, or no fault fits into the time; change --faulty or --minutes")
        costs, machine = read_costs(healthy), read_machine()
        injected = play(options, units, plan, prometheus)
        later, machine_later = read_costs(healthy), read_machine()
        seconds = time.time() - begin
        alerts = read_alerts(begin, time.time())
        scraped = len(query("query", query='up{job="v2x_spat"}'))
        prometheus_cost = read_cost(prometheus.pid)
        stop(units)
        failed = report_faults(injected, alerts) + report_false_alarms(alerts) + report_losses(healthy)
        print(f"Prometheus reads {scraped} of {len(units)} units")
        failed += scraped != len(units)
        report_costs(costs, later, seconds)
        busy = (machine_later[0] - machine[0]) / (machine_later[1] - machine[1])
        print(f"| Prometheus | {prometheus_cost[0] / seconds * 1000:.1f} ms/s | {prometheus_cost[1]:.1f} MiB | |")
        print(f"\nmachine: {busy:.0%} of its processors in use, simulators included")
    finally:
        if failed:
            print(f"fleet: failed or interrupted; the logs are in {folder}", file=sys.stderr)
        else:
            shutil.rmtree(folder, ignore_errors=True)
    sys.exit(1 if failed else 0)


main()
