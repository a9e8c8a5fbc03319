"""A machine on which the packages were just installed, as anybody would, to be copied."""

import contextlib
import glob
import hashlib
import json
import os
import re
import shutil
import subprocess
import tempfile

import support
import vm

PACKAGES = ("libqelplatform0", "kavra", "norvek-snmpd", "norvek-reset-cause")
# The packages come from a folder, what they depend on is there already. Until the table has its
# first row, by the community that a machine knows which nobody has configured.
INSTALL = """
begin=$(cut -d ' ' -f 1 /proc/uptime)
apt-get install --yes --quiet /payload/packages/*.deb >/root/apt.log 2>&1 || { cat /root/apt.log; exit 1; }
installed=$(cut -d ' ' -f 1 /proc/uptime)
until snmpget -v2c -c public -m '' -Oqv -r 0 -t 0.5 udp:127.0.0.1:1161 %s.4.0.0.1 2>/dev/null | grep '^"'
do sleep 0.1; done
echo "$begin $installed $(cut -d ' ' -f 1 /proc/uptime)"
""" % support.ENTRY
# The example for production, as its page says.
OPEN = """
set -e
cd /usr/share/doc/norvek-snmpd/examples
access/new-access /etc/norvek/agent/access.conf
mkdir -p /etc/systemd/system/norvek-snmpd.service.d
cp port-161.conf /etc/systemd/system/norvek-snmpd.service.d/
sed -i 's|--listen [^ "]*|--listen udp:161 --config /run/credentials/norvek-snmpd.service/agent_access.conf|' \\
  /etc/norvek/norvek-snmpd.env
systemctl daemon-reload
systemctl restart norvek-snmpd
grep createUser /etc/norvek/agent/access.conf
"""


def imageOfMachine():
    return subprocess.run([os.path.join(vm.ROOT, "script/machine/image"), "reloads"], check=True,
                          stdout=subprocess.PIPE, text=True).stdout.strip()


def packageFiles(folder):
    files = []
    for package in PACKAGES:
        found = glob.glob(os.path.join(folder, f"{package}_*.deb"))
        if len(found) != 1:
            raise vm.Trouble(f"{folder} has not the one {package}: script/package builds it")
        files += found
    return files


def payloadOf(packages, path):
    """The machine's second disk: what runs in it, and the packages."""
    with tempfile.TemporaryDirectory(prefix="norvek-payload.") as folder:
        shutil.copy(os.path.join(os.path.dirname(__file__), "guest"), os.path.join(folder, "run"))
        os.mkdir(os.path.join(folder, "packages"))
        for file in packages:
            shutil.copy(file, os.path.join(folder, "packages"))
        subprocess.run(["mke2fs", "-q", "-F", "-t", "ext4", "-d", folder, path, "64M"], check=True,
                       stdout=subprocess.DEVNULL)


def copyDisk(source, target):
    subprocess.run(["cp", "--sparse=always", source, target], check=True)


class Prepared:
    """`install` tells how long that took: {"installed": s, "answered": s, "first": text}; `phrases`
    are those of the SNMP user."""

    def __init__(self, folder, packages):
        self.image = imageOfMachine()
        files = packageFiles(packages)
        mark = hashlib.sha256((self.image + INSTALL + OPEN).encode())
        for file in files:
            with open(file, "rb") as content:
                mark.update(content.read())
        self.folder = os.path.join(folder, f"prepared-{mark.hexdigest()[:12]}")
        self.payload = os.path.join(folder, "payload.img")
        payloadOf(files, self.payload)
        facts = os.path.join(self.folder, "facts.json")
        if not os.path.exists(facts):
            self._prepare(facts)
        with open(facts, encoding="utf-8") as file:
            document = json.load(file)
        self.install, self.phrases = document["install"], document["phrases"]

    def _prepare(self, facts):
        shutil.rmtree(self.folder, ignore_errors=True)
        os.makedirs(self.folder)
        copyDisk(os.path.join(self.image, "root.img"), os.path.join(self.folder, "root.img"))
        machine = self.machine(self.folder)
        with contextlib.closing(machine):
            machine.awaitBoot()
            *_, first, times = machine.run(INSTALL).splitlines()
            begin, installed, answered = map(float, times.split())
            phrases = re.search(r"SHA-256 (\S+) AES (\S+)", machine.run(OPEN)).groups()
            machine.powerOff()
        document = {"install": {"installed": round(installed - begin, 1),
                                "answered": round(answered - begin, 1), "first": first.strip('"')},
                    "phrases": phrases}
        with open(facts, "w", encoding="utf-8") as file:
            json.dump(document, file)

    def machine(self, folder, extra=()):
        return vm.Machine(folder, self.image, self.payload, support.freePort(), extra)

    def copy(self, folder, extra=()):
        """A machine of its own, switched off; that of an earlier run, where there is its disk."""
        os.makedirs(folder, exist_ok=True)
        if not os.path.exists(os.path.join(folder, "root.img")):
            for name in ("root.img", "erst"):
                copyDisk(os.path.join(self.folder, name), os.path.join(folder, name))
        return self.machine(folder, extra)
