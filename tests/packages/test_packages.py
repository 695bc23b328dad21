# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The Debian packages: their content, and that a removal leaves nothing behind."""

from __future__ import annotations

import os
import re
import stat
import subprocess
from collections.abc import Callable
from pathlib import Path

import pytest

from marks import AS_ROOT
from tools import ROOT, SdkBuild, files_below, run

LIBRARY = "usr/lib/pynx-watchdog"
SETTINGS = sorted(path.name for path in (ROOT / "settings-default").glob("*.json"))
UNITS = ["pynx-watchdog.service", "pynx-watchdog-boot.service", "pynx-watchdog-shutdown.service"]
EXAMPLES = "usr/share/doc/pynx-watchdog/examples"
SFUFLAGS = {f"{EXAMPLES}/sfuflags/{name}" for name in ("rauc", "u-boot")}
PROGRAMS = {f"{LIBRARY}/{name}" for name in (
    "watchdog", "pynx-watchdog-check", "boot-cause", "tools/reboot", "tools/tar", "copy-requested",
    "report-manifest", "report-setting")}
FILES = {
    "etc/default/pynx-watchdog",
    *(f"lib/systemd/system/{name}" for name in UNITS),
    "usr/bin/pynx-watchdog",
    "usr/bin/pynx-watchdog-check",
    "usr/share/bash-completion/completions/pynx-watchdog",
    "usr/share/bash-completion/completions/pynx-watchdog-check",
    *PROGRAMS,
    f"{LIBRARY}/settings",
    f"{LIBRARY}/version",
    *(f"{LIBRARY}/settings-default/{name}" for name in SETTINGS),
    *(f"{LIBRARY}/schemas/{path.name}" for path in (ROOT / "schemas").glob("*.json")),
    "usr/lib/tmpfiles.d/pynx-watchdog.conf",
    "usr/share/man/man1/pynx-watchdog-check.1.gz",
    "usr/share/man/man5/pynx-watchdog-settings.5.gz",
    "usr/share/man/man8/pynx-watchdog.8.gz",
    *SFUFLAGS,
    f"{EXAMPLES}/sfuflags/README.md",
    *(f"{EXAMPLES}/systemd/{path.name}"
      for path in (ROOT / "packaging/systemd/examples").glob("*.conf")),
}
FILES |= {f"usr/share/doc/pynx-watchdog/{name}" for name in (
    "CHANGELOG.md", "SECURITY.md", "application.md", "evidence.md", "faults.md", "integration.md",
    *(f"{directory}/{path.name}" for directory in ("examples", "pictures")
      for path in (ROOT / "docs" / directory).iterdir()))}
DOCUMENTS = {f"usr/share/doc/pynx-watchdog/{name}" for name in ("changelog.gz", "copyright")}
OVERRIDES = {"usr/share/lintian/overrides/pynx-watchdog"}

# The files that Debian's package "watchdog" and its dependency install, without their documents.
DEBIANS_WATCHDOG = {
    "etc/init.d/watchdog", "etc/init.d/wd_keepalive", "etc/watchdog.conf", "etc/default/watchdog",
    "lib/systemd/system/watchdog.service", "lib/systemd/system/wd_keepalive.service",
    "usr/sbin/watchdog", "usr/sbin/wd_identify", "usr/sbin/wd_keepalive",
    "usr/share/man/man5/watchdog.conf.5.gz", "usr/share/man/man8/watchdog.8.gz",
    "usr/share/man/man8/wd_identify.8.gz", "usr/share/man/man8/wd_keepalive.8.gz",
    "usr/share/lintian/overrides/watchdog",
}
MACHINES = {"amd64": "Advanced Micro Devices X86-64", "arm64": "AArch64"}
both = pytest.mark.parametrize("architecture", MACHINES)


def test_lintian_has_nothing_to_say() -> None:
    changes = sorted((ROOT / "build" / "packages").glob("*.changes"))
    assert len(changes) == 2
    said = run("lintian", "--allow-root", "--pedantic", "--display-info",
               "--fail-on", "error,warning,info,pedantic", *changes)
    assert not said


