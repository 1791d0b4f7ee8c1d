"""Makes the guest: a read-only file system of the distribution's packages, its kernel with our test modules, and a small
initial file system that puts a writable layer over the former. No root rights: packages are fetched and unpacked, not installed.

Everything lies in build/acceptance/machine and is made again when one of its sources has changed.
"""
import concurrent.futures
import gzip
import hashlib
import os
import pathlib
import re
import shutil
import subprocess

HERE = pathlib.Path(__file__).resolve().parent.parent
ROOT = HERE.parent
BUILD = ROOT / "build" / "acceptance"
# Of the packages' files the guest needs none of these.
PRUNED = ["usr/share/doc", "usr/share/man", "usr/share/locale", "usr/share/info", "usr/share/icons", "usr/share/lintian",
          "usr/share/bash-completion", "usr/share/zsh", "usr/share/perl", "usr/share/gtk-doc"]
# Modules without which there is no root file system.
EARLY = ["virtio_pci", "virtio_blk", "squashfs", "overlay", "virtio_console", "lz4_decompress", "crc32c_generic", "ext4"]
USERS = ["messagebus", "systemd-network", "systemd-resolve", "systemd-timesync", "polkitd", "avahi", "dnsmasq", "player"]


class MachineError(Exception):
    """The machine could not be made; the text says why."""


def run(*command, **options):
    """Runs a command; its output, or MachineError with what it said."""
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, **options)
    if done.returncode:
        raise MachineError(f"{command[0]} failed ({done.returncode}): {(done.stderr or done.stdout).strip()[-2000:]}")
    return done.stdout


def words(path):
    return [line for line in path.read_text().split("\n") if line and not line.startswith("#")]


def kernel_release():
    found = sorted((p.name.removeprefix("linux-headers-") for p in pathlib.Path("/usr/src").glob("linux-headers-*-amd64")),
                   key=lambda n: [int(x) for x in re.findall(r"\d+", n)])
    if not found:
        raise MachineError("there are no kernel headers: install the packages of acceptance/packages.txt")
    return found[-1]


def digest(paths, more=""):
    h = hashlib.sha256(more.encode())
    for path in sorted(paths):
        h.update(str(path.relative_to(ROOT)).encode() + b"\0" + path.read_bytes() + b"\0")
    return h.hexdigest()


def libraries_of(binaries):
    """The packages that hold what these programs and libraries load."""
    files = set()
    for binary in binaries:
        files.update(re.findall(r"=> (/\S+)", run("ldd", binary)))
    files = {f for f in files if not f.startswith(str(ROOT))}
    # Directories that were merged are known to the package manager by their former place.
    places = {file: [os.path.realpath(file), file, file.replace("/usr/lib", "/lib", 1), os.path.realpath(file).removeprefix("/usr")] for file in files}
    # Its status is an error as soon as one place is not known.
    told = subprocess.run(["dpkg-query", "-S", *sorted(set(sum(places.values(), [])))], capture_output=True, text=True).stdout
    holders = {path: names.split(":")[0] for names, path in (line.rsplit(": ", 1) for line in told.splitlines() if ": /" in line)}
    homeless = [file for file, known in places.items() if not any(place in holders for place in known)]
    if homeless:
        raise MachineError(f"no package holds {', '.join(homeless)}")
    return sorted({next(holders[place] for place in known if place in holders) for known in places.values()})


def fetch(packages, into):
    """Fetches the packages and all that they depend on; the paths of the archives."""
    # With an empty list of what is installed, all that is needed is told.
    status = into.parent / "status"
    status.write_text("")
    plan = run("apt-get", "-s", "-q", "--no-install-recommends", "-o", f"Dir::State::status={status}", "-o", "Debug::NoLocking=1",
               "-o", "APT::Get::AllowUnauthenticated=false", "install", *packages)
    wanted = re.findall(r"^Inst (\S+) \((\S+) ", plan, re.M)
    if not wanted:
        raise MachineError("the package manager plans nothing: are its lists there (apt-get update)?")
    into.mkdir(parents=True, exist_ok=True)

    def archive(name, version):
        return next(iter(into.glob(f"{name}_{version.replace(':', '%3a')}_*.deb")), None)

    missing = [f"{n}={v}" for n, v in wanted if not archive(n, v)]
    for i in range(0, len(missing), 60):
        run("apt-get", "-q", "download", *missing[i:i + 60], cwd=into)
    return [archive(n, v) or archive(n, v.split(":")[-1]) for n, v in wanted]


