#!/usr/bin/env python3
"""Every verb of the client against everything that each of them owes: text, JSON by the schema, a
refusal, no answer, help, manual page, completion and the exit status. Then what one verb alone can
show: slow and dying daemons, terminals, full disks. Run inside a private world; argv[1] is the
build's bin directory.
"""
import json
import os
import pty
import re
import select
import shutil
import socket
import subprocess
import sys
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
BIN = sys.argv[1]
CFG_SOCKET = "/tmp/sockCfg"
LOG = "/tmp/device.log"
MANUAL = ROOT / "docs/man/cfgctl.1.scd"
SCHEMA = json.loads((ROOT / "docs/cfgctl.schema.json").read_text())
os.environ["PATH"] = BIN + ":" + os.environ["PATH"]
os.environ.pop("NO_COLOR", None)
faults = []

# verb: arguments that are served, what the text holds, arguments that are refused and how, whether
# it asks a daemon. They run in this order.
MATRIX = {
    "version": ("", r"cfgctl \d+\.\d+\.\d+", "more", 2, False),
    "help": ("", r"(?s)Look:.*Exit status:", "lst", 2, False),
    "completion": ("bash", r"complete .*cfgctl", "fish", 2, False),
    "save": ("day -d 'Full power' --yes", r"save day: OK", "a/b", 4, True),
    "list": ("", r"day +Available +\S+ \S+ +no +Full power", "more", 2, True),
    "show": ("day", r"State: +Available", "night", 4, True),
    "status": ("-t 30", r"(?s)answers: +yes.*Running: +Default\n.*boot: +yes", "more", 2, True),
    "wait": ("day=Available", r"wait day=Available: OK", "-t 4 night", 6, True),
    "watch": ("--for 1", r"^$", "--count 1 --for 1", 6, True),
    "log": (LOG + " --for 1", r"tCfgCom\(\d+\)", "/tmp/no-log", 4, False),
    "validate": ("/etc/sysmgt/cfg_data_set.json", r": OK", "/tmp/bad.json", 4, False),
    "doctor": ("", r"doctor: OK|warning: ", "more", 2, True),
    "export": ("/tmp/all.tar --yes", r"Configurations: +1", "/tmp/none/all.tar", 4, True),
    "restore": ("/tmp/all.tar --yes", r"Archive: +/tmp/all.tar", "/tmp/bad.json --yes", 4, True),
    "start": ("day", r"start day: OK", "night", 4, True),
    "confirm": ("", r"confirm: OK", "more", 2, False),
    "autostart": ("day", r"autostart day: OK", "night", 4, True),
    "import": ("/tmp/stick/lab --yes", r"import /tmp/stick/lab: OK", "/tmp/stick/none", 4, True),
    "rename": ("lab two --yes", r"rename lab two: OK", "none other", 4, True),
    "remove": ("two --yes", r"remove two: OK", "none --yes", 4, True),
    "debug": ("on", r"debug on: OK", "maybe", 2, True),
    "get": ("CfgDataSet AutoStart", r"Name +day", "CfgDataSet None", 4, True),
    "set": ("CfgDataSet AutoStart '' Name day", r": OK", "CfgDataSet AutoStart '' None day", 4, True),
    "call": ("START_CFG RowID=day", r"call START_CFG RowID=day: OK", "START_CFG RowID=x", 4, True),
}
AGAIN = {"remove": "two --yes", "rename": "lab two --yes"}  # need their file again


def check(holds, what, *shown):
    if not holds:
        faults.append(what + "".join(f"\n    {text!r}" for text in shown))


def run(arguments, **options):
    done = subprocess.run("cfgctl " + arguments, shell=True, capture_output=True, timeout=60,
                          stdin=subprocess.DEVNULL, **options)
    done.out, done.err = (text.decode(errors="replace") for text in (done.stdout, done.stderr))
    return done