@both
def test_files(unpacked: Callable[[str], Path], architecture: str) -> None:
    assert set(files_below(unpacked(architecture))) == FILES | DOCUMENTS | OVERRIDES


def test_the_links_of_the_guides_lead_somewhere(unpacked: Callable[[str], Path]) -> None:
    guides = unpacked("amd64") / "usr/share/doc/pynx-watchdog"
    links = [(guide, link) for guide in guides.glob("*.md")
             for link in re.findall(r"\]\(([^)#:]+)(?:#[^)]*)?\)", guide.read_text("utf-8"))]
    assert len(links) > 5
    for guide, link in links:
        assert (guides / link).is_file(), f"{guide.name} links to {link}"


@both
def test_what_can_be_executed(unpacked: Callable[[str], Path], architecture: str) -> None:
    root = unpacked(architecture)
    programs = {name for name, target in files_below(root).items()
                if not target and os.access(root / name, os.X_OK, follow_symlinks=False)
                and stat.S_IMODE((root / name).stat().st_mode) & 0o111}
    assert programs == PROGRAMS | SFUFLAGS
    assert (root / "usr/bin/pynx-watchdog").resolve() == root / LIBRARY / "watchdog"


@both
def test_machine(unpacked: Callable[[str], Path], architecture: str) -> None:
    header = run("readelf", "--file-header", unpacked(architecture) / LIBRARY / "watchdog")
    assert MACHINES[architecture] in header


@both
def test_an_internal_error_ends_it(unpacked: Callable[[str], Path], architecture: str) -> None:
    program = unpacked(architecture) / LIBRARY / "watchdog"
    assert " qt_assert(" in run("nm", "--dynamic", "--demangle", program)


def test_nothing_collides_with_the_package_watchdog(unpacked: Callable[[str], Path]) -> None:
    ours = set(files_below(unpacked("amd64")))
    assert not ours & DEBIANS_WATCHDOG
    # A program must not hide another one in PATH, and no page must hide another page.
    names = {Path(name).name for name in DEBIANS_WATCHDOG}
    assert not {Path(name).name for name in ours if not name.startswith(LIBRARY)} & names


def test_dependencies_are_the_same_for_both(packages: dict[str, Path]) -> None:
    depends = {name: run("dpkg-deb", "--field", path, "Depends") for name, path in packages.items()}
    assert depends["arm64"] == depends["amd64"]
    names = set(re.findall(r"(?:^|, )([^ ,\n]+)", depends["arm64"]))
    assert names == {"libc6", "libgcc-s1", "libqt5core5a", "libstdc++6", "procps", "psmisc"}


def test_the_packages_hold_what_is_installed(packages: dict[str, Path], guards: dict[str, Path],
                                             evidence: Path, tmp_path: Path,
                                             sdk_build: SdkBuild) -> None:
    installed = files_below(sdk_build.root)
    for package in (packages["amd64"], guards["amd64"], evidence):
        run("dpkg-deb", "--extract", package, tmp_path / "all")
    packaged = files_below(tmp_path / "all")
    pages = {name: name.removesuffix(".gz") if "/man/" in name else name for name in packaged}
    debians = re.compile("usr/share/(doc/[^/]*/(changelog.gz|copyright)|lintian/|python3/)")
    assert {pages[name]: target for name, target in packaged.items()
            if not debians.match(name)} == installed


@both
def test_the_guard(guards: dict[str, Path], tmp_path: Path, architecture: str) -> None:
    run("dpkg-deb", "--extract", guards[architecture], tmp_path)
    assert MACHINES[architecture] in run("readelf", "--file-header",
                                         tmp_path / "usr/bin/pynx-watchdog-guard")
    depends = run("dpkg-deb", "--field", guards[architecture], "Depends")
    assert set(re.findall(r"(?:^|, )([^ ,\n]+)", depends)) == {
        "libc6", "libdw1", "libgcc-s1", "libstdc++6"}


def test_loads_are_computed_without_fused_arithmetic(unpacked: Callable[[str], Path]) -> None:
    # A fused sum of two loads can stay below a threshold of 100 that they reach together.
    code = run("aarch64-linux-gnu-objdump", "--disassemble",
               unpacked("arm64") / LIBRARY / "watchdog")
    assert "\tfdiv\t" in code
    assert not re.findall(r"\tfn?m(?:add|sub)\t", code)


