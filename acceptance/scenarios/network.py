"""Cables, cards, leases and radios."""
import time

from machine.scenario import scenario

MAC = "52:54:00:00:00:01"


def interface_of(guest, mac):
    return guest.run(f"grep -l {mac} /sys/class/net/*/address").split("/")[4]


def has_prefix(text):
    return lambda addresses: any(a["address"].startswith(text) for a in addresses or [])


@scenario("A cable is pulled and put back")
def network_cable(trial):
    guest = trial.guest()
    name = interface_of(guest, MAC)
    guest.run(f"ip link set {name} up")
    guest.until(lambda: guest.succeeds(f"grep -q 1 /sys/class/net/{name}/carrier"), 20, "the carrier")
    watch = guest.picture()
    assert any(a["sysPath"] == name and a["operStatus"] == 1 for a in watch.first["adapters"] if "operStatus" in a), watch.first["adapters"]
    for up, status, what in ((False, 2, "pull"), (True, 1, "put back")):
        at = time.monotonic()
        guest.qmp("set_link", name="nic0", up=up)
        seen, _ = watch.event("adapter-changed", within=20, sysPath=name, operStatus=status)
        trial.time(f"{what} to listener", at, seen)


@scenario("A network card is plugged in and pulled out; an interface is renamed")
def network_card(trial):
    guest = trial.guest()
    guest.qmp("netdev_add", type="user", id="n1", restrict=True)
    watch = guest.picture()
    at = time.monotonic()
    guest.qmp("device_add", driver="virtio-net-pci", netdev="n1", id="nic1", mac="52:54:00:00:00:02", romfile="")
    seen, event = watch.event("adapter-added", within=30, macAddress="52-54-00-00-00-02")
    trial.time("plug to listener", at, seen)
    if event["adapter"]["sysPath"].startswith("eth"):  # seen before the device manager gave it its name
        _, event = watch.event("adapter-added", within=20, macAddress="52-54-00-00-00-02")
    name = event["adapter"]["sysPath"]
    assert name == interface_of(guest, "52:54:00:00:00:02"), name
    at = time.monotonic()
    guest.run(f"ip link set {name} down && ip link set {name} name lobby")
    seen, _ = watch.event("adapter-added", within=20, sysPath="lobby")
    watch.event("adapter-removed", within=20, sysPath=name)
    trial.time("rename to listener", at, seen)
    at = time.monotonic()
    guest.unplug("nic1")
    seen, _ = watch.event("adapter-removed", within=30, sysPath="lobby")
    trial.time("pull to listener", at, seen)


@scenario("A lease of DHCP, and an address that a router gives by IPv6")
def network_lease(trial):
    guest = trial.guest()
    name = interface_of(guest, MAC)
    # The other end of a cable is a namespace with a router in it.
    guest.run("ip netns add router && ip link add lan0 type veth peer name wan0 netns router && ip link set lan0 up")
    guest.run("ip netns exec router sh -c 'ip link set lo up; ip addr add 192.0.2.1/24 dev wan0; ip -6 addr add 2001:db8:1::1/64 dev wan0 nodad;"
              " ip link set wan0 up; sysctl -qw net.ipv6.conf.all.forwarding=1'")
    watch = guest.picture()
    at = time.monotonic()
    guest.run("ip netns exec router dnsmasq --conf-file=/dev/null --port=0 --interface=wan0 --bind-interfaces --enable-ra --user=root --leasefile-ro"
              " --pid-file=/run/dnsmasq.pid --dhcp-range=192.0.2.50,192.0.2.60,1h --dhcp-range=2001:db8:1::,ra-only")
    # Listeners hear of the state of a link and of its first IPv4 address; others stand in the next picture.
    guest.until(lambda: '"2001:db8:1:' in guest.run("vorel --json"), 40, "the router's address in the picture")
    trial.time("router's address to picture", at, time.monotonic())
    guest.put("/run/lease", "#!/bin/sh\n[ \"$1\" = bound ] && ip addr add $ip/24 dev $interface\nexit 0\n", 0o755)
    at = time.monotonic()
    guest.run("busybox udhcpc -n -q -f -t 8 -T 2 -i lan0 -s /run/lease", 60)
    seen, event = watch.event("adapter-changed", within=20, sysPath="lan0", unicastAddresses=has_prefix("192.0.2."))
    trial.time("lease asked for to listener", at, seen)
    live = guest.run("ip -4 -o addr show lan0")
    address = next(a["address"] for a in event["adapter"]["unicastAddresses"] if a["address"].startswith("192.0.2."))
    assert address in live, (address, live)
    assert name in guest.run("vorel --json"), "the other card is no longer there"


@scenario("A radio associates by WPA2 and loses its access point")
def network_wireless(trial):
    guest = trial.guest()
    guest.run("modprobe mac80211_hwsim radios=2 && udevadm settle -t 20")
    # The third interface of the simulated radios only shows what is in the air.
    radios = guest.run("ls -d /sys/class/net/wl* | xargs -n1 basename").split()
    assert len(radios) == 2, radios
    access_point, station = radios
    guest.put("/run/ap.conf", f"interface={access_point}\ndriver=nl80211\nssid=Signage\nhw_mode=g\nchannel=1\nwpa=2\nwpa_key_mgmt=WPA-PSK\n"
                              "rsn_pairwise=CCMP\nwpa_passphrase=signage-test\n")
    guest.put("/run/station.conf", 'network={\n ssid="Signage"\n psk="signage-test"\n}\n')
    watch = guest.picture()
    wireless = [a for a in watch.first["adapters"] if "nsISystemAdapterWLAN" in a["interfaces"]]
    assert {a["sysPath"] for a in wireless} == set(radios), [a["sysPath"] for a in wireless]
    guest.run("hostapd -B -P /run/ap.pid /run/ap.conf", 60)
    at = time.monotonic()
    guest.run(f"wpa_supplicant -B -P /run/station.pid -i {station} -c /run/station.conf", 60)
    seen, _ = watch.event("adapter-changed", within=60, sysPath=station, operStatus=1)
    trial.time("association asked for to listener", at, seen)
    assert "Signage" in guest.run(f"iw dev {station} link")
    at = time.monotonic()
    guest.run("kill $(cat /run/ap.pid)")
    seen, _ = watch.event("adapter-changed", within=60, sysPath=station, operStatus=lambda s: s != 1)
    trial.time("access point gone to listener", at, seen)
