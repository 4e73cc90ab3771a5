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
import signal
import socket
import subprocess
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
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
    "wait": ("day=Available", r"wait day=Available: OK", "-t 1 night", 6, True),
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


def check(holds, what, *shown):
    if not holds:
        faults.append(what + "".join(f"\n    {text!r}" for text in shown))


def complete(line):
    """What the program says to bash, which replaces what stands behind the last character that parts words."""
    replaced = re.split("[ =:@]", line)[-1]
    return subprocess.run(["cfgctl", "--complete", "cfgctl " + line, replaced], capture_output=True,
                          text=True, timeout=60).stdout


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
    if "pattern" in rule and isinstance(value, str) and not re.search(rule["pattern"], value):
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


def prepare(verb):
    """What the verb needs, whatever ran before."""
    if verb in ("rename", "remove"):
        run("import /tmp/stick/lab --yes")
    if verb == "remove":
        run("rename lab two --yes")
    if verb == "confirm":
        run("start day --confirm-within 60")


def try_matrix():
    told = {verb["name"] for verb in json.loads(run("help --json").out)["verbs"]}
    check(told == set(MATRIX), "the matrix lacks or invents verbs", told ^ set(MATRIX))
    for verb, (served, holds, refused, status, _) in MATRIX.items():
        for form in ("", "--json "):
            prepare(verb)
            done = run(f"{form}{verb} {served}")
            check(done.returncode == 0, f"{form}{verb}: {done.returncode}", done.out, done.err)
            check(form or re.search(holds, done.out), f"{verb}: text", done.out)
            bad = run(f"{form}{verb} {refused}")
            check(bad.returncode == status, f"{form}{verb} {refused}: {bad.returncode}", bad.err)
            check(re.fullmatch(r"cfgctl: .*\. Try: .+|cfgctl: .*\? Try: .+", (bad.err.splitlines() or [""])[-1]),
                  f"{verb} {refused}: does not say what, or what next", bad.err)
            if form:
                check_json(done.out, verb, 0)
                check_json(bad.out, verb, status)
                usage = run(f"--json {verb} --bogus")
                check(len(usage.out.splitlines()) == 1 or verb not in ("watch", "log"), "a line", usage.out)
                check_json(usage.out, verb, 2)
        text = run(f"help {verb}").out
        check("Usage: cfgctl " + verb in text and "Examples:\n  cfgctl " in text, f"help {verb}", text)
        check(run(f"{verb} --help").out == text, f"{verb} --help is not help {verb}")
        begun = complete(verb[:-1]).split()
        check(verb in begun, f"completion of {verb[:-1]}", begun)
        options = complete(f"{verb} --").split()
        check("--json" in options, f"completion of options: {verb}", options)
        section = re.search(rf"^## {verb}\b.*\n\n(.*)\.", MANUAL.read_text(), re.M)
        check(section and text.startswith(section[1].split(".")[0]), f"{verb} in the manual page", text)
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
            ("wait day=Availble", "did you mean 'Available'? Try: cfgctl wait day\\=Available"),
            ("wait -- -a=b", "Try: cfgctl wait -- -a\\=b\\=")):
        done = run(command)
        check(done.returncode == 2 and said in done.err, command, done.err)
    done = run("list >/dev/full")
    check(done.returncode == 1 and "No space left" in done.err, "list >/dev/full", done.err)
    check(run("save -- -night").out == "save -night: OK\n", "a name that begins with -")
    check(re.search(r"Running: +day\nFallback at boot: +no", run("-t 30 status").out), "what runs")
    check("-night" in run("list -t 5").out and run("-y remove -- -night").returncode == 0, "-night")
    for command, holds in (("save 'x ü'", 'Name="Name" Value="x ü"'), ("list", '<HEADER ID="1"'),
                           ("import /tmp/stick/lab", 'Value="/run/sysmgt/import/cfgctl-XXXXXX/lab"'),
                           ("restore /tmp/all.tar", 'ID="Import Configuration"'),
                           ("restore /tmp/all.tar", 'ID="SET_AUTOSTART_CFG"')):
        done = run("--dry-run " + command)
        check(done.returncode == 0 and holds in done.out, "dry run of " + command, done.out)
    bytes_sent = json.loads(run("--dry-run --json save $(printf 'n\\377')").out)["datagramsBytes"]
    check(b"n\xff" in bytes.fromhex(bytes_sent[0]), "the bytes of a dry run", bytes_sent)
    check(run("get CfgDataSet").returncode == 2 and run("set --table Sensors 1 x").returncode == 2 and
          "cfgctl get --table TABLE [ROW [ITEM]]" in run("help get").out, "what get and set want")
    check(run("show 'x ü'").returncode == 4, "a dry run has saved")
    check(Path("/tmp/stick/lab").exists(), "import has taken the user's file")
    check(run("import /tmp/stick/lab --move --yes").returncode == 0 and
          not Path("/tmp/stick/lab").exists(), "import --move has left the file")
    place_files()
    empty = run("validate /dev/null"), Path("/tmp/empty").touch(), run("validate /tmp/empty")
    check("Success" not in empty[0].err and re.search(r"^1 +1 ", empty[2].out, re.M),
          "validate: no file, an empty file", empty[0].err, empty[2].out)
    bad = run("validate /tmp/bad.json")
    Path("/tmp/many.json").write_text('{"dataset": "X", "components": {%s}}' %
                                      ",".join(f'"c{i}": 1' for i in range(60)))
    done = run("validate /tmp/many.json")
    check("the first 20 of 60 faults" in done.err, "validate: many faults", done.err)
    check(re.search(r"^3 +18 ", bad.out, re.M), "validate: line and column", bad.out)
    for name in ("wide one", "a:b", "c=d"):
        run(f"save '{name}'")
    for line, whole in (("show da", "day\n"), ("show wi", "wide\\ one\n"), ("show 'wide o", "one\n"),
                        ("show a:", "b\n"), ("wait c=", "d\nAvailable\nInprogress\nUnavailable\n"),
                        ("wait day=Av", "Available\n"), ("wait c=d=I", "Inprogress\n")):
        wait_until(lambda: complete(line) == whole, "completion of " + line)
    odd = "\udcff\u202e\u009bx"  # nothing of it may reach a terminal that asks for completions
    run(f"save '{odd}'"), run("save '\udcff'")
    wait_until(lambda: complete("show $'") == "" and r"$'\xff\xe2\x80\xae\xc2\x9bx'" in complete("show "),
               "completion of what changes a terminal")
    check(run(f"show {odd}").returncode == 0 and run(f"remove {odd} -y").returncode == 0, "odd bytes")
    lines = Path(LOG).stat().st_size  # in bytes
    done = run("-t 1 wait gone=Available"), run("wait c=d=")
    check([each.returncode for each in done] == [6, 0], "wait", done[0].err, done[1].err)
    check(b"gone" not in Path(LOG).read_bytes()[lines:], "the manager logs what is waited for")
    again = run("""save 'wide one' -d "it's \\$5 (|" --autostart""").err.split("Try: cfgctl ")[-1]
    check(run(again).returncode == 0 and
          "it's $5" in run("show 'wide one'").out, "what is to be typed again", again)
    os.chmod("/tmp/stick/lab", 0o664)
    run("import /tmp/stick/lab -y")
    check(os.stat("/data/cfg/lab").st_mode & 0o777 == 0o664, "an import changes the file's mode")
    os.unlink("/data/cfg/lab")
    gone = run("start lab"), run("start lab --confirm-within 60"), run("start nothing")
    check(all(done.returncode == 4 and "its file /data/cfg/lab is gone. Try: cfgctl doctor" in done.err
              for done in gone[:2]) and "names are exact" in gone[2].err, "a start without its file", *gone)
    done = run("export ''")
    check(done.returncode == 2 and "wants its FILE" in done.err, "export ''", done.err)
    Path("/data/cfg/lab").write_text("Channel=1 Frequency=474000\n")
    if subprocess.run("mount -t tmpfs -o size=1100k full /data/cfg", shell=True).returncode == 0:
        subprocess.run("head -c 2000k /dev/zero 2>/dev/null >/data/cfg/.fill", shell=True)
        done = run("save more"), run("import /tmp/stick/lab -y --description much")
        check(all("the disk of /data/cfg is full. Try: df -h" in each.err for each in done),
              "a full disk", *(each.err for each in done))
        subprocess.run(["umount", "/data/cfg"])
        run("remove more --yes")
    if subprocess.run("mount -t tmpfs -o size=4k full /run/sysmgt/import", shell=True).returncode == 0:
        Path("/tmp/stick/large").write_text("x" * 40000)
        done = run("import /tmp/stick/large")
        check(done.returncode == 5 and "into /run/sysmgt/import/: No space left" in done.err and
              not os.listdir("/run/sysmgt/import"), "a full staging directory", done.err)
        subprocess.run(["umount", "/run/sysmgt/import"])
    try:
        done = run("confirm", user=1, group=1, extra_groups=[])
        check(done.returncode == 5 and "Try: usermod -aG root " in done.err, "who may confirm", done.err)
        os.chmod("/tmp/stick/lab", 0o600), os.chmod("/run/sysmgt/import", 0o777)
        done = run("import /tmp/stick/lab -y", user=1, group=1, extra_groups=[])
        check(done.returncode == 5 and "cannot read /tmp/stick/lab: Permission" in done.err,
              "import of what one may not read", done.err)
        os.chmod("/tmp/stick/lab", 0o664), os.chmod("/run/sysmgt/import", 0o770)
        done = run("import /tmp/stick/lab -y", user=1, group=1, extra_groups=[])
        check(done.returncode == 5 and "only the group 'root'" in done.err and
              "Try: usermod -aG root " in done.err, "import by somebody else", done.err)
        done = run("export /run/sysmgt/confirm/x.tar", user=1, group=1, extra_groups=[])
        check(done.returncode == 5 and "/run/sysmgt/confirm/x.tar: Permission denied" in done.err,
              "export to where one may not", done.err)
        os.chmod(CFG_SOCKET, 0o700)
        done = run("doctor", user=1, group=1, extra_groups=[])
        check(done.returncode == 0 and "warning: cannot ask on /tmp/sockCfg: Permission" in done.out and
              "stale" not in done.out, "a doctor without rights", done.out, done.err)
        os.chmod(CFG_SOCKET, 0o777)
        shown = run("status", user=1, group=1, extra_groups=[]).out
        check_json(run("--json status", user=1, group=1, extra_groups=[]).out, "status", 0)
        check(re.search("confirmed: +unknown", shown), "a start to confirm, to somebody else", shown)
    except PermissionError:
        pass  # no other users here


