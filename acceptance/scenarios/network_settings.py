"""Stored network settings come into force: by each way, confirmed, taken back, and through a power cut."""
import json
import random
import re
import subprocess
import time

from machine import image
from machine.scenario import SERVICE_MANAGER, scenario
from machine.vm import GuestError
from scenarios.network import MAC, interface_of

NAME = "lan0"
FOLDERS = ("/etc/NetworkManager/system-connections", "/var/lib/NetworkManager", "/etc/systemd/network", "/var/lib/vorel")
FORMER_NM = f"""[connection]
id=office
uuid=7a0f1c5e-0a51-4f4e-9a33-6c2f9e1d0b01
type=ethernet
interface-name={NAME}
[ipv4]
method=manual
address1=192.0.2.5/24,192.0.2.1
[ipv6]
method=auto
"""
FORMER_NETWORKD = f"[Match]\nName={NAME}\n[Network]\nAddress=192.0.2.5/24\nGateway=192.0.2.1\nIPv6AcceptRA=yes\n"


def bed(guest, disk, service):
    """A cable to a router that gives leases and prefixes; what shall outlive a power cut is on a disk."""
    _, device = guest.plug_disk(disk)
    guest.run(f"blkid {device} >/dev/null || mkfs.ext4 -q {device}; mkdir -p /mnt/disk && mount {device} /mnt/disk", 120)
    for folder in FOLDERS:
        guest.run(f"mkdir -p {folder} /mnt/disk{folder} && mount --bind /mnt/disk{folder} {folder}")
    # A service turns the interface on itself: what is on already, it takes for another's.
    guest.run(f"ip netns add router && ip link add {NAME} type veth peer name wan0 netns router" + ("" if service else f" && ip link set {NAME} up"))
    guest.run("ip netns exec router sh -c 'ip link set lo up; ip addr add 192.0.2.1/24 dev wan0; ip -6 addr add 2001:db8:1::1/64 dev wan0 nodad;"
              " ip link set wan0 up; sysctl -qw net.ipv6.conf.all.forwarding=1'")
    guest.run("ip netns exec router dnsmasq --conf-file=/dev/null --port=0 --interface=wan0 --bind-interfaces --enable-ra --user=root --leasefile-ro"
              " --pid-file=/run/dnsmasq.pid --dhcp-range=192.0.2.50,192.0.2.59,1h --dhcp-option=3,192.0.2.1 --dhcp-range=2001:db8:1::,ra-only")
    if service:
        guest.run("mkdir -p /run/dbus && (pidof dbus-daemon >/dev/null || dbus-daemon --system --fork --nopidfile)")
        start(guest, service)
        guest.run("sync")  # what the service starts from was there long before


def start(guest, service):
    if service == "NetworkManager":
        guest.put("/etc/NetworkManager/conf.d/lan.conf", f"[device-lan]\nmatch-device=interface-name:{NAME}\nmanaged=1\n"
                                                         f"[main]\ndns=none\nno-auto-default=*\n[keyfile]\nunmanaged-devices=except:interface-name:{NAME}\n")
        if not guest.succeeds("ls /etc/NetworkManager/system-connections/*"):
            guest.put("/etc/NetworkManager/system-connections/office.nmconnection", FORMER_NM, 0o600)
        guest.run("NetworkManager --no-daemon >/run/service.log 2>&1 & echo $! >/run/service.pid")
        name = "org.freedesktop.NetworkManager"
    else:
        if not guest.succeeds("ls /etc/systemd/network/*"):
            guest.put("/etc/systemd/network/50-office.network", FORMER_NETWORKD)
        guest.run("mkdir -p /run/systemd/netif/links /run/systemd/netif/leases && chown -R systemd-network:systemd-network /run/systemd/netif")
        guest.run("/lib/systemd/systemd-networkd >/run/service.log 2>&1 & echo $! >/run/service.pid")
        name = "org.freedesktop.network1"
    # As a unit that comes after the service's.
    ask = "busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus NameHasOwner s"
    try:
        guest.until(lambda: "true" in guest.run(f"{ask} {name}"), 60, f"the service {name}")
    except GuestError as error:
        raise GuestError(f"{error}: {guest.run('tail -20 /run/service.log', status=-1)}") from None


def restart(guest, service):
    guest.run("kill $(cat /run/service.pid); while kill -0 $(cat /run/service.pid) 2>/dev/null; do sleep 0.1; done")
    start(guest, service)


