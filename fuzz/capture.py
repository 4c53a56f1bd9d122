#!/usr/bin/env python3
"""Makes the seed corpus under fuzz/corpus/ from real exchanges.

Relays between the command-line host and the simulated unit on loopback over
UDP, records every message the unit sends, and writes seeds in each target's
input format (fuzz/input.h: pieces separated by FF FE FD, a first byte that
chooses). TCP seeds carry the same messages in their frames, ended by the
unit's closing "12" where TCP has one. Seeds are cut to a few KiB.
Usage: fuzz/capture.py BUILD_DIR   (run from the repository's root)
"""
import os, socket, subprocess, sys, tempfile, threading

build = sys.argv[1]
corpus = os.path.join(os.path.dirname(os.path.abspath(__file__)), "corpus")
SEP = b"\xff\xfe\xfd"
SEED_BYTES = 8192
unit_bin = os.path.join(build, "tools", "camrelay-unit")
host_bin = os.path.join(build, "tools", "camrelay")

EXCHANGES = {
    "prog": ["download-prog"],
    "log": ["download-log"],
    "cam_events": ["download-cam-events"],
    "prog_cam_events": ["download-prog-cam-events"],
    "wave": ["download-wave"],
    "media": ["download-media", "snap_cam1_20250612_081530.jpg"],
    "command": ["request-command", "STATO?"],
    "stream": ["stream-image", "1"],
    "upload_command": ["send-command", "SIRENA:ON"],
}


def relay(front, unit_addr, record, stop):
    client = None
    front.settimeout(0.2)
    back = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    back.bind(("127.0.0.1", 0))
    back.settimeout(0.01)
    while not stop.is_set():
        try:
            data, client = front.recvfrom(65536)
            back.sendto(data, unit_addr)
        except socket.timeout:
            pass
        try:
            while True:
                data, _ = back.recvfrom(65536)
                record.append(data.decode("latin-1"))
                if client:
                    front.sendto(data, client)
        except socket.timeout:
            pass


def capture():
    """The unit's messages of each exchange, and the host's settings file."""
    recorded = {}
    with tempfile.TemporaryDirectory() as work:
        unit = subprocess.Popen([unit_bin, "--dir", os.path.join(work, "unit"), "--udp", "--port", "0", "-q",
                                 "--exit-after", "120"], stdout=subprocess.PIPE, text=True)
        port = next(int(line.rsplit(":", 1)[1]) for line in unit.stdout if "listening" in line)
        os.makedirs(os.path.join(work, "host"))
        for name, command in EXCHANGES.items():
            front = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            front.bind(("127.0.0.1", 0))
            record, stop = [], threading.Event()
            thread = threading.Thread(target=relay, args=(front, ("127.0.0.1", port), record, stop))
            thread.start()
            env = dict(os.environ, XDG_CONFIG_HOME=os.path.join(work, "config"))
            subprocess.run([host_bin, "--udp", "--host", "127.0.0.1", "--port", str(front.getsockname()[1]),
                            "--dir", os.path.join(work, "host"), "--code", "123456", "-q", "login"] + command,
                           env=env, timeout=60, stdout=subprocess.DEVNULL)
            stop.set()
            thread.join()
            recorded[name] = [m.encode("latin-1") for m in record]
        unit.terminate()
        unit.wait()
        with open(os.path.join(work, "config", "CamRelay", "settings.ini"), "rb") as f:
            settings = f.read()
    return recorded, settings


# The start each exchange's messages are fed from in fuzz/receive.cpp (index
# into kStarts) and the transfer type that TCP closes with "12".
STARTS = {"prog": (1, b"02"), "log": (2, b"04"), "cam_events": (4, b"53"), "prog_cam_events": (5, b"54"),
          "wave": (6, b"06"), "media": (7, None), "command": (8, b"51"), "stream": (10, b"58"),
          "upload_command": (11, None)}


def cut(pieces, first=b""):
    """The first byte and as many whole pieces as fit in a seed."""
    seed = first
    for i, piece in enumerate(pieces):
        grown = seed + (SEP if i else b"") + piece
        if len(grown) > SEED_BYTES and i:
            break
        seed = grown
    return seed


def write(target, name, seed):
    os.makedirs(os.path.join(corpus, target), exist_ok=True)
    with open(os.path.join(corpus, target, name), "wb") as f:
        f.write(seed[:SEED_BYTES])


def after_acceptance(messages):
    at = next(i for i, m in enumerate(messages) if m.startswith(b"AA{}") and not m.startswith(b"AA{}0{}00"))
    return messages[at], messages[at + 1:]


def frame(message):
    return b"LN{}" + str(len(message)).encode() + b"{}" + message


def body(packet):
    """The body of an indexed packet: what follows its CR LF."""
    return packet.split(b"\r\n", 1)[1] if b"\r\n" in packet else packet


def receive_seeds(recorded):
    for name, (start, closing) in STARTS.items():
        messages = recorded[name]
        _, rest = after_acceptance(messages)
        tcp_tail = [b"12{}" + closing] if closing else []
        write("receive", name + "_idle_udp", cut(messages, bytes([1])))
        write("receive", name + "_udp", cut(rest, bytes([start << 1 | 1])))
        write("receive", name + "_tcp", cut([frame(m) for m in rest[:8] + tcp_tail], bytes([start << 1])))


def store_seeds(recorded):
    _, prog = after_acceptance(recorded["prog"])
    write("store", "prog", cut([body(p) for p in prog], b"\x01"))
    for name in ("log", "cam_events", "prog_cam_events"):
        _, packets = after_acceptance(recorded[name])
        write("store", name, cut([body(p) for p in packets], b"\x00"))


def files_seeds(recorded):
    acceptance, elements = after_acceptance(recorded["wave"])
    opening = acceptance.split(b"{}", 3)[3]
    write("files", "wave", cut([opening] + elements, b"\x00"))
    _, packets = after_acceptance(recorded["media"])
    write("files", "media", cut([b"snap_cam1_20250612_081530.jpg"] + [p[2:] for p in packets[:-1]], b"\x01"))


def parsers_seeds(recorded, settings):
    _, command = after_acceptance(recorded["command"])
    write("parsers", "command", cut(command, b"\x00"))
    _, pieces = after_acceptance(recorded["stream"])
    write("parsers", "image", cut(pieces, b"\x01"))
    write("parsers", "settings", b"\x02" + settings)
    write("parsers", "connection", b"\x03Provider=SQLite;Data Source=VideoSentrova.db")
    log = b"".join(recorded["log"][2:4])
    fields = log.split(b"{}")
    dates = [f for f in fields if f.count(b"/") == 2]
    write("parsers", "italian_date", b"\x04" + dates[0])
    write("parsers", "iso_date", b"\x052025-06-12 08:15:30")
    write("parsers", "number", b"\x06" + fields[2])
    write("parsers", "wire_value", b"\x07" + max(fields, key=len)[:200])


recorded, settings = capture()
receive_seeds(recorded)
store_seeds(recorded)
files_seeds(recorded)
parsers_seeds(recorded, settings)
for target in sorted(os.listdir(corpus)):
    print(target, len(os.listdir(os.path.join(corpus, target))), "seeds")