@AS_ROOT
def test_the_reader_of_evidence_works_where_it_is_installed(evidence: Path, empty_root: Path,
                                                            tmp_path: Path) -> None:
    def content() -> set[str]:
        return {name for name in files_below(empty_root) if name.startswith(("usr/", "etc/"))}

    _dpkg(empty_root, "--install", evidence)
    log = tmp_path / "log"
    log.write_text("2026-11-22 10:00:00.000 Watchdog: Starting app: /usr/bin/product \n", "ascii")
    program = empty_root / "usr/bin/pynx-watchdog-evidence"
    plainly = {"PYTHONDONTWRITEBYTECODE": "1"}  # as for users who may not write there
    assert '"kind": "start"' in run(program, "--jsonl", log, environment=plainly)
    run(program, "--html", tmp_path / "page.html", log, environment=plainly)
    assert (tmp_path / "page.html").stat().st_size > 100_000
    _dpkg(empty_root, "--purge", "pynx-watchdog-evidence")
    assert content() == set()


def _dpkg(root: Path, *arguments: str | Path) -> None:
    # dpkg installs into a root directory. The packages' scripts run outside of it with DPKG_ROOT.
    run("dpkg", f"--root={root}", "--force-not-root", "--force-depends", "--force-architecture",
        "--force-script-chrootless", f"--log={root}/log", *arguments)


@pytest.fixture
def empty_root(tmp_path: Path) -> Path:
    root = tmp_path / "root"
    (root / "var/lib/dpkg").mkdir(parents=True)
    (root / "var/lib/dpkg/status").touch()
    return root


@AS_ROOT
def test_it_installs_works_and_goes(packages: dict[str, Path], empty_root: Path) -> None:
    def content() -> set[str]:
        return {str(path.relative_to(empty_root)) for path in empty_root.rglob("*")
                if not path.is_relative_to(empty_root / "var/lib/dpkg")} - {"log"}

    machine = run("dpkg", "--print-architecture").strip()
    before = content()
    _dpkg(empty_root, "--install", packages[machine])
    assert content() >= FILES

    # The tests for an installed package run with this one. They change nothing on the machine.
    path = f"{empty_root}/usr/bin:{os.environ['PATH']}"
    for test in ("rotate-only", "settings"):
        directory = empty_root.parent / test
        directory.mkdir()
        run(ROOT / "debian/tests" / test,
            environment={"PATH": path, "AUTOPKGTEST_TMP": str(directory)})

    factory = sorted((empty_root / LIBRARY / "settings-default").iterdir())
    assert not run("pynx-watchdog-check", "--strict", *factory, environment={"PATH": path})

    # The installation neither enables nor starts the service.
    assert not list((empty_root / "etc").glob("systemd/system/*.wants/*"))

    _dpkg(empty_root, "--purge", "pynx-watchdog")
    # systemd-tmpfiles makes these files for the running system. They are no part of the package.
    assert content() - before <= {"home", "home/root", "tmp", "tmp/log", "tmp/upload",
                                  "var/lib/systemd",
                                  "var/lib/systemd/deb-systemd-helper-enabled",
                                  "var/lib/systemd/deb-systemd-helper-masked"}


@AS_ROOT
def test_the_settings_of_the_site_stay_until_the_purge(packages: dict[str, Path],
                                                       empty_root: Path) -> None:
    machine = run("dpkg", "--print-architecture").strip()
    site = empty_root / "etc/pynx-watchdog"
    # An earlier version had them in a directory beside the program.
    earlier = empty_root / LIBRARY / "settings"
    earlier.mkdir(parents=True)
    site.mkdir(parents=True)
    for path, text in ((earlier / "a.json", "in force"), (earlier / ".hidden", "too"),
                       (site / "a.json", "displaced"), (site / "b.json", "other")):
        path.write_text(text, "ascii")

    def documents() -> dict[str, str]:
        return {path.name: path.read_text("ascii") for path in site.iterdir()}

    kept = {"a.json": "in force", "a.json.before-upgrade": "displaced", "b.json": "other",
            ".hidden": "too"}
    _dpkg(empty_root, "--install", packages[machine])
    assert documents() == kept
    assert os.readlink(earlier) == "/etc/pynx-watchdog"
    _dpkg(empty_root, "--install", packages[machine])
    assert documents() == kept

    state = empty_root / "var/lib/pynx-watchdog"
    state.mkdir()
    _dpkg(empty_root, "--remove", "pynx-watchdog")
    assert documents() == kept
    assert state.exists()
    _dpkg(empty_root, "--purge", "pynx-watchdog")
    assert not site.exists()
    assert not state.exists()


