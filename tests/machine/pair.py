"""Two supervisors, each a machine, set up as the documents say: each tells of both."""

import contextlib
import os
import shutil
import time

import support
import told
from prepared import Prepared
from ways import BY_NAME

PATIENCE = 180  # until a supervisor tells of its peer, which it looks for each 5 s
DATABASE = "/var/lib/kavra/cell{cell}.json"
# The link between the two, a network card of its own.
LINK = """
set -e
mkdir -p /etc/systemd/network
printf '%s\\n' '[Match]' Name=eth1 '[Network]' Address=169.254.1.{cell}/24 LinkLocalAddressing=no \\
  >/etc/systemd/network/link.network
systemctl enable --quiet --now systemd-networkd
"""
# packaging/redis and packaging/tunnel, as they are installed.
SET_UP = """
set -e
/usr/lib/kavra/new-users /etc/norvek/redis-{cell}
install -m 600 /etc/norvek/redis-{cell}/agent.auth /etc/norvek/agent/db.auth
cd /usr/share/doc/kavra/examples/tunnel
./new-certificate /etc/norvek/tunnel
sed 's/169.254.1.1:/169.254.1.own:/; s/169.254.1.2:/169.254.1.{peer}:/; s/169.254.1.own:/169.254.1.{cell}:/
     s|redis/1/|redis/{cell}/|' tunnel.conf >/etc/norvek/tunnel/tunnel.conf
cp kavra-tunnel.service /etc/systemd/system/
"""
JOIN = """
set -e
echo '{certificate}' >/etc/norvek/tunnel/peer.pem
(umask 077; echo '{password}' >/etc/norvek/agent/peer.auth)
given=/run/credentials/norvek-snmpd.service
sed -i "s|--cell-id 1 --db [^ ]*|--cell-id {cell} --db redis+unix:/run/norvek/redis/{cell}/redis.sock \\
--db-auth $given/agent_db.auth --peer-db redis://127.0.0.1:6380 --peer-db-auth $given/agent_peer.auth|" \\
  /etc/norvek/norvek-snmpd.env
sed -i 's|^OPTIONS=.*|OPTIONS="--db file:{file} --cell {cell}"|' /etc/norvek/norvek-reset-cause.env
kavra --db file:{file} set-redundancy --cell {cell} --protocol 3 --switchover-capable true
systemctl daemon-reload
systemctl enable --quiet kavra-redis@{cell} kavra-publisher@{cell} kavra-tunnel
"""


class Supervisor:
    def __init__(self, cell, ports, prepared, folder):
        self.cell, self.peer = cell, 3 - cell
        self.file = DATABASE.format(cell=cell)
        link = f"socket,id=link,udp=127.0.0.1:{ports[self.peer]},localaddr=127.0.0.1:{ports[cell]}"
        card = f"virtio-net-pci,netdev=link,mac=52:54:00:00:01:0{cell},romfile="
        self.machine = prepared.copy(os.path.join(folder, f"machine{cell}"),
                                     ("-netdev", link, "-device", card))
        self.reader = told.manager(self.machine.port, prepared.phrases)

    def run(self, script, **more):
        return self.machine.run(script.format(cell=self.cell, peer=self.peer, file=self.file,
                                              **more))

    def prepare(self):
        self.run(LINK)
        self.run(SET_UP)

    def join(self, other):
        self.run(JOIN, certificate=other.run("cat /etc/norvek/tunnel/own.pem"),
                 password=other.run("cat /etc/norvek/agent/db.auth"))

    def goDown(self, name, tag):
        """In the way of that name; returns what has to be told afterwards, once it is up."""
        way = BY_NAME[name]
        way.deed(self.machine, tag)
        return way.text.replace("{tag}", tag)

    def tells(self, causes):
        """Waits until SNMP tells these first causes, {cell: text}; returns what it told last."""
        deadline = time.monotonic() + PATIENCE
        while True:
            by = {cell: firstOf(told.outside(self.reader, cell)) for cell in causes}
            if by == causes or time.monotonic() > deadline:
                return by
            time.sleep(0.5)


def firstOf(causes):
    return causes[0][0] if causes else "nothing"


def look(pair, causes, what):
    """Whether each of the two tells both causes; a row for each."""
    good = True
    for supervisor in pair:
        begin = time.monotonic()
        by = supervisor.tells(causes)
        _, shown = told.inside(supervisor.machine, supervisor.cell, supervisor.file)
        right = by == causes and firstOf(shown) == causes[supervisor.cell]
        good = good and right
        print(f"{what} | supervisor {supervisor.cell} tells by SNMP: "
              + "; ".join(f"cell {cell}: {text}" for cell, text in by.items())
              + f" | kavra show: {firstOf(shown)} | after {time.monotonic() - begin:.1f} s"
              + ("" if right else f" | WRONG: {causes} is expected"), flush=True)
    return good


def run(arguments):
    begin = time.monotonic()
    folder = os.path.join(arguments.results, "pair")
    isSetUp = arguments.goesOn and os.path.exists(folder)
    if not isSetUp:
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)
    prepared = Prepared(arguments.results, arguments.packages)
    ports = {1: support.freePort(), 2: support.freePort()}
    pair = [Supervisor(cell, ports, prepared, folder) for cell in (1, 2)]
    with contextlib.ExitStack() as ends:
        for supervisor in pair:
            ends.enter_context(contextlib.closing(supervisor.machine))
            supervisor.machine.start()
        for supervisor in pair:
            supervisor.machine.awaitBoot()
        first, second = pair
        if not isSetUp:
            first.prepare()
            second.prepare()
            first.join(second)
            second.join(first)
        causes = {1: first.goDown("reboot-message", "1"), 2: second.goDown("request", "2")}
        first.machine.awaitBoot()
        second.machine.awaitBoot()
        good = look(pair, causes, "both were set up and restarted")
        causes[2] = second.goDown("sysrq-c", "3")
        second.machine.awaitBoot()
        good = look(pair, causes, "the second crashed") and good
        causes[1] = first.goDown("power-cut", "4")
        first.machine.awaitBoot()
        good = look(pair, causes, "the first lost its power") and good
    print(f"the pair: {'good' if good else 'told wrongly'}, {time.monotonic() - begin:.0f} s")
    return 0 if good else 1
