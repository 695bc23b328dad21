# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""Builds what an emulated board boots from: boot loader, kernel, initial RAM file system, root.

All of it except the boards' own few scripts comes from Debian's packages. The images are kept in
the cache and used again as long as nothing that goes into them changes.

There are two roots. On one busybox is PID 1, and the supervisor's package is unpacked into it. On
the other systemd is PID 1, and a board that is booted for that installs the package with dpkg.
"""

from __future__ import annotations

import fcntl
import hashlib
import os
import re
import shutil
import tempfile
import time
from collections.abc import Iterable, Iterator
from contextlib import contextmanager
from pathlib import Path

import boot_environment
from emulated_board import EmulatedBoard, Images
from scripts.arm64_packages import ARCHITECTURE, Packages, ToolError, cache_directory, run, unpack
from simulator import SimulatorError

_HERE = Path(__file__).resolve().parent
PROJECT = _HERE.parent.parent
_FLAG_TOOL = PROJECT / "packaging/sfuflags/u-boot"
_FLASH_BYTES = 64 << 20
_FLASH_ENVIRONMENT_BYTES = 0x40000
_BLOCK_BYTES = 512

_COMMON_PACKAGES = ("busybox-static", "coreutils", "dash", "gzip", "libubootenv-tool",
                    "ncurses-base", "tar", "xz-utils")
"""The packages of every board. The supervisor's package names what else it needs.

Tar, gzip, dash and coreutils are essential packages, which no package names as a dependency.
"""

_SYSTEMD_PACKAGES = (*_COMMON_PACKAGES, "base-files", "base-passwd", "bsdutils", "debianutils",
                     "diffutils", "dpkg", "findutils", "grep", "hostname", "init-system-helpers",
                     "libc-bin", "login", "mawk", "mount", "passwd", "perl-base", "sed", "systemd",
                     "systemd-sysv", "util-linux")

_SYSTEMD_LEFT_OUT = ("debconf", "kmod", "linux-base", "perl", "shared-mime-info", "usrmerge")
"""Packages that others need only while they are installed themselves."""

_BUSYBOX_BOOT = ("cat", "insmod", "mkdir", "mount", "sh", "sleep", "switch_root")
_BUSYBOX_ROOT = ("grep", "hostname", "init", "logger", "mount", "reboot", "syslogd")
"""Busybox's tools on the board. `top`, `free`, `killall`, `tar` and `sh` are the real ones."""

_MODULES = ("virtio_pci", "virtio_blk", "crc32c_generic", "ext4", "virtio_console", "9pnet_virtio",
            "9p", "i6300esb", "ramoops")

_NOT_UNPACKED = ("./usr/share/doc", "./usr/share/man", "./usr/share/locale", "./usr/share/info",
                 "./usr/share/lintian", "./usr/share/bug", "./usr/lib/*/gconv")

_MASKED_UNITS = ("dev-hugepages.mount", "dev-mqueue.mount", "getty-static.service",
                 "modprobe@.service", "serial-getty@ttyAMA0.service", "sys-kernel-debug.mount",
                 "systemd-update-utmp.service", "systemd-update-utmp-runlevel.service")
"""Units that no test needs. Without udev the serial console would wait 90 s for its device."""

_KERNEL_ARGUMENTS = "console=ttyAMA0 cma=16M loglevel=5 panic=1 TERM=dumb"

_ROOT_SIZE = "192M"
_SYSTEMD_ROOT_SIZE = "384M"

_KEPT_SECONDS = 24 * 60 * 60