def unpack(archives, root):
    shutil.rmtree(root, ignore_errors=True)
    for name in ("bin", "sbin", "lib", "lib64"):
        (root / "usr" / name).mkdir(parents=True)
        (root / name).symlink_to(f"usr/{name}")
    for archive in archives:
        tar = subprocess.Popen(["dpkg-deb", "--fsys-tarfile", archive], stdout=subprocess.PIPE)
        run("tar", "-x", "--keep-directory-symlink", "--no-same-owner", "-C", root, stdin=tar.stdout)
        if tar.wait():
            raise MachineError(f"{archive} can't be unpacked")
    for name in PRUNED:
        shutil.rmtree(root / name, ignore_errors=True)


def configure(root):
    """What the packages' own scripts would have done, as far as the scenarios need it."""
    etc = root / "etc"
    passwd, group = ["root:x:0:0:root:/root:/bin/sh"], ["root:x:0:"]
    for number, name in enumerate(USERS, 900):
        passwd.append(f"{name}:x:{number}:{number}::/:/usr/sbin/nologin")
        group.append(f"{name}:x:{number}:")
    for number, name in enumerate(["tty", "disk", "dialout", "video", "audio", "input", "render", "kvm", "cdrom", "floppy", "tape",
                                   "kmem", "lp", "sgx", "utmp", "netdev", "plugdev", "adm", "systemd-journal"], 5):
        group.append(f"{name}:x:{number}:")
    passwd.append("nobody:x:65534:65534::/:/usr/sbin/nologin")
    group.append("nogroup:x:65534:")
    (etc / "passwd").write_text("\n".join(passwd) + "\n")
    (etc / "group").write_text("\n".join(group) + "\n")
    (etc / "shadow").write_text("root::19000::::::\n")
    (etc / "hosts").write_text("127.0.0.1 localhost\n::1 localhost\n")
    (etc / "hostname").write_text("acceptance\n")
    (etc / "machine-id").write_text("a" * 32 + "\n")
    (etc / "fstab").write_text("")
    (etc / "resolv.conf").write_text("")
    for name in ("run", "lock"):
        if not (root / "var" / name).is_symlink():
            shutil.rmtree(root / "var" / name, ignore_errors=True)
            (root / "var" / name).symlink_to("/run" if name == "run" else "/run/lock")
    (etc / "localtime").unlink(missing_ok=True)
    (etc / "localtime").symlink_to("/usr/share/zoneinfo/UTC")
    for service in ("systemd-timesyncd", "systemd-resolved", "NetworkManager", "NetworkManager-wait-online", "systemd-networkd",
                    "udisks2", "wpa_supplicant", "hostapd", "dnsmasq", "ModemManager"):
        for folder in etc.glob("systemd/system/*.wants"):
            (folder / f"{service}.service").unlink(missing_ok=True)
    for name in ("usr/local/bin", "guest", "opt/vorel", "mnt", "media", "root", "home/player", "run", "tmp", "proc", "sys", "dev", "var/lib/xkb", "var/log"):
        (root / name).mkdir(parents=True, exist_ok=True)
    for source in (HERE / "guest").iterdir():
        if source.name != "packages.txt":
            shutil.copy2(source, root / "guest" / source.name)
    unit = etc / "systemd/system"
    (unit / "multi-user.target.wants").mkdir(parents=True, exist_ok=True)
    shutil.copy2(HERE / "guest" / "acceptance-agent.service", unit)
    (unit / "multi-user.target.wants" / "acceptance-agent.service").symlink_to("../acceptance-agent.service")
    (unit / "default.target").unlink(missing_ok=True)
    (unit / "default.target").symlink_to("/lib/systemd/system/multi-user.target")
    for python in sorted((root / "usr/bin").glob("python3.[0-9]*")):
        link = root / "usr/bin/python3"
        link.unlink(missing_ok=True)
        link.symlink_to(python.name)