def addresses(guest, family=4):
    told = json.loads(guest.run(f"ip -{family} -j addr show dev {NAME} scope global"))
    return sorted(a["local"] for one in told for a in one.get("addr_info", []) if "local" in a)


def gateways(guest):
    return sorted(r["gateway"] for r in json.loads(guest.run("ip -4 -j route show default")) if r["dev"] == NAME)


def igmp(guest):
    return guest.run("cat /proc/sys/net/ipv4/conf/all/force_igmp_version").strip()


def has(guest, *wanted, within=60):
    def holds():
        now = addresses(guest)
        return len(now) == len(wanted) and all(a.startswith(w) for a, w in zip(now, wanted))
    guest.until(holds, within, f"{NAME} with {wanted}, not {addresses(guest)}")
    guest.until(lambda: gateways(guest) == ["192.0.2.1"], 20, "the gateway")


def vorel(guest, arguments, within=120, status=0):
    return guest.run(f"vorel --profile /var/lib/vorel/profile network {arguments}", within, status)


def attempt(trial, guest, options, what):
    """Settings on trial: the process that tries them."""
    at = time.monotonic()
    process = guest.start(f"exec vorel --profile /var/lib/vorel/profile network {options}")
    seen, line = process.expect(lambda text: text.startswith(("waiting", "vorel:")), 150, "a trial")
    trial.time(f"{what}: asked for to in force", at, seen)
    assert line == "waiting", line
    return process


def steps(trial, service):
    disk = trial.file("disk.img", 64 << 20)
    guest = trial.guest()
    bed(guest, disk, service)
    if service:
        has(guest, "192.0.2.5")
    else:
        guest.run(f"ip addr add 192.0.2.5/24 dev {NAME} && ip route add default via 192.0.2.1 dev {NAME}")
    has_prefix = lambda: any(a.startswith("2001:db8:1:") for a in addresses(guest, 6))
    guest.until(has_prefix, 60, "an address by the router")

    # Refused, and nothing is touched.
    vorel(guest, f"set {NAME} --address 192.0.2.10/24 --gateway 192.0.3.1 --try 60", status=1)
    has(guest, "192.0.2.5")

    process = attempt(trial, guest, f"set {NAME} --address 192.0.2.10/24 --gateway 192.0.2.1 --igmp 2 --try 300", "static")
    has(guest, "192.0.2.10")
    assert igmp(guest) == "2", igmp(guest)
    guest.run("busybox ping -c 1 -W 5 192.0.2.1", 30)
    vorel(guest, "confirm")
    assert process.wait(30) == 0
    guest.until(has_prefix, 60, "the router's address beside the static one")

    # Not confirmed.
    process = attempt(trial, guest, f"set {NAME} --address 192.0.2.11/24 --gateway 192.0.2.1 --try 5", "static, for 5 s")
    at = time.monotonic()
    process.expect(lambda text: "rolled-back" in text, 60, "the end of the trial")
    trial.time("in force to taken back, 5 s wanted", at, time.monotonic())
    has(guest, "192.0.2.10")

    if service:
        # The service goes meanwhile: the kernel takes it back, and the service once it is there again.
        process = attempt(trial, guest, f"set {NAME} --address 192.0.2.13/24 --gateway 192.0.2.1 --try 5", "static, and the service goes")
        at = time.monotonic()
        guest.run("kill -9 $(cat /run/service.pid)")
        guest.until(lambda: addresses(guest) == ["192.0.2.10"], 30, "the former address without the service")
        trial.time("in force to taken back without the service, 5 s wanted", at, time.monotonic())
        start(guest, service)
        process.expect(lambda text: "rolled-back" in text, 60, "the service's own end of the trial")
        process.wait(30)
        has(guest, "192.0.2.10")

        restart(guest, service)
        has(guest, "192.0.2.10")
        process = attempt(trial, guest, f"set {NAME} --dhcp on --try 300", "DHCP")
        has(guest, "192.0.2.5")  # one of the range, from 50 on
        assert addresses(guest) != ["192.0.2.5"]
        vorel(guest, "rollback")
        process.wait(30)
        has(guest, "192.0.2.10")
        process = attempt(trial, guest, "apply 300", "DHCP again")
        vorel(guest, "confirm")
        assert process.wait(30) == 0
        restart(guest, service)
        guest.until(lambda: addresses(guest) and addresses(guest)[0] >= "192.0.2.50", 60, "a lease after the restart")
    before = addresses(guest)

    # The one who tries it is killed: the next start takes it back.
    process = attempt(trial, guest, f"set {NAME} --address 192.0.2.12/24 --gateway 192.0.2.1 --try 600", "static, to be killed")
    has(guest, "192.0.2.12")
    process.signal(9)
    process.wait(30)
    vorel(guest, "--json")
    guest.until(lambda: addresses(guest) == before, 60, "the former address after a kill")

    # The power goes during a trial.
    process = attempt(trial, guest, "apply 600", "static, to be cut")
    guest.cut_power()
    guest = trial.guest()
    bed(guest, disk, service)
    assert "confirmed" in vorel(guest, "apply --boot").splitlines()
    assert igmp(guest) == "2", igmp(guest)
    if service:
        guest.until(lambda: addresses(guest) and addresses(guest)[0] >= "192.0.2.50", 60, "the lease after a power cut")
        time.sleep(3)
        assert addresses(guest)[0] >= "192.0.2.50", addresses(guest)
    else:
        has(guest, "192.0.2.10")

    # And just after it was confirmed.
    process = attempt(trial, guest, "apply 600", "static, to be confirmed")
    vorel(guest, "confirm")
    guest.cut_power()
    guest = trial.guest()
    bed(guest, disk, service)
    assert "confirmed" in vorel(guest, "apply --boot").splitlines()[-1]
    has(guest, "192.0.2.12")
    shown = json.loads(vorel(guest, "--json"))
    mine = next(one for one in shown["interfaces"] if one["name"] == NAME)
    assert mine["differences"] == [], mine


