"""A unit of the fleet: its network namespace, its processes and what they cost."""
import json
import os
import pathlib
import signal
import subprocess
import time

REPORTS_PER_SECOND = 2
FRAMES_PER_SECOND = 1
TICKS_PER_SECOND = os.sysconf("SC_CLK_TCK")


def run(*command):
    subprocess.run([str(part) for part in command], check=True)


def configure(root, folder, device):
    """Writes the unit's conf/ from the sample configuration. Both devices are on; all their records are forwarded."""
    conf = folder / "conf"
    conf.mkdir(parents=True)
    (folder / "log").mkdir()
    text = (root / "conf/v2x_spat_convert.cfg").read_text()
    learner, controller = text.split("  SignalMachine1743 =")
    left_turns = "PhaseID5 = 7; PhaseID6 = 8; PhaseID7 = 9; PhaseID8 = 10; PhaseID9 = 5; PhaseID10 = 6;"
    for old, new in (
        ("IsEnable = false", "IsEnable = true"),
        ("# PhaseRelationship = { PhaseID3 = 7; };", f"PhaseRelationship = {{ {left_turns} }};"),
        ('OnStale = "unavailable"', 'OnStale = "nothing"'),
        ("# Conflicts = ((1, 2), (1, 4));", "Conflicts = ((1, 2), (1, 4));"),
    ):
        assert controller.count(old) == 1, old
        controller = controller.replace(old, new)
    text = learner + "  SignalMachine1743 =" + controller
    for old, new in (("/opt/v2x_service", str(folder)), ("192.168.1.20", "127.0.0.1"), ("192.168.1.30", "127.0.0.1")):
        text = text.replace(old, new)
    (conf / "v2x_spat_convert.cfg").write_text(text)
    (conf / "v2x_ipc.cfg").write_text((root / "conf/v2x_ipc.cfg").read_text())
    sysinfo = (root / "conf/sysinfo.xml").read_text()
    begin, end = sysinfo.index("<device_id>") + len("<device_id>"), sysinfo.index("</device_id>")
    (conf / "sysinfo.xml").write_text(sysinfo[:begin] + device + sysinfo[end:])


class Unit:
    """Processes by name: daemon, serve, stack, cloud, learner, controller. Keeps a process running unless it is in `off`."""

    def __init__(self, root, programs, folder, index):
        self.name = f"FLEET{index:04}"
        self.address = f"10.77.{index // 200}.{index % 200 + 10}"
        self.folder = folder / self.name
        self.programs = programs
        self.processes = {}
        self.off = set()
        self.exits = []
        self.epoch = time.time()
        configure(root, self.folder, self.name)
        self.holder = subprocess.Popen(["unshare", "--net", "sleep", "infinity"])
        while os.readlink(f"/proc/{self.holder.pid}/ns/net") == os.readlink("/proc/self/ns/net"):
            time.sleep(0.001)
        self.link = f"unit{index}"
        run("ip", "link", "add", self.link, "type", "veth", "peer", "name", "eth0", "netns", self.holder.pid)
        run("ip", "link", "set", self.link, "master", "fleet", "up")
        for command in ("link set lo up", "link set eth0 up", f"address add {self.address}/16 dev eth0"):
            run("nsenter", "-t", self.holder.pid, "-n", "ip", *command.split())

    def start(self, name, *more):
        """Starts a process. `more` options replace the normal ones of a device's plan."""
        plan = ["--start", str(int(time.time() - self.epoch)), "--quiet"]
        summary = ["--summary", str(self.folder / f"{name}.json")]
        commands = {
            "daemon": ["v2x_spat_convert", "-w", self.folder, "-f", self.folder / "log/spat_conv.log"],
            "serve": ["v2x_spat_ctl", "serve", "-w", self.folder, "--listen", f"{self.address}:8080"],
            "stack": ["v2x_spat_sim", "stack", "--quiet", *summary],
            "cloud": ["v2x_spat_sim", "cloud", "--device", self.name, "--rate", "0", "--quiet", *summary]
            + (list(more) or ["--status", "1"]),
            "learner": ["v2x_spat_sim", "learner", "--rate", REPORTS_PER_SECOND, *plan, *summary, *more],
            "controller": ["v2x_spat_sim", "controller", "--rate", FRAMES_PER_SECOND, *plan, *summary, *more],
        }
        program, *options = [str(part) for part in commands[name]]
        with open(self.folder / f"{name}.out", "ab") as output:
            self.processes[name] = subprocess.Popen(
                ["nsenter", "-t", str(self.holder.pid), "-n", str(self.programs / program), *options],
                stdout=output, stderr=output)
        self.off.discard(name)

    def stop(self, name, number=signal.SIGTERM):
        self.off.add(name)
        process = self.processes.pop(name, None)
        if process:
            process.send_signal(number)
            process.wait()

    def restart(self, name, *more):
        self.stop(name)
        self.start(name, *more)

    def signal(self, name, number):
        self.processes[name].send_signal(number)

    def set_link(self, state):
        """Plugs or unplugs the cable between the unit and Prometheus: "up" or "down"."""
        run("ip", "link", "set", self.link, state)

    def supervise(self):
        """Starts what ended by itself, as the service manager does. Notes an unexpected end."""
        for name, process in list(self.processes.items()):
            if process.poll() is not None and name not in self.off:
                self.exits.append(f"{name} ended with {process.returncode}")
                self.start(name)

    def summary(self, name):
        return json.loads((self.folder / f"{name}.json").read_text())["summary"]


def read_cost(pid):
    """Returns the process's CPU time in s, its proportional memory in MiB and its number of wake-ups."""
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    memory = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    kilobytes = next(int(line.split()[1]) for line in memory.splitlines() if line.startswith("Pss:"))
    wakeups = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        lines = (task / "status").read_text().splitlines()
        wakeups += next(int(line.split()[1]) for line in lines if line.startswith("voluntary_ctxt_switches"))
    return (int(fields[11]) + int(fields[12])) / TICKS_PER_SECOND, kilobytes / 1024, wakeups
