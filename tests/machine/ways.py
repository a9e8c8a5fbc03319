"""The ways down of a machine, and what has to be told of each afterwards."""

import dataclasses
import time
from collections.abc import Callable

from vm import NOW, READY, Machine

CERTAIN, LIKELY, POSSIBLE = "certain", "likely", "possible"
NOTHING_TELLS = "Power lost, hard reset or forced restart"
ASKED = "asked"  # the moment at which it was asked to go down is the one to be told
RESET = "reset"  # the moment at which the machine was reset
PANIC = "panic"  # the moment at which the kernel said that it panicked
ASKED_BY_CONTROLLER = "asked, by the controller's clock"  # that is ours
KEEP_LAST_WORDS = "echo Y >/sys/module/printk/parameters/always_kmsg_dump; "


@dataclasses.dataclass(frozen=True)
class Way:
    """`text` may hold {tag}, by which each reload has a text of its own. `deed` takes the machine
    down and returns the time of that, by the machine's clock."""

    name: str
    deed: Callable[[Machine, str], float]
    text: str
    confidence: str = CERTAIN
    moment: str = ASKED
    exact: bool = True  # otherwise a window holds the moment
    beside: tuple[str, ...] = ()  # causes that may stand beside it
    later: float = 0.0  # what lies between the moment and that which is to be told, in seconds


def asks(command, before=""):
    whole = f"{before}{READY}; {command}; {NOW}"
    return lambda machine, tag: machine.do(whole.replace("{tag}", tag))


def wordy(command, before=""):
    """The same, while the kernel keeps its last words of each restart."""
    return asks(command, KEEP_LAST_WORDS + before)


def byAlice(machine, tag):
    """A user who logged in, and may use sudo."""
    return machine.do("systemd-run --quiet --pipe --property PAMName=login --property User=alice "
                      f"sudo sh -c '{READY}; norvek-reset-cause request --reason \"new kernel "
                      f"{tag}\"; {NOW}'")


def pressPowerKey(machine, _tag):
    moment = machine.now()
    machine.command("system_powerdown")
    return moment


def pressPowerKeyThenCut(machine, _tag):
    machine.run("systemd-run --quiet --unit slow --property ExecStop='sleep 60' sleep infinity")
    moment = pressPowerKey(machine, _tag)
    machine.waitFor("journalctl --boot | grep -q 'System is powering'")
    machine.run("journalctl --sync")
    machine.cut()
    return moment


def cutPower(machine, _tag):
    return machine.cut() + machine.ahead


def pressReset(machine, _tag):
    machine.command("system_reset")
    return time.time() + machine.ahead


def pressCtrlAltDel(machine, _tag):
    moment = machine.now()
    machine.command("send-key", keys=[{"type": "qcode", "data": key}
                                      for key in ("ctrl", "alt", "delete")])
    return moment


def startAnotherKernel(machine, _tag):
    machine.run("kexec --load /boot/vmlinuz --initrd=/boot/initrd.img --reuse-cmdline")
    return machine.do(f"{READY}; systemctl kexec; {NOW}")


def withoutLoginManager(machine, _tag):
    machine.run("systemctl mask --runtime --now systemd-logind dbus-org.freedesktop.login1")
    return machine.do(f"{READY}; systemctl reboot; {NOW}")


def hangWhileGoingDown(machine, _tag):
    machine.run("systemd-run --quiet --unit slow --property ExecStop='sleep 300' "
                "--property TimeoutStopSec=300 sleep infinity")
    moment = machine.do(f"{READY}; systemctl reboot; {NOW}")
    machine.waitFor("journalctl --boot | grep -q 'System is rebooting'")
    machine.run("journalctl --sync")
    machine.do(f"{READY}; exec 9>/dev/watchdog0; sleep infinity")
    return moment


# In tenths of a second: stop other timers, reset, no warning; then start it. A busy emulator resets
# the machine seconds after its controller wrote that it does.
CONTROLLER_SECONDS = 10
CONTROLLER_WATCHDOG = ("ipmitool raw 0x06 0x24 0x04 0x01 0x00 0x10 0x64 0x00 && "
                       "ipmitool raw 0x06 0x22")
CRASH_INIT = ("busctl set-property org.freedesktop.systemd1 /org/freedesktop/systemd1 "
              "org.freedesktop.systemd1.Manager RuntimeWatchdogUSec t 12000000; sleep 1; "
              "kill -SEGV 1")
