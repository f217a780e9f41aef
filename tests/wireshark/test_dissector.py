#!/usr/bin/env python3
"""Runs the Wireshark dissector on hand-made datagrams, on damaged datagrams of the simulators, and on short and changed
datagrams.

usage: test_dissector.py V2X_SPAT.LUA FOLDER_OF_THE_PROGRAMS

Prints each fault. The exit status is 1 if there is one, 77 if tshark is missing.
"""
import os, pathlib, shutil, socket, struct, subprocess, sys, tempfile, time

DISSECTOR, PROGRAMS = sys.argv[1:3]
LEARNER, CONTROLLER, STACK, REQUESTS, LOG, SAMPLE, OTHER = 8002, 9002, 20010, 20002, 20003, 57399, 5000
SIM_PORT = 29310  # and the next one; the simulators send to it
ANY = object()    # the field is present, with any value
folder = tempfile.TemporaryDirectory()
work = pathlib.Path(folder.name)
faults = []

HEAD = "A55A0400 40420F0000000000 "  # one second after 1970
FRAME = bytes.fromhex("C0 010011010801000100 110108020001001A 103F67AB0201018703010000000012 00AEC7E84223DBDD1F42DBDC"
                      "000100000101 01201B DBDDDBDC C0")
RECORD = bytes.fromhex(HEAD + "1400 3A00 00 01000000 18000000 2F00 00 02000100 0102 0D000000 D204 02"
                       "03 02 0105 0000 9600 FFFFFFFF FFFFFFFF FF 0107 9600 B400 1400 0A00 1E00 0500 C8 04 00")
REQUEST = bytes.fromhex("A55A0400 0000000000000000 1400 0B00 00 0B000000 01000000 0000 00")
STATUS = "/pelko/v2x/cloud/service_status".encode()

# Port, datagram, fields. A list is the values of a field that occurs several times; None: the field is missing.
KNOWN = [
    (LEARNER, "FEFE10 0011 00 02 00 03 01 0F 00000000 04 02 FF 00000000",
     {"learner.count": 2, "learner.phase.id": [3, 4], "learner.phase.colour": [1, 2], "learner.phase.left": 15,
      "_ws.col.Info": "report: 3 green 15 s, 4 unavailable"}),
    (OTHER, "FEFE03 0006 010000000055", {"learner.type": "0x03", "_ws.col.Info": "heartbeat"}),
    (OTHER, FRAME, {"frame.control": "0x87", "frame.link.angle": 0, "frame.group.type": 1, "frame.group.left": 27,
                    "frame.group.phase": 1, "frame.group.light": 5, "frame.elevation": 192, "crc": "0xc0db",
                    "crc.status": 1, "_ws.col.Info": "light status: 1 green 27 s"}),
    (OTHER, FRAME + FRAME[:20], {"crc.status": 1, "frame.incomplete": ANY}),
    (CONTROLLER, FRAME[20:] + FRAME, {"crc.status": 1, "frame.incomplete": ANY}),
    (OTHER, RECORD, {"head.command": 20, "block.number": 24, "record.region": 1, "record.node": 2, "record.moy": 13,
                     "record.status": "0x0201", "record.second": 1.234, "record.phase.id": [3, 4],
                     "count.invalid": None, "record.phase.light": [5, 7], "record.phase.start": [0, 15],
                     "record.phase.end": [15, 18],
                     "record.phase.max_end": 20, "record.phase.min_end": 10, "record.phase.next_start": 30,
                     "record.phase.next_duration": 5, "record.phase.confidence": 200, "head.time":
                     "Jan  1, 1970 00:00:01.000000000 UTC", "_ws.col.Info": "record 1/2: 3 permissive green 15 s"}),
    (OTHER, RECORD[:25] + b"\x2E\0" + RECORD[27:], {"length.invalid": ANY}),
    (OTHER, RECORD[:40] + b"\1" + RECORD[41:], {"count.invalid": ANY, "rest": ANY}),
    (OTHER, HEAD + "1400 2900 00 01000000 18000000 1E00 00 02000100 0000 FFFFFFFF FFFF 02 01010103 0000 A18C"
     "FFFFFFFFFFFFFFFFFF", {"record.moy": None, "record.phase.end": None, "count.invalid": ANY}),
    (OTHER, REQUEST, {"block.type": 11, "request": ANY, "head.time": None, "_ws.col.Info": "request for SPAT"}),
    (REQUESTS, HEAD + "1500 1300 00 0B000000 02000000 0800 00 0200 36B6 0200 5000",
     {"reply.item.message": ["0x36", "0x50"], "reply.item.frame": ["36b6", "5000"], "type.unknown": ANY}),
    (OTHER, HEAD + "3300 1900 00 01 0000 1400 5350415400000000 0500 4D41494E5F383838 0300",
     {"log.tag": ["SPAT", "MAIN_888"], "log.level": [5, 3],
      "_ws.col.Info": "log control answer: report all levels: SPAT 5, MAIN_888 3"}),
    (SAMPLE, b"V2XDDS\1" + bytes([len(STATUS)]) + STATUS + b"\1\2\1" + bytes([7, 0, 0, 0]) + bytes(20),
     {"sample.topic": STATUS.decode(), "sample.direction": 1, "status.run": 1, "status.sent": 7}),
    (OTHER, b'V2XDDS\1\7x/spat/\0{"a":1}', {"sample.direction": 0, "sample.document": '{"a":1}'}),
    # Not recognized, left to other dissectors.
    (OTHER, "C001020304C0", {"_ws.col.Protocol": "UDP"}),
    (OTHER, "52545053 0203 010F 000000000000000000000000 0700 0000", {"_ws.col.Protocol": "RTPS"}),
]