def build(directory: Path, package: Path | None = None) -> Images:
    """Make the images with the application and the supervisor, of `package` or of one built now.

    If several processes ask at once, one of them builds and the others wait. Raises ToolError.
    """
    package = package or _build_package()
    guard = package.with_name(package.name.replace("pynx-watchdog_", "pynx-watchdog-guard_"))
    if not guard.is_file():
        raise ToolError(f"there is no package {guard}")
    application = _build_application(directory)
    cache = cache_directory() / "device"
    cache.mkdir(parents=True, exist_ok=True)
    with _locked(cache / "lock"):
        packages = Packages(cache / "apt")
        kernel = packages.fetch(["linux-image-arm64"])
        boot_loader = packages.fetch_alone(["u-boot-qemu"])
        root = packages.fetch(_COMMON_PACKAGES, [package, guard])
        # What the package depends on is there before dpkg installs it.
        systemd_root = Packages(cache / "apt-systemd", _SYSTEMD_LEFT_OUT).fetch(
            _SYSTEMD_PACKAGES, [package, guard])
        systemd_root.remove(package.resolve())
        ingredients = [*kernel, *boot_loader, *root, *systemd_root, application, _FLAG_TOOL]
        target = cache / f"images-{_fingerprint(ingredients)}"
        if not target.exists():
            _remove_outdated(cache)
            with tempfile.TemporaryDirectory(dir=cache) as workshop:
                _build(Path(workshop), kernel, boot_loader, root, systemd_root, application)
                _install(package, Path(workshop))
                Path(workshop, "images").rename(target)
        os.utime(target)
    return _images(target)


def _images(directory: Path) -> Images:
    return Images(*(directory / name for name in (
        "u-boot.flash", "u-boot-settings.flash", "boot.ext2", "root.ext4", "systemd-root.ext4")))


def _build_package() -> Path:
    run([PROJECT / "scripts/build-packages", "arm64"])
    return next((PROJECT / "build/packages").glob("pynx-watchdog_[0-9]*_arm64.deb"))


def _build_application(directory: Path) -> Path:
    application = directory / "sample-application"
    run(["aarch64-linux-gnu-g++", "-std=c++17", "-O2", "-pthread", "-o", application,
         *sorted((PROJECT / "simulator/application").glob("*.cpp"))])
    return application


def _remove_outdated(cache: Path) -> None:
    """Remove images that no run has used lately; boards may still run on the others."""
    for images in cache.glob("images-*"):
        if time.time() - images.stat().st_mtime > _KEPT_SECONDS:
            shutil.rmtree(images)


def _build(workshop: Path, kernel: Iterable[Path], boot_loader: Iterable[Path],
           root: Iterable[Path], systemd_root: Iterable[Path], application: Path) -> None:
    images = workshop / "images"
    images.mkdir()
    _make_flash(unpack(boot_loader, workshop / "boot-loader"), images)
    root_tree = unpack(root, workshop / "root", (*_NOT_UNPACKED, "./lib/systemd"))
    _complete_root(root_tree, "busybox", application)
    _add_busybox(root_tree)
    systemd_tree = unpack(systemd_root, workshop / "systemd-root", _NOT_UNPACKED)
    _complete_root(systemd_tree, "systemd", application)
    _configure(systemd_tree, systemd_root)
    boot_tree = workshop / "boot"
    boot_tree.mkdir()
    kernel_tree = unpack(kernel, workshop / "kernel")
    shutil.copy(next(kernel_tree.glob("boot/vmlinuz-*")), boot_tree / "Image")
    ram_tree = _ram_tree(workshop / "ram", kernel_tree, root_tree)
    run(["sh", "-c", 'find . | cpio --quiet --create --format=newc --owner=0:0 >"$0"',
         boot_tree / "initrd"], directory=ram_tree)
    _make_file_system("ext2", boot_tree, images / "boot.ext2", "48M")
    _make_file_system("ext4", root_tree, images / "root.ext4", _ROOT_SIZE)
    _make_file_system("ext4", systemd_tree, images / "systemd-root.ext4", _SYSTEMD_ROOT_SIZE)