@scenario("Network settings in force by the kernel alone, and a power cut in the middle", long=True)
def network_settings_kernel(trial):
    steps(trial, "")


@scenario("Network settings in force by NetworkManager, and a power cut in the middle", long=True)
def network_settings_manager(trial):
    steps(trial, "NetworkManager")


@scenario("Network settings in force by systemd-networkd, and a power cut in the middle", long=True)
def network_settings_networkd(trial):
    steps(trial, "systemd-networkd")


def kills(trial, service, times=12):
    """The process is killed at chance moments, while it tries or confirms; the next start finds one or the other."""
    guest = trial.guest()
    bed(guest, trial.file("disk.img", 64 << 20), service)
    has(guest, "192.0.2.5")
    former, chance, changed = "192.0.2.5", random.Random(), 0

    def begin(kill):
        wanted = "192.0.2.11" if former == "192.0.2.10" else "192.0.2.10"
        vorel(guest, f"set {NAME} --address {wanted}/24 --gateway 192.0.2.1")
        return wanted, guest.start("exec vorel --profile /var/lib/vorel/profile network apply 600")

    def wait(process):
        process.expect(lambda text: text == "waiting", 90)
        return guest.start("vorel --profile /var/lib/vorel/profile network confirm")

    # How long each half takes here, when nobody is killed.
    began = time.monotonic()
    former, process = begin(-1)
    confirmer = wait(process)
    halves = [time.monotonic() - began]
    process.wait(60)
    halves.append(time.monotonic() - began - halves[0])
    confirmer.wait(60)

    for kill in range(times):
        wanted, process = begin(kill)
        if kill % 2:
            wait(process)
        # Spread over the half, and a little beyond its end.
        time.sleep(halves[kill % 2] * 1.4 * (kill // 2 + chance.uniform(0.1, 1)) / ((times + 1) // 2))
        process.signal(9)
        process.wait(20)
        vorel(guest, "--json")
        guest.until(lambda: len(addresses(guest)) == 1 and gateways(guest) == ["192.0.2.1"], 30, f"one address after kill {kill}")
        seen = addresses(guest)[0]
        assert seen in (former, wanted), (kill, seen)
        left = guest.run("cat /var/lib/vorel/network 2>/dev/null || true")
        assert "\ntrial\n" not in left and "\ndone\n" not in left, left
        changed += seen == wanted
        former = seen
    assert changed, "no change was ever kept"


@scenario("Killed while settings come into force by NetworkManager: former or new", long=True)
def network_settings_kills_manager(trial):
    kills(trial, "NetworkManager")


@scenario("Killed while settings come into force by systemd-networkd: former or new", long=True)
def network_settings_kills_networkd(trial):
    kills(trial, "systemd-networkd")


def boot_with_unit(trial, disk):
    """A machine whose writable layer is on that disk, under its service manager; what its one card is called."""
    guest = trial.guest(extra=["-drive", f"file={disk},format=raw,if=none,id=layer,file.locking=off", "-device", "virtio-blk-pci,drive=layer"],
                        append="acceptance.upper=/dev/vdc")
    return guest, interface_of(guest, MAC)


def in_force(guest, name):
    """The addresses and gateways by IPv4."""
    told = json.loads(guest.run(f"ip -4 -j addr show dev {name}"))
    routes = json.loads(guest.run(f"ip -4 -j route show default dev {name}"))
    return [a["local"] for one in told for a in one.get("addr_info", [])], [r["gateway"] for r in routes]


def unit_has_done(guest):
    """The unit has run, and whoever waits for the network comes after it."""
    def done():
        return guest.run("systemctl is-active vorel-network network-online.target", 60, status=-1).split() == ["active", "active"]
    try:
        guest.until(done, 60, "the unit")
    except GuestError as error:
        shown = guest.run("systemctl list-jobs; systemctl status -n 20 vorel-network network-online.target systemd-networkd*", 60, status=-1)
        raise GuestError(f"{error}: {shown}") from None
    shown = guest.run("systemctl show -p ActiveEnterTimestampMonotonic --value vorel-network network-online.target", 60).split()
    assert int(shown[0]) <= int(shown[1]), f"the network was online before its settings: {shown}"


@scenario("The unit of the handbook puts what was confirmed in force at each start, and takes back what a power cut has left",
          init=SERVICE_MANAGER, boots=True, long=True)
def network_settings_unit(trial):
    unit = re.search(r"^```ini\n# (\S+vorel-network.service)\n(\[Unit\]\n.*?)^```", (image.ROOT / "docs" / "operating.md").read_text(), re.M | re.S)
    assert unit, "docs/operating.md gives no unit for network settings any more"
    disk = trial.file("layer.img", 256 << 20)
    subprocess.run(["mkfs.ext4", "-q", disk], check=True, capture_output=True)
    guest, name = boot_with_unit(trial, disk)
    guest.run(f"ip link set {name} up")
    guest.put("/etc/fstab", "/dev/vdb /opt/vorel squashfs ro 0 0\n")
    guest.put(unit[1], unit[2])
    # Whoever sets a player up does not cut its power before that is on the disk.
    guest.run("systemctl daemon-reload && systemctl enable vorel-network && sync", 120)
    process = attempt(trial, guest, f"set {name} --address 10.0.2.50/24 --gateway 10.0.2.2 --dns 10.0.2.3 --try 600", "static")
    vorel(guest, "confirm")
    assert process.wait(30) == 0
    process = attempt(trial, guest, f"set {name} --address 10.0.2.60/24 --gateway 10.0.2.2 --try 600", "static, to be cut")
    assert in_force(guest, name) == (["10.0.2.60"], ["10.0.2.2"])
    guest.cut_power()

    guest, name = boot_with_unit(trial, disk)
    unit_has_done(guest)
    assert in_force(guest, name) == (["10.0.2.50"], ["10.0.2.2"]), in_force(guest, name)
    assert "nameserver 10.0.2.3" in guest.run("cat /etc/resolv.conf")

    # From now on a service manages the card.
    guest.put("/etc/systemd/network/50-office.network", f"[Match]\nName={name}\n[Network]\nDHCP=yes\n")
    guest.run("systemctl enable --now systemd-networkd && sync", 120)
    guest.until(lambda: in_force(guest, name)[0] not in ([], ["10.0.2.50"]), 60, "the lease of the service")
    process = attempt(trial, guest, f"set {name} --address 10.0.2.70/24 --gateway 10.0.2.2 --try 600", "by the service")
    vorel(guest, "confirm")
    assert process.wait(30) == 0
    process = attempt(trial, guest, f"set {name} --address 10.0.2.80/24 --gateway 10.0.2.2 --try 600", "by the service, to be cut")
    guest.until(lambda: in_force(guest, name) == (["10.0.2.80"], ["10.0.2.2"]), 20, "the settings on trial")
    guest.cut_power()

    guest, name = boot_with_unit(trial, disk)
    unit_has_done(guest)
    guest.until(lambda: in_force(guest, name) == (["10.0.2.70"], ["10.0.2.2"]), 30, "what was confirmed")
    assert json.loads(vorel(guest, "--json"))["problems"] == []