def build_modules(release, into):
    """Our own modules, against the headers of that kernel."""
    shutil.rmtree(into, ignore_errors=True)
    shutil.copytree(HERE / "modules", into)
    run("make", "-C", f"/usr/src/linux-headers-{release}", f"M={into}", "modules")
    return sorted(into.glob("*.ko"))


def initial_file_system(root, release, out):
    """busybox, the early modules and the script that finds the rest."""
    stage = out.parent / "early"
    shutil.rmtree(stage, ignore_errors=True)
    for name in ("bin", "proc", "sys", "dev", "lower", "upper", "new", "modules"):
        (stage / name).mkdir(parents=True)
    shutil.copy2(next(p for p in (root / "usr/bin/busybox", root / "bin/busybox") if p.exists()), stage / "bin/busybox")
    order = []
    for module in EARLY:
        shown = subprocess.run(["modprobe", "-d", str(root), "-S", release, "--show-depends", module], capture_output=True, text=True)
        for path in re.findall(r"^insmod (\S+)", shown.stdout, re.M):
            if path not in order:
                order.append(path)
    for number, path in enumerate(order):
        shutil.copy2(path, stage / "modules" / f"{number:02}-{pathlib.Path(path).name}")
    shutil.copy2(HERE / "guest" / "early-init", stage / "init")
    (stage / "init").chmod(0o755)
    files = run("find", ".", cwd=stage)
    packed = subprocess.run(["cpio", "-o", "-H", "newc", "--quiet", "-R", "0:0"], input=files.encode(), cwd=stage, capture_output=True, check=True)
    out.write_bytes(gzip.compress(packed.stdout, 1))


def make(binaries, say):
    """Makes what is missing or out of date; the folder with vmlinuz, initrd and root.squashfs, and a name for its state."""
    machine = BUILD / "machine"
    release = kernel_release()
    libraries = libraries_of(binaries)
    sources = [p for folder in ("guest", "modules") for p in (HERE / folder).iterdir()] + [pathlib.Path(__file__)]
    name = digest(sources, release + " ".join(libraries))
    stamp = machine / "stamp"
    if stamp.exists() and stamp.read_text() == name:
        return machine, name
    say("making the machine: some minutes the first time")
    machine.mkdir(parents=True, exist_ok=True)
    stamp.unlink(missing_ok=True)
    with concurrent.futures.ThreadPoolExecutor() as pool:
        modules = pool.submit(build_modules, release, machine / "modules")
        archives = fetch(words(HERE / "guest" / "packages.txt") + libraries + [f"linux-image-{release}"], machine / "packages")
        root = machine / "root"
        unpack(archives, root)
        configure(root)
        extra = root / "usr/lib/modules" / release / "extra"
        extra.mkdir(parents=True, exist_ok=True)
        for module in modules.result():
            run("strip", "--strip-debug", module)
            shutil.copy2(module, extra)
    run("/usr/sbin/depmod" if os.path.exists("/usr/sbin/depmod") else "/sbin/depmod", "-b", root, release)
    initial_file_system(root, release, machine / "initrd")
    shutil.copy2(root / "boot" / f"vmlinuz-{release}", machine / "vmlinuz")
    shutil.rmtree(root / "boot")
    (machine / "root.squashfs").unlink(missing_ok=True)
    run("mksquashfs", root, machine / "root.squashfs", "-all-root", "-comp", "lz4", "-no-progress", "-noappend")
    shutil.rmtree(root)
    stamp.write_text(name)
    return machine, name


def pack_product(release_build, out):
    """The program as it is delivered, as a file system for the guest."""
    out.unlink(missing_ok=True)
    stage = out.parent / "product"
    shutil.rmtree(stage, ignore_errors=True)
    stage.mkdir(parents=True)
    (stage / "bin").mkdir()
    for name in ("vorel", "libvorelhost.so", "libvorelsystem.so", "libvoreltools.so"):
        shutil.copy2(release_build / "bin" / name, stage / "bin")
    shutil.copytree(release_build / "share", stage / "share")
    shutil.copytree(ROOT / "app" / "examples", stage / "examples")
    run("mksquashfs", stage, out, "-all-root", "-comp", "lz4", "-no-progress", "-noappend", "-all-time", "0", "-mkfs-time", "0")
    return hashlib.sha256(out.read_bytes()).hexdigest()
