"""Faults that the fleet injects. A fault is a generator: it does one thing to the unit, and yields the seconds to wait."""
import signal
import socket
from dataclasses import dataclass
from typing import Callable


def stop_and_continue(name, seconds):
    def inject(unit):
        unit.signal(name, signal.SIGSTOP)
        yield seconds
        unit.signal(name, signal.SIGCONT)

    return inject


def replace(name, seconds, *options):
    def inject(unit):
        unit.restart(name, *options)
        yield seconds
        unit.restart(name)

    return inject


def switch_off(name, seconds):
    def inject(unit):
        unit.stop(name, signal.SIGKILL)
        yield seconds
        unit.start(name)

    return inject


def switch_both_off(unit):
    learner = switch_off("learner", 120)(unit)
    next(learner)
    yield from switch_off("controller", 120)(unit)
    next(learner, None)


def kill_daemon(times):
    def inject(unit):
        for _ in range(times):
            unit.signal("daemon", signal.SIGKILL)
            yield 20

    return inject


def switch_off_often(name, times):
    def inject(unit):
        for _ in range(times):
            yield from switch_off(name, 20)(unit)
            yield 20

    return inject


def cut_uplink(seconds):
    def inject(unit):
        unit.set_link("down")
        yield seconds
        unit.set_link("up")

    return inject


def send_from_outside(unit):
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
        for _ in range(100):
            sender.sendto(b"\xff" * 200, (unit.address, 8002))
            yield 0.1


@dataclass
class Fault:
    name: str
    inject: Callable
    seconds: float  # until it ends
    alerts: list  # (alert, source or "") that must fire; no other may


def stale(source):
    return ("V2xSpatSourceStale", source)


FAULTS = [
    Fault("learner off 2 min", switch_off("learner", 120), 120, [stale("learner")]),
    Fault("controller off 2 min", switch_off("controller", 120), 120, [stale("1743")]),
    Fault("both devices off 2 min", switch_both_off, 120, [("V2xSpatNoSource", ""), stale("learner"), stale("1743")]),
    Fault("learner off 4 times 20 s", switch_off_often("learner", 4), 160, [("V2xSpatSourceFlapping", "learner")]),
    Fault("learner off 20 s", switch_off("learner", 20), 20, []),
    Fault("30 % of the reports damaged, 1 min", replace("learner", 60, "--damage", "0.3"), 60, []),
    Fault("conflicting greens, 1 min", replace("learner", 60, "--fault", "conflict", "--fault-rate", "4"), 60,
          [("V2xSpatCheckActive", "learner")]),
    Fault("100 datagrams of a foreign sender", send_from_outside, 10, [("V2xSpatSenderRefused", "learner")]),
    Fault("daemon killed", kill_daemon(1), 20, []),
    Fault("daemon killed 4 times", kill_daemon(4), 80, [("V2xSpatDaemonRestarts", "")]),
    Fault("daemon off 2 min", switch_off("daemon", 120), 120, [("V2xSpatDaemonGone", "")]),
    Fault("stack silent 2 min", stop_and_continue("stack", 120), 120, [("V2xSpatStackSilent", "")]),
    Fault("web server off 2 min", switch_off("serve", 120), 120, [("V2xSpatUnitGone", "")]),
    Fault("uplink cut 2 min", cut_uplink(120), 120, [("V2xSpatUnitGone", "")]),
    Fault("cloud unavailable 6 min", replace("cloud", 360, "--status", "2"), 360, [("V2xSpatCloudUnavailable", "")]),
]