def on_terminal(command, typed=b"", columns=60, environment="", interrupt=None):
    """What a terminal gets, and the exit status."""
    pid, master = pty.fork()
    if pid == 0:
        os.execvp("sh", ["sh", "-c", f"stty cols {columns}; {environment} exec cfgctl {command}"])
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
        if interrupt and interrupt.encode() in shown:
            os.write(master, b"\x03")
            interrupt = None
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
    shown, _ = on_terminal("show long")
    check(all(len(line) <= 60 for line in shown.splitlines()) and "…" in shown, "a record is cut", shown)
    Path("/tmp/lines").write_text("ERROR05/03/24 14:07:09.042 tCfg(812)Unit:131:init: " + "long " * 20 + "\n")
    shown, _ = on_terminal("log /tmp/lines --for 1")
    check(re.search(r"^05/03/24 14:07:09.042  \x1b\[31merror\x1b\[0m +tCfg +init: long[long ]*…$", shown, re.M),
          "an entry is cut and red", shown)
    check("\x1b" not in on_terminal("log /tmp/lines --for 1", environment="NO_COLOR=1")[0], "NO_COLOR")
    check("long " * 20 in run("log /tmp/lines --for 1").out and
          run("-t 1 log /tmp/lines").returncode == 6, "a log in a pipe, and its limit")
    shown, status = on_terminal("remove long", b"n\n")
    check(status == 2 and "will be deleted" in shown, "a no is a no", shown)
    shown, status = on_terminal("remove long", b"y\n")
    check(status == 0 and "remove long: OK" in shown, "a yes is a yes", shown)