def test_directories_of_the_supervisor(unpacked: Callable[[str], Path]) -> None:
    root = unpacked("amd64")
    (root / "etc/passwd").write_text("root:x:0:0:root:/root:/bin/sh\n", encoding="ascii")
    (root / "etc/group").write_text("root:x:0:\n", encoding="ascii")
    run("systemd-tmpfiles", f"--root={root}", "--create", "pynx-watchdog.conf")
    for name, mode in (("tmp/log", 0o755), ("home/root", 0o700), ("tmp/upload", 0o777)):
        directory = (root / name).stat()
        assert stat.S_IMODE(directory.st_mode) == mode
        assert directory.st_uid == 0


@pytest.fixture
def units(unpacked: Callable[[str], Path], tmp_path: Path) -> Path:
    """A directory with the units, which name the programs' paths on this machine."""
    root = unpacked("amd64")
    for name in UNITS:
        text = (root / "lib/systemd/system" / name).read_text("utf-8")
        text = text.replace(f"/{LIBRARY}/watchdog", f"{root}/{LIBRARY}/watchdog")
        text = text.replace(f"/{LIBRARY}/boot-cause", f"{root}/{LIBRARY}/boot-cause")
        (tmp_path / name).write_text(text, "utf-8")
    return tmp_path


def test_units_are_sound(units: Path) -> None:
    assert not run("sh", "-c", f"systemd-analyze verify --man=no {units}/*.service 2>&1")


@pytest.mark.parametrize("example", ["check.conf", "hardening.conf", "start-limit.conf"])
def test_example_drop_ins_are_sound(units: Path, example: str) -> None:
    # A directive in a wrong section is only a warning of systemd.
    drop_in = units / "pynx-watchdog.service.d"
    drop_in.mkdir()
    (drop_in / example).write_bytes((ROOT / "packaging/systemd/examples" / example).read_bytes())
    unit = units / "pynx-watchdog.service"
    assert not run("sh", "-c", f"systemd-analyze verify --man=no {unit} 2>&1")


def test_the_exposure_of_the_unit_is_what_the_drop_in_says(units: Path) -> None:
    example = ROOT / "packaging/systemd/examples/hardening.conf"
    said = re.search(r"gives the unit (\S+) without it and (\S+) with it",
                     example.read_text("utf-8"))

    def exposure() -> str:
        shown = run("systemd-analyze", "security", "--no-pager", "--offline=yes",
                    units / "pynx-watchdog.service")
        return shown.split("Overall exposure level for pynx-watchdog.service: ")[1].split()[0]

    without = exposure()
    drop_in = units / "pynx-watchdog.service.d"
    drop_in.mkdir()
    (drop_in / example.name).write_bytes(example.read_bytes())
    assert said and said.groups() == (without, exposure())


def test_the_units_places(unpacked: Callable[[str], Path]) -> None:
    unit = (unpacked("amd64") / "lib/systemd/system/pynx-watchdog.service").read_text("utf-8")
    assert f"\nExecStart=/{LIBRARY}/watchdog " in unit
    assert "\nEnvironmentFile=-/etc/default/pynx-watchdog\n" in unit
    assert f"\nEnvironment=PATH=/{LIBRARY}/tools:" in unit


