"""An emulated machine: its disk stays, it is started, asked, taken down and cut off."""

import base64
import json
import os
import queue
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))
BOOT_PATIENCE = 600  # seconds from anything to a machine that is up; emulated, and beside others
ASK_PATIENCE = 300
NOW = "date +%s.%N"
READY = f"{NOW}; read -r go"  # of what may take the machine down at once: its time is told before


class Trouble(Exception):
    """The machine did not do what was asked of it."""


class Lines:
    """A Unix socket of QEMU, read by a thread of its own: what comes is drained always."""

    def __init__(self, path, alive):
        deadline = time.monotonic() + ASK_PATIENCE
        self.socket = socket.socket(socket.AF_UNIX)
        while True:
            try:
                self.socket.connect(path)
                break
            except OSError:
                if not alive() or time.monotonic() > deadline:
                    raise Trouble(f"nobody listens at {path}") from None
                time.sleep(0.02)
        self.come = queue.Queue()
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        try:
            for line in self.socket.makefile("r", encoding="ascii", errors="replace"):
                self.come.put(line.strip())
        except OSError:
            pass
        self.come.put(None)

    def say(self, text):
        self.socket.sendall(text.encode() + b"\n")

    def next(self, seconds):
        """The next line; null at the end of the socket; raises queue.Empty."""
        return self.come.get(timeout=max(0.0, seconds))

    def close(self):
        self.socket.close()