# Arguments of the simulator, port, field that each of its datagrams has.
DAMAGED = [(f"{role} --damage 1 --damage-kinds {kind}", port, fields) for role, port, kinds in (
    ("learner", LEARNER, {"start": "start.invalid", "length": "length.invalid", "count": "count.invalid"}),
    ("controller", CONTROLLER, {
        "crc": "crc.bad", "length": "crc.bad", "delimiter": "frame.incomplete", "type": "type.unknown",
        "count": "count.invalid", "escape": "frame.escape.invalid frame.incomplete"}))
    for kind, fields in kinds.items()]
DAMAGED += [("controller --split 3", CONTROLLER, "frame.incomplete"),
            ("controller --garbage 1", CONTROLLER, "frame.incomplete crc.status"),
            ("controller --batch 4", CONTROLLER, "crc.status"),
            ("learner --phases 36", LEARNER, "learner.phase.id")]
DAMAGED += [(f"stack --bad-replies 1 --bad-reply-kinds {kind}", REQUESTS, fields) for kind, fields in {
    "head": "start.invalid", "length": "length.invalid", "large": "length.invalid", "command": "type.unknown",
    "type": "type.unknown", "cut": "length.invalid count.invalid", "number": "count.invalid",
    "short": "length.invalid"}.items()]

def receive(peer, wanted, request=b""):
    """Returns `wanted` datagrams. Sends the request to the simulator until they have arrived."""
    datagrams, end = [], time.monotonic() + 10
    while len(datagrams) < wanted and time.monotonic() < end:
        if request:
            peer.sendto(RECORD, ("127.0.0.1", SIM_PORT + 1))
            peer.sendto(request, ("127.0.0.1", SIM_PORT + 1))
        try:
            datagrams.append(peer.recv(65535))
        except (TimeoutError, ConnectionRefusedError):
            pass
    return datagrams

def run_simulator(arguments):
    is_stack = arguments.startswith("stack")
    command = [PROGRAMS + "/v2x_spat_sim", *arguments.split(), "--quiet", "--listen", f"127.0.0.1:{SIM_PORT + 1}"]
    command += ["--seed", "3"] * ("1" in arguments)
    command += [] if is_stack else ["--rate", "1000", "--target", f"127.0.0.1:{SIM_PORT}"]
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as peer:
        peer.bind(("127.0.0.1", SIM_PORT))
        peer.settimeout(0.1)
        with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) as simulator:
            datagrams = receive(peer, 6, REQUEST if is_stack else b"")
            simulator.terminate()
    return datagrams

