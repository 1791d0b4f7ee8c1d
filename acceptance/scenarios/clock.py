"""The clock, the hardware's clock, and the zone."""
from machine.scenario import scenario

CLOCK = 'const clock = Components.classes["@vorel/system/clock;1"].getService(Components.interfaces.nsISystemClock);'


def script(guest, text, within=60):
    """What a script prints."""
    guest.put("/run/script.js", text)
    return guest.run("vorel --profile /tmp/clock /run/script.js", within).strip()


@scenario("An application sets the clock: the system's and the hardware's")
def clock_set(trial):
    guest = trial.guest()
    script(guest, CLOCK + 'clock.utcTime = "050607082031.09"; quit();')
    now = guest.run("date -u +%Y-%m-%dT%H:%M").strip()
    assert now == "2031-05-06T07:08", now
    hardware = guest.run("cat /sys/class/rtc/rtc0/date /sys/class/rtc/rtc0/time").split()
    assert hardware[0] == "2031-05-06" and hardware[1].startswith("07:0"), hardware


@scenario("A change of the clock from outside is seen")
def clock_changed_outside(trial):
    guest = trial.guest()
    guest.run("date -u -s '2033-01-02 03:04:05'")
    told = script(guest, CLOCK + "console.log(clock.utcTime); quit();")
    assert told.startswith("010203042033."), told  # month, day, hour, minute, year


@scenario("The zone of the machine is set, and its local time follows")
def clock_zone(trial):
    guest = trial.guest()
    guest.run("date -u -s '2030-07-01 12:00:00'")
    told = script(guest, CLOCK + 'clock.timezone = "Asia/Tokyo"; console.log(new Date().getHours(), clock.localTime); quit();')
    assert told.startswith("21 070121002030."), told
    assert "Tokyo" in guest.run("readlink -f /etc/localtime")
    assert guest.run("date +%H").strip() == "21"