def schema_faults(value, rule, where="document"):
    """The part of JSON Schema that the schema is written in."""
    if "$ref" in rule:
        rule = SCHEMA["definitions"][rule["$ref"].rsplit("/", 1)[1]]
    kinds = {"object": dict, "array": list, "string": str, "boolean": bool, "integer": int}
    if "type" in rule and (not isinstance(value, kinds[rule["type"]]) or
                           (rule["type"] == "integer" and isinstance(value, bool))):
        return [f"{where}: no {rule['type']}"]
    if "const" in rule and value != rule["const"]:
        return [f"{where}: not {rule['const']!r}"]
    found = [f"{where}: no {name!r}" for name in rule.get("required", []) if name not in value]
    if isinstance(value, dict):
        for name, member in value.items():
            patterns = [r for p, r in rule.get("patternProperties", {}).items() if re.search(p, name)]
            known = rule.get("properties", {}).get(name, (patterns or [None])[0])
            if known is not None:
                found += schema_faults(member, known, f"{where}.{name}")
            elif rule.get("additionalProperties") is False:
                found.append(f"{where}: unknown {name!r}")
    if isinstance(value, list) and "items" in rule:
        for member in value:
            found += schema_faults(member, rule["items"], where + "[]")
    if "pattern" in rule and not re.search(rule["pattern"], value):
        found.append(f"{where}: not {rule['pattern']}")
    for choice in rule.get("allOf", []):
        if not schema_faults(value, choice["if"]):
            found += schema_faults(value, choice["then"], where)
    return found


def check_json(text, verb, status):
    for line in text.splitlines() if verb in ("watch", "log") else [text]:
        try:
            document = json.loads(line)
        except ValueError as error:
            check(False, f"{verb}: JSON: {error}", line)
            continue
        for fault in schema_faults(document, SCHEMA):
            check(False, f"{verb}: JSON: {fault}", line)
        check(document.get("exitCode", status) == status, f"{verb}: JSON: exitCode", line, status)


def boot():
    os.makedirs("/etc/sysmgt", exist_ok=True)
    for directory in ("confirm", "import"):
        os.makedirs("/run/sysmgt/" + directory, mode=0o770, exist_ok=True)
    shutil.copy(ROOT / "packaging/cfg_data_set.json", "/etc/sysmgt")
    daemons = []
    for program, there in (("dbgcollect -o " + LOG, "/tmp/sockDbg"), ("DevManager", "/tmp/sockDev"),
                           ("ChanManager", "/tmp/sockChan"), ("CfgManager", CFG_SOCKET)):
        daemons.append(subprocess.Popen(program.split(), stderr=subprocess.DEVNULL))
        wait_until(lambda there=there: os.path.exists(there), there)
    wait_until(lambda: run("-t 5 status").returncode == 0, "status")
    return daemons


def wait_until(holds, what):
    end = time.monotonic() + 30
    while not holds():
        if time.monotonic() > end:
            sys.exit(f"cfgctl_matrix: never: {what}")
        time.sleep(0.02)


def place_files():
    os.makedirs("/tmp/stick", exist_ok=True)
    Path("/tmp/stick/lab").write_text("Channel=1 Frequency=474000\n")
    Path("/tmp/bad.json").write_text('{\n  "dataset": "X",\n  "components": {,}\n}\n')