class Peer(threading.Thread):
    """In a daemon's place: answers each request as the script says; None for no answer."""

    def __init__(self, script, path=CFG_SOCKET):
        super().__init__(daemon=True)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        if os.path.exists(path):
            os.unlink(path)
        self.socket.bind(path)
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


class SlowDaemon(threading.Thread):
    """Between the clients and the manager: each answer is late."""

    def __init__(self, delay):
        super().__init__(daemon=True)
        os.rename(CFG_SOCKET, "/tmp/sockManager")
        self.socket, self.behind = (socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) for _ in range(2))
        self.socket.bind(CFG_SOCKET)
        self.behind.bind("/tmp/sockBehind")
        self.behind.connect("/tmp/sockManager")
        self.delay = delay
        self.start()

    def run(self):
        while True:
            request, client = self.socket.recvfrom(300000)
            if not request:
                return
            self.behind.send(request)
            answer = self.behind.recv(300000)
            time.sleep(self.delay)
            try:
                self.socket.sendto(answer, client)
            except OSError:
                pass  # it has ended

    def end(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.join(10)
        self.socket.close(), self.behind.close()
        os.unlink("/tmp/sockBehind")
        os.rename("/tmp/sockManager", CFG_SOCKET)


def try_slow(daemons):
    """Every verb on a slow daemon, then one with 2,000 configurations, slow and not."""
    slow = SlowDaemon(0.1)
    for verb, (served, _, _, _, asks) in MATRIX.items():
        if asks:
            prepare(verb)
            done = run(f"{verb} {served}")
            check(done.returncode == 0, f"{verb} on a slow daemon: {done.returncode}", done.err)
    slow.delay = 0.8
    done = run("--json status -t 2")
    told = json.loads(done.out)
    check(told["busy"] and not told["answers"] and "autoStart" in told, "a status that is cut short", told)
    check_json(done.out, "status", 3)
    slow.end()

    daemons[-1].kill(), daemons[-1].wait()
    names = [f"configuration-{i:04}-of-a-device" for i in range(2000)]
    shutil.rmtree("/data/cfg")
    os.mkdir("/data/cfg")
    for name in names:
        Path("/data/cfg", name).write_text("Channel=1\n")
    os.unlink(CFG_SOCKET)
    daemons[-1] = subprocess.Popen(["CfgManager", "-v", "2"], stderr=subprocess.DEVNULL)
    wait_until(lambda: os.path.exists(CFG_SOCKET) and run("status -t 9").returncode == 0, "2,000 rows")
    for delay in (0, 0.05):
        slow = delay and SlowDaemon(delay)
        text, listed = run("list"), json.loads(run("list --json").out)
        check(text.returncode == 0 and re.findall(r"^(\S+)  Available ", text.out, re.M) == names,
              f"a list of 2,000, delay {delay}", text.err, text.out[:300])
        check(listed["ok"] and [row["name"] for row in listed["configurations"]] == names,
              f"JSON of 2,000, delay {delay}", listed.get("error"))
        done = run("export /tmp/2000.tar --yes")
        check("Configurations: 2000" in done.out, f"an archive of 2,000, delay {delay}", done.err)
        slow and slow.end()

    # Names that no message carries: none is missing, and none is another's.
    daemons[-1].kill(), daemons[-1].wait()
    for name in names[2:] + ["cfg_stored_set.json"]:
        os.unlink("/data/cfg/" + name)
    for name in (names[0] + '"b', 'k" >', "c<d", "e\nf"):
        Path("/data/cfg", name).touch()
    os.unlink(CFG_SOCKET)
    daemons[-1] = subprocess.Popen(["CfgManager", "-v", "2"], stderr=subprocess.DEVNULL)
    wait_until(lambda: os.path.exists(CFG_SOCKET) and run("status -t 9").returncode == 4, "odd names")
    text, listed, told = run("list"), json.loads(run("list --json").out), json.loads(run("status --json").out)
    check(text.returncode == 4 and re.findall(r"^(\S+)  +Available ", text.out, re.M) ==
          ["c<d", *names[:2], r"e\x0af"] and f"left out '{names[0]}\"b', 'k\" >'" in text.err,
          "a list with odd names", text.out, text.err)
    check([each["name"] for each in listed["leftOut"]] == [names[0] + '"b', 'k" >'] and
          told["configurationCount"] == 6, "JSON with odd names", listed, told)
    check_json(json.dumps(listed), "list", 4), check_json(json.dumps(told), "status", 4)
    doctor, done = run("doctor"), run("export /tmp/odd.tar")
    check(all(name in doctor.out and name in done.err for name in ('"b', "c<d", "e\\x0af")) and
          doctor.returncode == 5 and done.returncode == 4, "odd names are told", doctor.out, done.err)
    done = run("restore --yes /tmp/odd.tar")
    check(done.returncode == 0 and "Configurations: 2" in done.out, "the others are restored", done.err)


def try_log():
    """Whatever the collector wrote before it found that its file was renamed."""
    lines = ["%s05/03/24 14:07:09.042 tCfg(812)Unit:131:init: line %d\n" %
             ("ERROR" if i in (7, 8, 20000) else "INFO ", i) for i in range(30000)]
    lines.insert(9, "the rest of it\n")
    Path("/tmp/long").write_text("".join(lines))
    for options, shown, said in (
            ("", lines[-100:], "the last 100 entries, then what comes for 1 s"),
            ("--severity error", lines[7:10] + [lines[20001]], ": 3 such entries so far, then"),
            ("--severity fatal", [], "no such entry so far; following for 1 s")):
        done = run("log /tmp/long --for 1 " + options)
        check(done.out == "".join(shown) and said in done.err, "log " + options, done.out[:300], done.err)
    shown = Path("/tmp/shown")
    line = "INFO 05/03/24 14:07:09.042 tCfg(812)Unit:131:init: %s\n"
    Path("/tmp/rotated").write_text(line % "first")
    with open("/tmp/rotated", "a", buffering=1) as held:
        client = subprocess.Popen(["cfgctl", "log", "/tmp/rotated"], stdout=shown.open("w"),
                                  stderr=subprocess.DEVNULL)
        wait_until(lambda: "first" in shown.read_text(), "the first line")
        os.rename("/tmp/rotated", "/tmp/rotated.1")
        Path("/tmp/rotated").touch()
        time.sleep(0.6)  # some looks at it
        held.write(line % "second")
        wait_until(lambda: "second" in shown.read_text(), "a line in the file that was renamed")
        Path("/tmp/rotated").write_text(line % "third")
        wait_until(lambda: "third" in shown.read_text(), "a line in the new file")
    client.terminate()
    client.wait(10)


def row(name, items=()):
    """A row of an answer, to the byte."""
    values = "".join(f'\t\t\t\t<Item Name="{item}" Value="{value}" />\n' for item, value in items)
    return f'\t\t\t<Row ID="{name}" >\n{values}\t\t\t</Row>\n'


def runs(text, name):
    """The answer of a manager on which the configuration runs, and every start but one is refused."""
    if "RunningConfiguration" in text:
        return "RESPONSE", 10000, row("", (("Name", name), ("Fallback", "false")))
    if "START_CFG" in text:
        return ("ACK", 10000, "") if 'Value="new"' in text else ("NACK", 10100, "")
    return rows(text)


def try_guardian():
    """Starts on probation, of a daemon elsewhere that is stuck, or refuses the way back."""
    path = "/tmp/sockElse"
    guarded = f"-t 1 --socket {path} start new --confirm-within 1"
    peer = Peer(lambda text: None if "START_CFG" in text else runs(text, "old"), path)
    done = run(guarded)
    check(done.returncode == 3 and path in done.err, "a guarded start of a stuck daemon", done.err)
    peer.end()
    run("confirm")
    wait_until(lambda: not any("Cfgctl" in name for name in os.listdir("/tmp")), "the guardian's end")

    started, times = [], []

    def refuse(text):
        """Three times; then it starts anew, and what it starts at boot comes behind the way back."""
        if 'Value="old"' in text:
            times.append(time.monotonic())
            return ("NACK", 10100, "") if len(times) < 4 else ("ACK", 10000, "")
        if "START_CFG" in text:
            started.append(text)
        if len(times) > 3 and "Running" in text:
            started.append(text)
            return runs(text, "" if len(started) == 6 else "old")
        return runs(text, "" if len(times) == 3 else "new" if started else "old")

    peer = Peer(refuse, path)
    done = run(guarded.replace("-t 1", "-t 30"))
    check(done.returncode == 0, "a guarded start elsewhere", done.err)
    wait_until(lambda: len(times) > 2, "the way back is tried again")
    check(times[2] - times[0] > 2.5, "it is tried less and less often", times)
    wait_until(lambda: len(times) > 4, "what a start at boot replaced is started again")
    check(run("confirm").returncode == 5, "a confirmation that comes too late")
    wait_until(lambda: not any("Cfgctl" in name for name in os.listdir("/tmp")), "the guardian's end")
    peer.end()


def rows(text, limit=10**6):
    """The answer to a request for names or rows of a catalogue of 150 configurations."""
    names = [f"c{i}" for i in range(150)]
    wanted = re.findall('<Row ID="([^"]*)"', text)
    if wanted == [""]:
        return "RESPONSE", 10000, row("", [("Name", "")])
    if len(wanted) > limit:
        return "NACK", 10100, ""
    return "RESPONSE", 10000, "".join(row(n, [("State", "Available")]) for n in wanted or names)


def try_peers():
    """Daemons that are slow, stuck, dying or odd."""
    asked_rows = lambda text: text.count("<Row") > 1
    asked_names = []

    def without_c77(text):
        kind, code, body = rows(text)
        if "<Row" not in text:
            asked_names.append(text)
            body = body.replace(row("c77", [("State", "Available")]), "" if len(asked_names) > 1 else row("c77"))
        return kind, code, body

    for name, script, status, said in (
            ("too long answers", lambda text: rows(text, 7), 0, ""),
            ("silent", lambda text: None, 3, "in 2 s"),
            ("silent in the middle", lambda t: None if asked_rows(t) else rows(t), 3, "in 2 s"),
            ("refuses rows", lambda t: ("NACK", 10080, "") if asked_rows(t) else rows(t), 7,
             "Unsupported Request (0x10080)"),
            ("refuses single rows", lambda t: rows(t, 0) if "c77" in t else rows(t), 5,
             "Unavailable (0x10100)"),
            ("rows vanish", lambda t: ("NACK", 10008, "") if "c77" in t else without_c77(t), 0, ""),
            ("rows that nobody can ask for", lambda t: ("NACK", 10008, "") if "c77" in t else rows(t), 4,
             "left out 'c77'"),
            ("another form", lambda t: ("RESPONSE", 10000, '<Row ID="c1" ><Item Name="State"'), 7,
             "Message Body Error (0x10002): the daemon answers in a form"),
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

    # More names than one answer holds, and no right to read the file.
    peer = Peer(lambda text: rows(text) if "<Row" in text else ("NACK", 10100, ""))
    try:
        os.chmod("/data/cfg", 0o700), os.chmod(CFG_SOCKET, 0o777)
        done = [run(verb, user=1, group=1, extra_groups=[]) for verb in ("wait c7=Available", "list")]
        check(done[0].returncode == 0, "a name among too many", done[0].err)
        check("only the group" in done[1].err and done[1].returncode == 5, "who may read them", done[1].err)
    except PermissionError:
        pass
    peer.end()

    peer = Peer(lambda text: ("NACK", 10080, ""))
    status = json.loads(run("status --json").out)
    check(not status["busy"] and status["exitCode"] == 7, "a daemon that refuses is not busy", status)
    peer.end()

    peer = Peer(lambda text: None)
    check(json.loads(run("-t 1 status --json").out)["busy"], "a silent daemon is busy")
    asked = [verb for verb, row in MATRIX.items() if row[4]]
    with ThreadPoolExecutor(8) as pool:
        stuck = pool.map(lambda verb: run(f"-t 1 {verb} {MATRIX[verb][0].replace('-t 30', '')}"), asked)
    for verb, done in zip(asked, stuck):
        check(done.returncode == 3 and "Try: " in done.err, f"{verb}, stuck: {done.returncode}", done.err)
    staged = os.listdir("/run/sysmgt/import")
    client = subprocess.Popen(["cfgctl", "import", "/tmp/stick/lab", "-y"], stderr=subprocess.DEVNULL)
    wait_until(lambda: "Import" in peer.asked[-1] and "stick" not in peer.asked[-1], "the import is asked")
    client.send_signal(signal.SIGINT)
    check(client.wait(10) == 128 + signal.SIGINT and os.listdir("/run/sysmgt/import") == staged,
          "an import that is interrupted leaves nothing")
    check("still be done" not in run("-t 1 list").err, "a read leaves nothing to be done")
    shown, status = on_terminal("start x", interrupt="2 of 130 s")
    check(status == 128 + signal.SIGINT and
          "CfgManager has been asked, and may still do it. Try: cfgctl status" in shown, "Ctrl-C", shown)
    ignoring = subprocess.Popen(["sh", "-c", "trap '' HUP; exec cfgctl -t 9 list"], stderr=subprocess.DEVNULL)
    wait_until(lambda: "Cfgctl" in "".join(os.listdir("/tmp")), "a client")
    time.sleep(0.3)
    ignoring.send_signal(signal.SIGHUP)
    time.sleep(0.3)
    check(ignoring.poll() is None, "nohup is heeded")
    ignoring.kill(), ignoring.wait()
    shown, _ = on_terminal("-t 3 start x")
    check("waiting for the channel manager, 2 of 3 s" in shown, "what is waited for", shown)
    client = subprocess.Popen(["cfgctl", "start", "y"], stderr=subprocess.PIPE, text=True)
    wait_until(lambda: 'Value="y"' in peer.asked[-1], "the start is asked")
    peer.end()
    said = client.communicate(timeout=10)[1]
    check("has ended before it answered" in said and client.returncode == 3,
          "a daemon that dies is not waited for", said)
    check("may be done or not" in said, "what a daemon that dies has done", said)

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

    peer = Peer(lambda text: ("ACK", 10000, ""))
    begin = time.monotonic()
    client = subprocess.Popen(["cfgctl", "watch", "--for", "2"], stderr=subprocess.PIPE, text=True)
    check("for 2 s" in client.stderr.readline(), "the watch says how long")
    peer.end()
    peer = Peer(lambda text: None)
    check(client.wait(30) == 0 and time.monotonic() - begin < 10, "--for ends a new subscription")
    peer.end()

    name = b"\xff\x1b[31m\xc2\x9b\xe2\x80\xae".decode("utf-8", "surrogateescape")
    peer = Peer(lambda text: rows(text) if 'ID=""' in text else
                ("RESPONSE", 10000, row(name, [("State", "A")])))
    text = run("list").stdout + run("list --json").stdout
    check(not re.search(rb"[\x00-\x09\x0b-\x1f\x7f-\xff]", text), "nothing reaches a terminal", text)
    shown = json.loads(run("list --json").out)["configurations"][0]
    check(shown["name"].startswith("\ufffd") and shown["nameBytes"].startswith("ff1b"), "bytes", shown)
    peer.end()


def main():
    place_files()
    daemons = boot()
    try_matrix()
    place_files()
    try_manners()
    try_terminal()
    try_log()
    try_slow(daemons)
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
    try_guardian()
    left = [name for name in os.listdir("/tmp") if "fgctl" in name]
    check(not left, "left behind", left)


try:
    main()
finally:
    for fault in faults:
        print("cfgctl_matrix:", fault)
sys.exit(1 if faults else 0)
