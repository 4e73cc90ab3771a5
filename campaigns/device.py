"""A device in a private world and an application's socket, for the campaigns. BIN names another
build than debug."""

import os
import re
import shutil
import socket
import subprocess
import time

PROJECT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
BIN = os.environ.get("BIN", f"{PROJECT}/build/debug/bin")
MANAGER = "/tmp/sockCfg"
OK = "10000"


def start(name, *options):
    return subprocess.Popen([f"{BIN}/{name}", *options], stdin=subprocess.DEVNULL,
                            stdout=subprocess.DEVNULL)


def wait_until(what, condition, limit=30):
    deadline = time.monotonic() + limit
    while not condition():
        if time.monotonic() > deadline:
            raise SystemExit(f"{what}: not within {limit} s")
        time.sleep(0.002)


class Device:
    """Collector, siblings and manager, all real."""

    def __init__(self, *options):
        self.options = options
        os.makedirs("/etc/sysmgt", exist_ok=True)
        shutil.copy(f"{PROJECT}/packaging/cfg_data_set.json", "/etc/sysmgt/")
        self.others = [start("dbgcollect", "-o", "/dev/null")]
        wait_until("the collector", lambda: os.path.exists("/tmp/sockDbg"))
        self.others += [start("DevManager"), start("ChanManager")]
        wait_until("the siblings", lambda: all(map(os.path.exists, ("/tmp/sockDev", "/tmp/sockChan"))))
        self.manager = None

    def start_manager(self, limit=30):
        """Until it answers."""
        self.manager = start("CfgManager", *self.options)
        with Application("starter") as application:
            deadline = time.monotonic() + limit
            while application.get() is None:
                if self.manager.poll() is not None or time.monotonic() > deadline:
                    raise SystemExit(f"the manager does not serve: {self.manager.poll()}")

    def kill_manager(self):
        self.manager.kill()
        self.manager.wait()

    def figures(self):
        """Resident memory in KiB, and descriptors."""
        pid = self.manager.pid
        with open(f"/proc/{pid}/status") as status:
            resident = int(re.search(r"VmRSS:\s+(\d+)", status.read())[1])
        return resident, len(os.listdir(f"/proc/{pid}/fd"))

    def end(self):
        for process in [self.manager, *self.others]:
            process.kill()
            process.wait()


class Application:
    """One socket; a request is answered, or None after the limit in seconds."""

    def __init__(self, name):
        self.path = f"/tmp/sock-{name}"
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(self.path)
        self.number = 0

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()
        os.unlink(self.path)

    def send(self, datagram, to=MANAGER):
        try:
            self.socket.sendto(datagram, socket.MSG_DONTWAIT, to)
            return True
        except OSError:
            return False

    def ask(self, kind, body, limit=1.0, to=MANAGER):
        self.number += 1
        deadline = time.monotonic() + limit
        while not self.send(message(self.number, kind, body), to):
            if time.monotonic() > deadline:
                return None
            time.sleep(0.001)
        while (left := deadline - time.monotonic()) > 0:
            self.socket.settimeout(left)
            try:
                text = self.socket.recv(1 << 18).decode("utf-8", "surrogateescape")
            except TimeoutError:
                return None
            header = re.match(r'<HEADER ID="(\d+)" Type="(\w+)" Fcode="(\w+)"', text)
            if header and int(header[1]) == self.number:
                return header[2], header[3], text
        return None

    def get(self, limit=1.0):
        return self.ask("GET", GET_TABLE, limit)

    def command(self, name, limit=5.0, **parameters):
        answer = self.ask("COMMAND", command(name, **parameters), limit)
        return answer and answer[1]

    def drain(self):
        self.socket.settimeout(0)
        try:
            while True:
                self.socket.recv(1 << 18)
        except BlockingIOError:
            pass


GET_TABLE = '<BODY>\n<DataSet ID="CfgDataSet" >\n<Component Name="ConfigurationsTable" >\n</Component>\n</DataSet>\n</BODY>\n'


def command(name, **parameters):
    lines = "".join(f'\t<Parameter Name="{key.replace("_", " ")}" Value="{value}" />\n'
                    for key, value in parameters.items())
    return f'<BODY>\n\t<Command ID="{name}" >\n{lines}</Command>\n\n</BODY>\n'


def message(number, kind, body):
    text = f'<HEADER ID="{number}" Type="{kind}" Size="{len(body)}" >\n</HEADER>\n{body}'
    return text.encode("utf-8", "surrogateescape")