def try_matrix():
    told = {verb["name"] for verb in json.loads(run("help --json").out)["verbs"]}
    check(told == set(MATRIX), "the matrix lacks or invents verbs", told ^ set(MATRIX))
    for verb, (served, holds, refused, status, _) in MATRIX.items():
        for form in ("", "--json "):
            if verb == "rename" and form:
                run("import /tmp/stick/lab --yes")
            if verb == "remove" and form:
                run("import /tmp/stick/lab --yes"), run("rename lab two --yes")
            if verb == "confirm":
                run("start day --confirm-within 60")
            done = run(f"{form}{verb} {served}")
            check(done.returncode == 0, f"{form}{verb}: {done.returncode}", done.out, done.err)
            check(form or re.search(holds, done.out), f"{verb}: text", done.out)
            bad = run(f"{form}{verb} {refused}")
            check(bad.returncode == status, f"{form}{verb} {refused}: {bad.returncode}", bad.err)
            check(bad.err.splitlines()[-1:] and bad.err.splitlines()[-1].startswith("cfgctl: "),
                  f"{verb} {refused}: says nothing", bad.err)
            if form:
                check_json(done.out, verb, 0)
                check_json(bad.out, verb, status)
        text = run(f"help {verb}").out
        check("Usage: cfgctl " + verb in text and "Examples:\n  cfgctl " in text, f"help {verb}", text)
        check(run(f"{verb} --help").out == text, f"{verb} --help is not help {verb}")
        begun = run(f"--complete {verb[:-1]}").out.split()
        check(verb in begun, f"completion of {verb[:-1]}", begun)
        options = run(f"--complete {verb} --").out.split()
        check("--json" in options, f"completion of options: {verb}", options)
        if MANUAL.exists():
            check(re.search(rf"\b{verb}\b", MANUAL.read_text()), f"{verb} is not in the manual page")
    exits = "\n".join(run("help").out.split("Exit status:\n")[1].splitlines()[:8])
    for page in ("README.md", "docs/cfgctl-json.md"):
        shown = (ROOT / page).read_text()
        for number, line in enumerate(exits.splitlines()):
            check(line.split(maxsplit=1)[1] in shown, f"{page}: exit status {number}", line)


def try_manners():
    """What one verb shows for all."""
    os.environ["TERM"] = "xterm"
    for command, said in (
            ("lst", "unknown verb 'lst', did you mean 'list'?"),
            ("list --jsn", "did you mean 'json'?"),
            ("-t 99999999999999999999999999 list", "a number from 1 to 1000000"),
            ("save 'a\"b'", "at byte 2"), ("save 'a<b'", "at byte 2"),
            ("remove day", "Not without --yes"), ("save day", "will be overwritten"),
            ("wait day=Availble", "did you mean 'Available'?")):
        done = run(command)
        check(done.returncode == 2 and said in done.err, command, done.err)
    done = run("list >/dev/full")
    check(done.returncode == 1 and "No space left" in done.err, "list >/dev/full", done.err)
    check(run("save -- -night").out == "save -night: OK\n", "a name that begins with -")
    check(re.search(r"Running: +day\nFallback at boot: +no", run("-t 30 status").out), "what runs")
    check("-night" in run("list -t 5").out and run("-y remove -- -night").returncode == 0, "-night")
    for command, holds in (("save 'x y'", 'Name="Name" Value="x y"'), ("list", '<HEADER ID="1"')):
        done = run("--dry-run " + command)
        check(done.returncode == 0 and holds in done.out, "dry run of " + command, done.out)
    check(run("show 'x y'").returncode == 4, "a dry run has saved")
    check(Path("/tmp/stick/lab").exists(), "import has taken the user's file")
    check(run("import /tmp/stick/lab --move --yes").returncode == 0 and
          not Path("/tmp/stick/lab").exists(), "import --move has left the file")
    place_files()
    bad = run("validate /tmp/bad.json")
    check(re.search(r"^3 +18 ", bad.out, re.M), "validate: line and column", bad.out)
    wait_until(lambda: run("--complete show d").out == "day\n", "completion of names")
    run("save 'wide one'")
    wait_until(lambda: run("--complete show w").out == "wide\\ one\n", "completion of blanks")
    check(run("--complete wait day = Av").out == "Available\n", "completion of states")
    again = run("""save 'wide one' -d "it's \\$5 (|" --autostart""").err.split("Try: cfgctl ")[-1]
    check(run(again).returncode == 0 and
          "it's $5" in run("show 'wide one'").out, "what is to be typed again", again)
    os.chmod("/tmp/stick/lab", 0o664)
    run("import /tmp/stick/lab -y")
    check(os.stat("/data/cfg/lab").st_mode & 0o777 == 0o664, "an import changes the file's mode")
    try:
        done = run("import /tmp/stick/lab -y", user=1, group=1, extra_groups=[])
        check(done.returncode == 5 and "only the group 'root'" in done.err and
              "Try: usermod -aG root " in done.err, "import by somebody else", done.err)
    except PermissionError:
        pass  # no other users here