def run_tshark(datagrams, *options):
    """Dissects [(port, bytes)] in a capture of raw IPv4 packets. Returns the lines of tshark and its errors."""
    with open(work / "test.pcap", "wb") as file:
        file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101))
        for port, data in datagrams:
            udp = struct.pack(">HHHH", 29999, port, 8 + len(data), 0) + data
            packet = struct.pack(">BBHIBBHII", 0x45, 0, 20 + len(udp), 0, 64, 17, 0, 0x7F000001, 0x7F000001) + udp
            file.write(struct.pack("<IIII", 0, 0, len(packet), len(packet)) + packet)
    run = subprocess.run(["tshark", "-X", f"lua_script:{DISSECTOR}", "-r", work / "test.pcap", *options],
                         capture_output=True, text=True, env={**os.environ, "WIRESHARK_CONFIG_DIR": str(work)})
    return run.stdout.splitlines(), run.stderr

def check(condition, text):
    if not condition:
        faults.append(text)

def check_fields(rows):
    """Compares the fields of each datagram in [(name, port, bytes, fields)]."""
    qualify = lambda name: name if name.startswith("_ws.") else "v2x_spat." + name
    names = sorted({name for row in rows for name in row[3]})
    columns = [argument for name in names for argument in ("-e", qualify(name))]
    lines, errors = run_tshark([row[1:3] for row in rows], "-T", "fields", "-E", "aggregator=;", *columns)
    check("Lua" not in errors, errors)
    check(len(lines) == len(rows), f"{len(lines)} lines for {len(rows)} datagrams")
    for (title, _, data, fields), line in zip(rows, lines):
        found = dict(zip(names, line.split("\t")))
        for name, value in fields.items():
            expected = ";".join(map(str, value if isinstance(value, list) else [value])) if value is not None else ""
            check(found[name] if value is ANY else found[name] == expected,
                  f"{title}: {data.hex()[:80]}: {name} is '{found[name]}', not '{expected}'")

def check_damaged():
    rows = []
    for arguments, port, fields in DAMAGED:
        datagrams = [data for data in run_simulator(arguments) if data]
        check(len(datagrams) >= 4, f"{arguments}: {len(datagrams)} datagrams")
        rows += [(arguments, port, data, fields.split()) for data in datagrams]
    names = sorted({name for row in rows for name in row[3]})
    lines, _ = run_tshark([row[1:3] for row in rows], "-T", "fields",
                          *[argument for name in names for argument in ("-e", "v2x_spat." + name)])
    for (arguments, _, data, fields), line in zip(rows, lines, strict=True):
        found = dict(zip(names, line.split("\t")))
        check(any(found[name] for name in fields), f"{arguments}: {data.hex()[:80]}: no {fields}")

def check_robustness():
    """Dissects all prefixes and all one-bit changes. A script with an error shows that errors are found."""
    datagrams = []
    for port, data, _ in known:
        datagrams += [(port, data[:size]) for size in range(1, len(data))]
        for bit in range(8 * len(data)):
            changed = bytearray(data)
            changed[bit // 8] ^= 1 << bit % 8
            datagrams.append((port, bytes(changed)))
    lines, errors = run_tshark(datagrams, "-V", "-Y", "_ws.lua.error")
    check(not lines and "Lua" not in errors, f"Lua errors: {lines[:40]} {errors}")
    broken = work / "broken.lua"
    broken.write_text('local p = Proto("broken", "x") function p.dissector() error("x") end register_postdissector(p)')
    lines, _ = run_tshark(datagrams[:1], "-X", f"lua_script:{broken}", "-V", "-Y", "_ws.lua.error")
    check(lines, "tshark does not show an error of a script")
    return len(datagrams)

def check_port_preference():
    dns = 53  # the preference precedes the dissector of this port
    lines, _ = run_tshark([(dns, FRAME[:9])], "-o", f"v2x_spat.controller_ports:1-10,50-{dns}", "-T", "fields",
                          "-e", "v2x_spat.frame.incomplete")
    check(lines == ["1"], f"part of a frame to a port of the preference: {lines}")

if not shutil.which("tshark"):
    print("tshark is missing")
    sys.exit(77)
known = [(port, bytes.fromhex(data) if isinstance(data, str) else data, fields) for port, data, fields in KNOWN]
check_fields([("known", *row) for row in known])
check_damaged()
check_port_preference()
changed = check_robustness()
print("\n".join(faults) or f"{len(known)} known datagrams, {len(DAMAGED)} simulator runs, {changed} changed datagrams")
sys.exit(1 if faults else 0)
