# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""What the box hides from the host and what it shows of it."""

import os
from pathlib import Path

import pytest

from simulator import Bind, Device, SimulatorError

from simulated_devices import DeviceFactory
from standin import WAIT, Script


def shell(running: Device, command: str) -> tuple[int, str]:
    completed = running.run(["sh", "-c", command])
    return completed.status, completed.stdout.decode()


def test_the_hosts_files_are_shown_and_cannot_be_changed(device: DeviceFactory,
                                                         script: Script) -> None:
    running = device(script(WAIT))
    for place in ("/etc", "/usr/bin", "/var/tmp", "/root", "/", "/home"):
        assert shell(running, f"echo x > {place}/simulator-was-here")[0] != 0
        if os.access(place, os.X_OK):  # an ordinary user cannot read /root
            assert not Path(place, "simulator-was-here").exists()
    assert running.read(__file__) == Path(__file__).read_bytes()
    assert shell(running, f"echo >> {__file__}")[0] != 0


def test_nothing_in_the_box_can_mount_or_make_devices(device: DeviceFactory,
                                                      script: Script) -> None:
    running = device(script(WAIT))
    assert shell(running, "mount -o remount,rw /usr")[0] != 0
    assert shell(running, "mount -t tmpfs none /mnt")[0] != 0
    assert shell(running, "umount /usr")[0] != 0
    assert shell(running, "mknod /tmp/disk b 8 0")[0] != 0
    assert shell(running, "echo h > /proc/sysrq-trigger; cat /proc/sysrq-trigger")[1] == ""
    assert shell(running, "echo x > /proc/sys/kernel/domainname")[0] != 0
    assert shell(running, "ls /proc/1/root/")[0] != 0


def test_the_hosts_processes_and_name_are_not_there(device: DeviceFactory, script: Script) -> None:
    running = device(script(WAIT))
    assert shell(running, "uname -n") == (0, "simulated-device\n")
    assert os.uname().nodename != "simulated-device"
    numbers = shell(running, "cd /proc && echo [0-9]*")[1].split()
    assert "1" in numbers and len(numbers) <= 3
    assert shell(running, f"kill -0 {os.getpid()}")[0] != 0


def test_devices_are_the_harmless_ones(device: DeviceFactory, script: Script) -> None:
    running = device(script(WAIT))
    names = shell(running, "ls /dev")[1].split()
    assert set(names) == {"fd", "full", "log", "null", "ptmx", "pts", "random", "shm", "stderr",
                          "stdin", "stdout", "tty", "urandom", "zero"}
    assert shell(running, "echo gone > /dev/null && head -c 3 /dev/zero | wc -c") == (0, "3\n")


def test_the_boards_places_lie_in_the_device_directory(device: DeviceFactory,
                                                       script: Script) -> None:
    running = device(script("echo 1 > /tmp/log/a; echo 2 > /home/root/b; echo done; " + WAIT))
    running.wait_for("supervisor", "done")
    assert shell(running, "ls -A /tmp")[1].split() == ["log"]  # nothing of the host's /tmp
    assert running.host_path("/tmp/log/a").read_bytes() == b"1\n" == running.read("/tmp/log/a")
    assert running.host_path("/home/root/b").read_bytes() == b"2\n" == running.read("/home/root/b")
    with pytest.raises(SimulatorError):
        running.host_path("/etc/passwd")
    with pytest.raises(FileNotFoundError):
        running.read("/tmp/log/none")


def test_an_application_below_a_replaced_directory_runs_with_its_neighbours(
        device: DeviceFactory, script: Script, tmp_path: Path) -> None:
    application = tmp_path / "application" / "start"
    application.parent.mkdir()
    (application.parent / "neighbour").write_text("seen", encoding="utf-8")
    application.write_text('#!/bin/sh\ncat "${0%/*}/neighbour"; echo x > "$0"', encoding="utf-8")
    application.chmod(0o755)
    running = device(script('shift; "$@"'), ["--app", str(application)])
    running.wait_end()
    assert running.stdout == b"seen"
    assert b"Read-only file system" in running.stderr
    running.stop()
    assert application.read_text(encoding="utf-8").startswith("#!/bin/sh")
    assert sorted(path.name for path in running.host_path("/tmp").iterdir()) == ["log"]


def test_binds_are_read_only(device: DeviceFactory, script: Script, tmp_path: Path) -> None:
    (tmp_path / "file").write_text("seen", encoding="utf-8")
    binds = [Bind(str(tmp_path), place) for place in ("/run/one", "/tmp/deep/two")]
    running = device(script(WAIT), binds=binds)
    for bind in binds:
        assert running.read(f"{bind.target}/file") == b"seen"
        assert shell(running, f"echo x > {bind.target}/file")[0] != 0
    running.stop()
    assert not running.host_path("/tmp/deep").exists()


def test_a_bind_for_which_there_is_no_place_is_refused(device: DeviceFactory, script: Script,
                                                       tmp_path: Path) -> None:
    with pytest.raises(SimulatorError, match="/usr/none/such of the box: Read-only file system"):
        device(script(WAIT), binds=[Bind(str(tmp_path), "/usr/none/such")])


def test_read_only_root_from_the_start_and_later(device: DeviceFactory, script: Script) -> None:
    running = device(script(WAIT), read_only_root=True)
    assert shell(running, "echo x > /home/root/ro-test")[0] != 0
    running.set_read_only_root(False)
    assert shell(running, "echo x > /home/root/ro-test")[0] == 0
    running.set_read_only_root(True)
    assert shell(running, "rm /home/root/ro-test")[0] != 0
    assert running.host_path("/home/root/ro-test").exists()


def test_a_small_file_system_fills_up_and_does_not_show_on_the_host(device: DeviceFactory,
                                                                    script: Script) -> None:
    mounts = Path("/proc/self/mountinfo").read_text(encoding="utf-8")
    running = device(script(WAIT), spaces={"/tmp/log": "64k"})
    status, _ = shell(running, "head -c 100000 /dev/zero > /tmp/log/file")
    assert status != 0
    assert len(running.read("/tmp/log/file")) == 64 << 10
    assert shell(running, "head -c 100000 /dev/zero > /tmp/other")[0] == 0
    assert Path("/proc/self/mountinfo").read_text(encoding="utf-8") == mounts