def on_terminal(command, typed=b"", columns=60):
    """What a terminal gets, and the exit status."""
    pid, master = pty.fork()
    if pid == 0:
        os.execvp("sh", ["sh", "-c", f"stty cols {columns}; exec cfgctl {command}"])
    shown = b""
    while True:
        try:
            part = os.read(master, 65536)
        except OSError:
            break
        shown += part
        if typed and b"[y/N]" in shown:
            os.write(master, typed)
            typed = b""
    status = os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])
    return shown.decode(errors="replace").replace("\r\n", "\n"), status


def try_terminal():
    run(f"save long -d '{'word ' * 40}'")
    run("save 'näh 你好'")
    shown, _ = on_terminal("list")
    lines = shown.splitlines()
    check(all(len(line) <= 60 for line in lines) and "…" in shown, "a list is cut", shown)
    check("word " * 39 in run("list").out, "a list in a pipe is whole")
    state = {line.find("Available") + 2 * sum("\u4e00" <= c <= "\u9fff" for c in line) // 2
             for line in lines if "Available" in line}
    check(len(state) == 1, "columns of wide letters", shown)
    shown, status = on_terminal("remove long", b"n\n")
    check(status == 2 and "will be deleted" in shown, "a no is a no", shown)
    shown, status = on_terminal("remove long", b"y\n")
    check(status == 0 and "remove long: OK" in shown, "a yes is a yes", shown)