class Machine:
    """One machine with a disk, a store for dumps, a watchdog and a management controller.

    `folder` keeps its disk and the store over everything; `image` is what script/machine/image
    printed; `payload` is the second disk; `extra` are further arguments of QEMU. At `port` of
    loopback UDP its port 161 is reached."""

    def __init__(self, folder, image, payload, port, extra=()):
        self.folder, self.image, self.payload = folder, image, payload
        self.port, self.extra = port, list(extra)
        self.boot = ""
        self.numbers = 0
        self.process = self.guest = self.monitor = None
        self.sockets = tempfile.mkdtemp(prefix="norvek-vm.")
        self.upSeconds = 0.0
        self.ahead = 0.0  # of its clock before ours, in seconds
        self.began = 0.0  # when its kernel started, by its own clock
        self.seen = 0  # of its console, in octets
        self.done = None  # when what takes it down had been told so, by its own clock

    def _path(self, name):
        return os.path.join(self.folder, name)

    def _arguments(self):
        guest, monitor = (os.path.join(self.sockets, name) for name in ("guest", "monitor"))
        # It goes with whoever started it.
        return [
            "setpriv", "--pdeathsig", "KILL", os.path.join(ROOT, "script/machine/qemu"), self.image,
            "net.ifnames=0 panic=1 mitigations=off",
            "-drive", f"file={self._path('root.img')},format=raw,if=virtio",
            "-drive", f"file={self.payload},format=raw,if=virtio,readonly=on",
            "-chardev", f"file,id=console,path={self._path('console')},append=on",
            "-serial", "chardev:console",
            "-qmp", f"unix:{monitor},server=on,wait=off",
            "-device", "virtio-serial-pci",
            "-chardev", f"socket,id=guest,path={guest},server=on,wait=off",
            "-device", "virtserialport,chardev=guest,name=machine",
            "-device", "virtio-rng-pci",
            "-netdev", f"user,id=net,ipv6=off,hostfwd=udp:127.0.0.1:{self.port}-:161",
            "-device", "virtio-net-pci,netdev=net,romfile=",
            "-device", "i6300esb", "-action", "watchdog=reset",
            "-object", f"memory-backend-file,id=erst,mem-path={self._path('erst')},size=256K,"
                       "share=on",
            "-device", "acpi-erst,memdev=erst",
            "-device", "ipmi-bmc-sim,id=bmc", "-device", "isa-ipmi-kcs,bmc=bmc", *self.extra]

    def start(self):
        """Switches it on; it is up when awaitBoot returns."""
        for name in os.listdir(self.sockets):
            os.unlink(os.path.join(self.sockets, name))
        with open(self._path("qemu.log"), "a", encoding="utf-8") as log:
            self.process = subprocess.Popen(self._arguments(), stdin=subprocess.DEVNULL, stdout=log,
                                            stderr=log)
        alive = lambda: self.process.poll() is None
        self.guest = Lines(os.path.join(self.sockets, "guest"), alive)
        self.monitor = Lines(os.path.join(self.sockets, "monitor"), alive)
        self.command("qmp_capabilities")

    def isOn(self):
        return self.process is not None and self.process.poll() is None

    def command(self, name, **arguments):
        """A command to QEMU itself."""
        self.monitor.say(json.dumps({"execute": name, "arguments": arguments}))

    def cut(self):
        """Cuts the power; returns the time of that."""
        moment = time.time()
        if self.isOn():
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
        for lines in (self.guest, self.monitor):
            if lines:
                lines.close()
        return moment

    def awaitBoot(self):
        """Waits for the next boot, which it starts where the machine was switched off."""
        deadline = time.monotonic() + BOOT_PATIENCE
        while time.monotonic() < deadline:
            if not self.isOn():
                self.cut()
                self.start()
            try:
                line = self.guest.next(0.5)
            except queue.Empty:
                continue
            if line is None:
                self.process.wait(ASK_PATIENCE)
                continue
            words = line.split()
            if len(words) == 2 and words[0] == "then":
                self.done = float(words[1])
            if len(words) == 3 and words[0] == "hello" and words[1] != self.boot:
                self.boot, self.upSeconds = words[1], float(words[2])
                return
        raise Trouble(f"not up within {BOOT_PATIENCE} s; see {self._path('console')}")

    def _ask(self, word, command):
        self.numbers += 1
        self.guest.say(f"{word} {self.numbers} {base64.b64encode(command.encode()).decode()}")
        deadline = time.monotonic() + ASK_PATIENCE
        while True:
            try:
                line = self.guest.next(deadline - time.monotonic())
            except queue.Empty:
                raise Trouble(f"no answer within {ASK_PATIENCE} s: {command}") from None
            if line is None:
                raise Trouble(f"it went down during: {command}")
            words = line.split()
            if len(words) >= 3 and words[:2] == ["said", str(self.numbers)]:
                output = base64.b64decode(words[3] if len(words) > 3 else "").decode(
                    errors="replace")
                return int(words[2]), output.rstrip("\n")

    def run(self, command, *, fails=False):
        """What the command prints; raises Trouble where it fails, unless it may."""
        status, output = self._ask("run", command)
        if status != 0 and not fails:
            raise Trouble(f"{command}: ended with {status}: {output}")
        return output

    def do(self, command):
        """Begins what takes the machine down; returns its own time of that, which is the first
        thing that the command prints; where it prints another, that is when it was done."""
        self.done = None
        return float(self._ask("do", command)[1])

    def now(self):
        """Its own clock."""
        return float(self.run(NOW))

    def compareClocks(self):
        before = time.time()
        own, up = map(float, self.run(f"{NOW}; cut -d ' ' -f 1 /proc/uptime").split())
        self.ahead = own - (before + time.time()) / 2
        self.began = own - up
        self.seen = os.path.getsize(self._path("console"))

    def panicMoment(self):
        """When its kernel said that it panicked, since the clocks were compared, by its own; null
        where it did not."""
        with open(self._path("console"), "rb") as console:
            console.seek(self.seen)
            found = re.search(rb"\[ *([0-9.]+)\] Kernel panic - not syncing", console.read())
        return self.began + float(found[1]) if found else None

    def waitFor(self, condition):
        """Waits for a command to succeed."""
        self.run(f"for _ in {{1..600}}; do {condition} && exit; sleep 0.1; done; exit 1")

    def resetMoment(self):
        """When it was reset or switched off first since this was asked last, by our clock; null
        where it was not."""
        first = None
        while not self.monitor.come.empty():
            line = self.monitor.come.get()
            event = json.loads(line) if line else {}
            if event.get("event") in ("RESET", "SHUTDOWN") and first is None:
                stamp = event["timestamp"]
                first = stamp["seconds"] + stamp["microseconds"] / 1e6
        return first

    def powerOff(self):
        """Goes down in order, and stays off."""
        self.do(f"{READY}; systemctl poweroff")
        self.process.wait(BOOT_PATIENCE)
        self.cut()

    def close(self):
        self.cut()
        shutil.rmtree(self.sockets, ignore_errors=True)