def _make_flash(tree: Path, images: Path) -> None:
    """Make the two flash chips: U-Boot, and the environment with the script that it runs."""
    program = (tree / "usr/lib/u-boot/qemu_arm64/u-boot.bin").read_bytes()
    settings = boot_environment.pack({
        "bootdelay": "0",
        "bootcmd": _script((_HERE / "boot/boot-loader.cmd").read_text(encoding="utf-8")),
        "arguments": _KERNEL_ARGUMENTS,
        "environment_size": hex(boot_environment.SIZE),
        "environment_blocks": f"{boot_environment.SIZE // _BLOCK_BYTES:x}",
        "bad_boots": str(boot_environment.BAD_BOOTS),
        "scratch": "0x40200000",
        "kernel_addr_r": "0x40400000",
        "ramdisk_addr_r": "0x44000000",
        **dict.fromkeys(("stdin", "stdout", "stderr"), "serial"),
    }, _FLASH_ENVIRONMENT_BYTES)
    for name, content in (("u-boot.flash", program), ("u-boot-settings.flash", settings)):
        (images / name).write_bytes(content)
        os.truncate(images / name, _FLASH_BYTES)


def _script(text: str) -> str:
    """The script without its comments, which U-Boot does not need."""
    return "\n".join(line for line in text.splitlines() if not line.startswith("#"))


def _ram_tree(tree: Path, kernel_tree: Path, root_tree: Path) -> Path:
    """Make the initial RAM file system: busybox, the drivers, and the init that mounts the root."""
    for name in ("bin", "modules", "proc", "sys", "dev", "root"):
        (tree / name).mkdir(parents=True)
    shutil.copy(root_tree / "bin/busybox", tree / "bin/busybox")
    for name in _BUSYBOX_BOOT:
        (tree / "bin" / name).symlink_to("busybox")
    for name in ("init", "fallback"):
        shutil.copy(_HERE / "boot" / name, tree / name)
    modules = _with_dependencies(kernel_tree)
    for module in modules:
        shutil.copy(module, tree / "modules")
    (tree / "modules/order").write_text("".join(f"{module.name}\n" for module in modules),
                                        encoding="utf-8")
    return tree


def _with_dependencies(kernel_tree: Path) -> list[Path]:
    """The modules and what they depend on, in the order in which they can be loaded."""
    files = {path.stem.replace("-", "_"): path for path in kernel_tree.rglob("*.ko")}
    ordered: list[Path] = []

    def add(name: str) -> None:
        if name not in files:
            raise ToolError(f"the kernel package has no module {name}")
        found = re.search(rb"\0depends=([^\0]*)\0", files[name].read_bytes())
        for needed in found[1].decode().split(",") if found and found[1] else ():
            add(needed.replace("-", "_"))
        if files[name] not in ordered:
            ordered.append(files[name])

    for name in _MODULES:
        add(name)
    return ordered


def _complete_root(tree: Path, kind: str, application: Path) -> None:
    for name in ("proc", "sys", "dev", "host", "tmp", "run", "var/log/application", "home/root",
                 "home/pynx", "root", "var/lib/pynx-watchdog"):
        (tree / name).mkdir(parents=True, exist_ok=True)
    for link, target in (("var/run", "../run"), ("var/lock", "../run/lock")):
        shutil.rmtree(tree / link, ignore_errors=True)
        if not (tree / link).is_symlink():
            (tree / link).symlink_to(target)
    for name in ("common", kind):
        shutil.copytree(_HERE / "root" / name, tree, symlinks=True, dirs_exist_ok=True)
    shutil.copy(_FLAG_TOOL, tree / "usr/sbin/sfuflags")
    # An application may run as another user there, who could not read files made under a strict
    # umask.
    for path in tree.rglob("*"):
        if not path.is_symlink():
            path.chmod(path.stat().st_mode | 0o444 | (0o111 if path.is_dir() else 0))
    shutil.copy(application, tree / "usr/bin/sample-application")
    (tree / "usr/bin/sample-application").chmod(0o755)


def _add_busybox(tree: Path) -> None:
    """Add the tools that no package of this root has."""
    for name in _BUSYBOX_ROOT:
        if not any((tree / place / name).exists() for place in ("usr/bin", "usr/sbin")):
            (tree / "usr/sbin" / name).symlink_to("/bin/busybox")