class Peer(threading.Thread):
    """In the manager's place: answers each request as the script says; None for no answer."""

    def __init__(self, script):
        super().__init__(daemon=True)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        if os.path.exists(CFG_SOCKET):
            os.unlink(CFG_SOCKET)
        self.socket.bind(CFG_SOCKET)
        self.script, self.asked = script, []
        self.start()

    def run(self):
        while True:
            try:
                text, sender = self.socket.recvfrom(300000)
            except OSError:
                return
            if not text:
                return
            self.asked.append(text.decode(errors="replace"))
            answer = self.script(self.asked[-1])
            if answer is None:
                continue
            kind, code, body = answer
            number = re.search(rb'ID="(\d+)"', text)[1].decode()
            # To another client, whose path this one has now.
            self.socket.sendto(b'<HEADER ID="1" Type="ACK" Fcode="10000" Size="0" >\n</HEADER>\n', sender)
            self.socket.sendto(f'<HEADER ID="{number}" Type="{kind}" Fcode="{code}" Size="{len(body)}" >'
                               f"\n</HEADER>\n{body}".encode("utf-8", "surrogateescape"), sender)

    def end(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.socket.close()


def rows(text, limit=10**6):
    """The answer to a request for names or rows of a catalogue of 150 configurations."""
    names = [f"c{i}" for i in range(150)]
    wanted = re.findall('<Row ID="([^"]*)"', text)
    if wanted == [""]:
        return "RESPONSE", 10000, '<Row ID="" ><Item Name="Name" Value="" /></Row>'
    if len(wanted) > limit:
        return "NACK", 10100, ""
    body = "".join(f'<Row ID="{n}" ><Item Name="State" Value="Available" /></Row>'
                   for n in wanted or names)
    return "RESPONSE", 10000, f"<BODY>{body}</BODY>"


def try_peers():
    """Daemons that are slow, stuck, dying or odd."""
    asked_rows = lambda text: text.count("<Row") > 1
    for name, script, status, said in (
            ("too long answers", lambda text: rows(text, 7), 0, ""),
            ("silent", lambda text: None, 3, "in 2 s"),
            ("silent in the middle", lambda t: None if asked_rows(t) else rows(t), 3, "in 2 s"),
            ("refuses rows", lambda t: ("NACK", 10080, "") if asked_rows(t) else rows(t), 7,
             "Unsupported Request (0x10080)"),
            ("refuses single rows", lambda t: rows(t, 0) if "c77" in t else rows(t), 5,
             "Unavailable (0x10100)"),
            ("rows vanish", lambda t: ("NACK", 10008, "") if "c77" in t else rows(t), 0, ""),
            ("joined codes", lambda t: ("NACK", 10148, ""), 4,
             "No Such Name, Communication Error, Unavailable (0x10148)")):
        peer = Peer(script)
        begin = time.monotonic()
        done = run("-t 2 list" if "silent" in name else "-t 30 list")
        check(done.returncode == status and said in done.err, f"{name}: {done.returncode}", done.err)
        check("silent" not in name or time.monotonic() - begin < 15, f"{name}: one limit for all")
        if status == 0:
            found = len(re.findall(r"^c\d+ ", done.out, re.M))
            check(found == (149 if name == "rows vanish" else 150), f"{name}: {found} rows", done.out)
        peer.end()
    refused = run("list")
    check(refused.returncode == 3 and "an earlier one has left its socket" in refused.err,
          "a socket that is left", refused.err)
    status = json.loads(run("status --json").out)
    check(not status["answers"] and not status["busy"] and status["exitCode"] == 3, "status", status)

    peer = Peer(lambda text: None)
    check(json.loads(run("-t 1 status --json").out)["busy"], "a silent daemon is busy")
    shown, _ = on_terminal("-t 3 start x")
    check("waiting for the channel manager, 2 of 3 s" in shown, "what is waited for", shown)
    client = subprocess.Popen(["cfgctl", "start", "y"], stderr=subprocess.PIPE, text=True)
    wait_until(lambda: 'Value="y"' in peer.asked[-1], "the start is asked")
    peer.end()
    said = client.communicate(timeout=10)[1]
    check("has ended before it answered" in said and client.returncode == 3,
          "a daemon that dies is not waited for", said)

    peer = Peer(lambda text: ("ACK", 10000, ""))
    said = Path("/tmp/watching")
    client = subprocess.Popen(["cfgctl", "watch", "-t", "1"], stderr=said.open("w"))
    wait_until(lambda: peer.asked, "the watch has subscribed")
    time.sleep(1.2)  # the first limit is over
    peer.end()
    late = lambda text: ("ACK", 10000, "") if len(peer.asked) > 1 else None
    peer = Peer(late)
    wait_until(lambda: "started anew" in said.read_text(), "a watch goes on")
    check(len(peer.asked) > 1, "it has subscribed again, twice", peer.asked)
    client.terminate()
    client.wait(10)
    peer.end()

    names = b'<BODY><Row ID="\xff\x1b[31m\xc2\x9b\xe2\x80\xae" ><Item Name="State" Value="A" /></Row></BODY>'
    peer = Peer(lambda text: rows(text) if 'ID=""' in text else
                ("RESPONSE", 10000, names.decode("utf-8", "surrogateescape")))
    text = run("list").stdout + run("list --json").stdout
    check(not re.search(rb"[\x00-\x09\x0b-\x1f\x7f-\xff]", text), "nothing reaches a terminal", text)
    row = json.loads(run("list --json").out)["configurations"][0]
    check(row["name"].startswith("\ufffd") and row["nameBytes"].startswith("ff1b"), "bytes", row)
    peer.end()


def main():
    place_files()
    daemons = boot()
    try_matrix()
    place_files()
    try_manners()
    try_terminal()
    for daemon in daemons:
        daemon.kill()
        daemon.wait()
    os.unlink(CFG_SOCKET)
    place_files()
    for verb, (served, _, _, _, asks) in MATRIX.items():
        if not asks:
            continue
        for form in ("", "--json "):
            done = run(f"{form}-t 1 {verb} {served.replace('-t 30', '')}")
            check(done.returncode == 3 and "cfgctl: " in done.err and "CfgManager" in done.err,
                  f"{verb}, no answer: {done.returncode}", done.err)
            if form:
                check_json(done.out, verb, 3)
    try_peers()
    left = [name for name in os.listdir("/tmp") if "Cfgctl" in name or "cfgctl" in name]
    check(not left, "left behind", left)


try:
    main()
finally:
    for fault in faults:
        print("cfgctl_matrix:", fault)
sys.exit(1 if faults else 0)