SOFTDOG_SECONDS = 5
LOAD_SOFTDOG = (f"modprobe softdog soft_margin={SOFTDOG_SECONDS}; "
                "softdog=$(grep -l Software /sys/class/watchdog/*/identity | cut -d / -f 5); ")
STARVE_SOFTDOG = "exec 9>/dev/$softdog; sleep infinity"
FATAL = "systemd-run --quiet --unit fatal-{tag} --property FailureAction="

WAYS = [
    Way("reboot", asks("systemctl reboot"), "Reload requested"),
    Way("reboot-message", asks("systemctl reboot --message 'new rack {tag}'"),
        "Reload requested: new rack {tag}"),
    Way("shutdown-text", asks("shutdown -r now 'disk swap {tag}'"),
        "Reload requested: disk swap {tag}"),
    Way("request", byAlice, "Reload requested by alice: new kernel {tag}",
        beside=("Reload requested",)),
    Way("forced", asks("reboot -f"), NOTHING_TELLS, POSSIBLE, RESET, exact=False),
    Way("forced-words", wordy("reboot -f"), "Immediate restart without shutdown"),
    Way("forced-twice", asks("reboot -ff"), NOTHING_TELLS, POSSIBLE, RESET, exact=False),
    Way("forced-twice-words", wordy("reboot -ff"), "Immediate restart without shutdown"),
    Way("poweroff", asks("systemctl poweroff"), "Powered off by request"),
    Way("poweroff-words", wordy("systemctl poweroff"), "Powered off by request"),
    Way("forced-poweroff-words", wordy("poweroff -f"), "Immediate power-off without shutdown"),
    Way("power-button", pressPowerKey, "Power button pressed",
        beside=("Powered off by request",)),
    Way("button-then-cut", pressPowerKeyThenCut,
        "Power button pressed, but reset or power lost before it finished", exact=False,
        beside=("Powered off by request, but reset or power lost before it finished",)),
    Way("hard-reset", pressReset, NOTHING_TELLS, POSSIBLE, exact=False),
    Way("power-cut", cutPower, NOTHING_TELLS, POSSIBLE, exact=False),
    Way("sysrq-c", asks("echo c >/proc/sysrq-trigger"),
        "Kernel panic: sysrq triggered crash (forced by an operator)"),
    Way("sysrq-c-words", wordy("echo c >/proc/sysrq-trigger"),
        "Kernel panic: sysrq triggered crash (forced by an operator)"),
    Way("sysrq-b", asks("echo b >/proc/sysrq-trigger"), NOTHING_TELLS, POSSIBLE, RESET,
        exact=False),
    Way("sysrq-b-words", wordy("echo b >/proc/sysrq-trigger"),
        "Immediate restart without shutdown"),
    Way("watchdog", asks("exec 9>/dev/watchdog0; sleep infinity"), "Watchdog expired",
        moment=RESET, exact=False),
    Way("init-crashed", asks(CRASH_INIT), "Watchdog expired; init had crashed", moment=RESET,
        exact=False),
    Way("reload-hung", hangWhileGoingDown,
        "Watchdog expired; the reload that was requested hung", moment=RESET, exact=False,
        beside=("Reload requested, but reset or power lost before it finished",)),
    Way("controller-watchdog", asks(CONTROLLER_WATCHDOG), "Watchdog expired",
        moment=ASKED_BY_CONTROLLER, later=CONTROLLER_SECONDS),
    Way("softdog", asks(STARVE_SOFTDOG, LOAD_SOFTDOG),
        NOTHING_TELLS, POSSIBLE, RESET, exact=False),
    Way("softdog-words", wordy(STARVE_SOFTDOG, LOAD_SOFTDOG), "Watchdog expired",
        later=SOFTDOG_SECONDS),
    Way("out-of-memory", asks("sysctl --quiet vm.panic_on_oom=1; tail /dev/zero"),
        "Kernel panic: Out of memory: system-wide panic_on_oom is enabled", moment=PANIC),
    Way("kexec", startAnotherKernel, "Reload requested (kexec)"),
    Way("failed-unit", asks(FATAL + "reboot false"),
        "Service fatal-{tag}.service failed (inferred)", LIKELY),
    Way("failed-unit-force", asks(FATAL + "reboot-force false"),
        "Service fatal-{tag}.service failed (inferred)", LIKELY),
    Way("no-login-manager", withoutLoginManager, "Orderly reload, requester unknown", LIKELY),
    Way("ctrl-alt-del", pressCtrlAltDel, "Ctrl-Alt-Del on the console", LIKELY),
]
BY_NAME = {way.name: way for way in WAYS}