def _configure(tree: Path, packages: Iterable[Path]) -> None:
    """Make what the packages' own scripts would have made, and tell dpkg what is installed."""
    for name in ("passwd", "group"):
        master = (tree / f"usr/share/base-passwd/{name}.master").read_text(encoding="utf-8")
        own = (_HERE / f"root/busybox/etc/{name}").read_text(encoding="utf-8")
        (tree / "etc" / name).write_text(
            master + "".join(line for line in own.splitlines(keepends=True)
                             if line.startswith("pynx:")), encoding="utf-8")
    (tree / "etc/shadow").write_text("root:*:19000:0:99999:7:::\n", encoding="utf-8")
    (tree / "etc/shadow").chmod(0o600)
    (tree / "etc/hostname").write_text("board\n", encoding="utf-8")
    (tree / "etc/machine-id").touch()  # filled at the first boot
    (tree / "var/log/journal").mkdir()  # makes the journal outlive a reset
    (tree / "usr/bin/awk").symlink_to("mawk")
    for unit in _MASKED_UNITS:
        (tree / "etc/systemd/system" / unit).symlink_to("/dev/null")
    (tree / "etc/systemd/system/sysinit.target.wants/systemd-pstore.service").symlink_to(
        "/lib/systemd/system/systemd-pstore.service")
    info = tree / "var/lib/dpkg/info"
    (info / "format").write_text("1\n", encoding="utf-8")
    with (tree / "var/lib/dpkg/status").open("w", encoding="utf-8") as status:
        for package in packages:
            status.write(run(["dpkg-deb", "--field", package])
                         + "Status: install ok installed\n\n")
            name, sharing = run(["dpkg-deb", "--showformat=${Package}\n${Multi-Arch}", "--show",
                                 package]).splitlines()
            shared = f":{ARCHITECTURE}" if sharing == "same" else ""
            listed = run(["sh", "-c", 'dpkg-deb --fsys-tarfile "$0" | tar --list', package])
            (info / f"{name}{shared}.list").write_text(
                "".join(f"/{line[2:].rstrip('/')}\n" if line != "./" else "/.\n"
                        for line in listed.splitlines()), encoding="utf-8")


def _install(package: Path, workshop: Path) -> None:
    """Install the package on a board with systemd and keep the board's root as the image."""
    images = _images(workshop / "images")
    board = EmulatedBoard(workshop / "board", images, [], systemd=True)
    try:
        shutil.copy(package, board.host / "package.deb")
        board.start()
        board.wait_until_up()
        board.check("dpkg --install /host/package.deb && systemctl enable pynx-watchdog")
        board.run_last("systemctl poweroff")
        board.wait_until_off()
        board.root_disk.rename(images.systemd_root)
    except SimulatorError as error:
        raise ToolError(f"the package cannot be installed on a board: {error}\n"
                        + board.console.text()[-2000:]) from error
    finally:
        board.stop()


def _make_file_system(kind: str, tree: Path, image: Path, size: str) -> None:
    # Under fakeroot all files belong to root, as on the board.
    run(["fakeroot", "mke2fs", "-q", "-t", kind, "-E", "lazy_itable_init=0,lazy_journal_init=0",
         "-d", tree, image, size])


def _fingerprint(ingredients: Iterable[Path]) -> str:
    """A hash over all that goes into the images."""
    digest = hashlib.sha256()
    own = [path for name in ("boot", "root") for path in sorted((_HERE / name).rglob("*"))]
    own += [_HERE / name for name in ("images.py", "boot_environment.py")]
    for path in own:
        if path.is_file():
            digest.update(f"{path.relative_to(_HERE)} {path.stat().st_mode:o}".encode())
            digest.update(path.read_bytes())
    for path in ingredients:
        digest.update(path.name.encode())
        digest.update(path.read_bytes())
    return digest.hexdigest()[:16]


@contextmanager
def _locked(path: Path) -> Iterator[None]:
    with path.open("w") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        yield