def test_a_single_run_is_not_repeated_while_the_device_counts(unpacked: Callable[[str], Path],
                                                              tmp_path: Path) -> None:
    unit = (unpacked("amd64") / "lib/systemd/system/pynx-watchdog.service").read_text("utf-8")
    condition = re.findall("^ExecCondition=/bin/sh -c '(.*)'$", unit, re.MULTILINE)[1]
    state = tmp_path / "state"
    command = condition.replace("/sys/class/watchdog/watchdog0/state", str(state))

    def starts(options: str) -> bool:
        return subprocess.run(["sh", "-c", command], check=False,
                              env={**os.environ, "OPTIONS": options}).returncode == 0

    single = "--logTime --singleRun --logfileName x"
    assert starts(single)
    for text, allowed in (("inactive", True), ("active", False)):
        state.write_text(f"{text}\n", "ascii")
        assert starts(single) == allowed
        assert starts("--logfileName --singleRuns")


def test_version_is_stated_once(version: str, packages: dict[str, Path]) -> None:
    assert run("dpkg-parsechangelog", "--show-field=Version", "--file",
               ROOT / "debian/changelog") == f"{version}\n"
    heads = re.findall(r"^## (\S+)", (ROOT / "CHANGELOG.md").read_text("utf-8"), re.MULTILINE)
    assert heads[0] == version
    for path in packages.values():
        assert run("dpkg-deb", "--field", path, "Version") == f"{version}\n"


@pytest.mark.parametrize("page", ["man8/pynx-watchdog.8", "man5/pynx-watchdog-settings.5",
                                  "man1/pynx-watchdog-check.1",
                                  "man1/pynx-watchdog-evidence.1", "man1/pynx-watchdog-guard.1"])
def test_man_pages_are_well_formed(sdk_build: SdkBuild, version: str, page: str) -> None:
    path = sdk_build.root / "usr/share/man" / page
    warnings = run("sh", "-c", f"man --warnings --local-file {path} 2>&1 >/dev/null")
    assert not warnings
    shown = run("man", "--local-file", path, environment={"MANWIDTH": "80"})
    assert f"pynx-watchdog {version}" in shown
    assert "@" not in shown


def test_man_page_names_every_option_and_no_other(sdk_build: SdkBuild) -> None:
    path = sdk_build.root / "usr/share/man/man8/pynx-watchdog.8"
    options = run("man", "--local-file", path).split("OPTIONS\n", 1)[1].split("\nTHE LOG", 1)[0]
    named = set(re.findall(r"^ +(--\w+)", options, re.MULTILINE))
    source = (ROOT / "app/commandline.cpp").read_text("utf-8")
    assert named == set(re.findall(r'word.text == QLatin1String\("(--\w+)"\)', source))


def test_man_page_of_the_reader_names_every_option_and_no_other(sdk_build: SdkBuild) -> None:
    path = sdk_build.root / "usr/share/man/man1/pynx-watchdog-evidence.1"
    options = run("man", "--local-file", path).split("OPTIONS\n", 1)[1].split("\nEVENTS", 1)[0]
    told = run(sdk_build.root / "usr/bin/pynx-watchdog-evidence", "--help")
    assert set(re.findall(r"^ +(--\w+)", options, re.MULTILINE)) \
        == set(re.findall(r"(--\w+)", told.split("options:", 1)[1])) == {
            "--database", "--help", "--html", "--jsonl", "--scheduler"}


def test_man_page_of_the_guard_names_every_option_and_no_other(sdk_build: SdkBuild) -> None:
    path = sdk_build.root / "usr/share/man/man1/pynx-watchdog-guard.1"
    options = run("man", "--local-file", path).split("OPTIONS\n", 1)[1].split("\nMESSAGES", 1)[0]
    told = run(sdk_build.root / "usr/bin/pynx-watchdog-guard", "--help")
    assert set(re.findall(r"^ +(?:-\w, )?(--[\w-]+)", options, re.MULTILINE)) \
        == set(re.findall(r"^ .*(--[\w-]+)", told, re.MULTILINE)) == {
            "--timeout", "--startup", "--grace", "--stacks", "--restart-on", "--help", "--version"}


def test_man_page_describes_every_document(sdk_build: SdkBuild) -> None:
    path = sdk_build.root / "usr/share/man/man5/pynx-watchdog-settings.5"
    described = set(re.findall(r"^   (\w+\.json)$", run("man", "--local-file", path), re.MULTILINE))
    assert described == set(SETTINGS)
