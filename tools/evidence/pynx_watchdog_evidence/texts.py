# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The texts that the supervisor and the guard write, as patterns.

Each pattern stands beside the pieces of text from which it is made, as they are in the program's
sources, so that a test can compare the two. The names that others know, such as that of the log's
messages or of an archive, are compared in the same place.
"""

from __future__ import annotations

import re
from typing import NamedTuple

LOCAL_TIME = rb"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}"
"""The local time of the supervisor's own lines, without an offset."""


class LogText(NamedTuple):
    """One kind of line in the application's log that is not the application's."""

    kind: str
    needle: bytes  # is in every line of this kind, and seldom in others
    pattern: re.Pattern[bytes]
    source: str  # the file of the program that writes it
    pieces: tuple[str, ...]  # of the text: literals in that file, without line ends


def _line(kind: str, needle: bytes, pattern: bytes, source: str, *pieces: str) -> LogText:
    return LogText(kind, needle, re.compile(pattern), source, pieces)


_LOAD = rb"(?P<load>[-+]?(?:\d+(?:\.\d+)?(?:e[-+]\d+)?|inf|nan))%$"
_TIME = rb"(?P<time>" + LOCAL_TIME + rb")"

# A time line can stand at the end of a line that the application has not finished: after a request,
# and where a run has ended.
TIME_LINE = re.compile(rb"-- Time: (?P<gmt>\w{3} \w{3} +\d+ \d\d:\d\d:\d\d \d{4}) GMT$")

# What the guard tells besides hangs and ends: how the text begins, and the file that writes it.
GUARD_NOTES = (
    ("signals and ends are noticed up to a second late: ", "tools/guard/guard.cpp"),
    ("no hang is looked for: ", "tools/guard/guard.cpp"),
    ("no stacks: ", "tools/guard/guard.cpp"),
    ("no stacks: ", "tools/guard/application.cpp"),
    ("the application does not end, not even by SIGKILL", "tools/guard/guard.cpp"),
    ("the stacks are not whole: ", "tools/guard/guard.cpp"),
    ("cannot start the application: ", "tools/guard/application.cpp"),
    ("cannot execute ", "tools/guard/childprocess.cpp"),
)
GUARD_NAME = ("guard: ", "tools/guard/output.cpp")

# The guard writes whole lines on the application's standard error. So one can begin behind an
# unfinished line of the application, and always is the end of its line.
GUARD_LINE = re.compile(
    rb"(?P<text>guard: (?:"
    rb"(?P<guard>hang|ended): "
    rb"(?:no beat for|(?:status (?P<status>\d{1,3})|signal (?P<signal>\d{1,3}) \([^)]+\)) after) "
    rb"(?P<seconds>\d{1,12}) s"
    rb"(?:, peak (?P<peak_kb>\d{1,15}) kB(?:, last status: (?P<last_status>.*))?)?"
    rb"|(?:" + b"|".join(re.escape(text.encode()) for text, _ in GUARD_NOTES) + rb").*))$")

LOG_TEXTS = (
    LogText("time line", b"-- Time: ", TIME_LINE, "logging/logprocessor.cpp", ("-- Time: %1",)),
    _line("start", b" Watchdog: Starting app: ",
          _TIME + rb" Watchdog: Starting app: (?P<program>.*) $",
          "app/watchdog.cpp", "%1 Watchdog: %2 ", "Starting app: "),
    _line("alarm", b") cpu load is : ",
          _TIME + rb" Process:(?P<process>.*) \((?P<pid>-?\d{1,12})\) cpu load is : "
          rb"(?P<threshold>-?\d{1,12}) for (?P<period>-?\d{1,12}) seconds $",
          "load/systemloadstat.cpp", "Process:", ") cpu load is : ", " for ", " seconds "),
    _line("interval", b" Time between two invocations:",
          _TIME + rb" Time between two invocations:(?P<interval_ms>-?\d{1,19})ms$",
          "load/systemloadstat.cpp", "Time between two invocations:"),
    _line("load", b" cpu load:",
          _TIME + rb" (?P<process>.*) cpu load:" + _LOAD,
          "load/systemloadstat.cpp", " cpu load:"),
    _line("thread total", b" total thread load:",
          _TIME + rb" (?P<process>.*) total thread load:" + _LOAD,
          "load/systemloadstat.cpp", " total thread load:"),
    _line("thread", b"  thread name:",
          _TIME + rb"  thread name:(?P<thread>.*) load:" + _LOAD,
          "load/systemloadstat.cpp", " thread name:", " load:"),
    _line("not_found", b" doesn't appear for ",
          rb"Process (?P<process>.*) with args \[(?P<arguments>.*)\] doesn't appear for "
          rb"(?P<seconds>\d{1,12}) seconds$",
          "app/watchdog.cpp", "Process %1 with args [%2] doesn't appear for %3 seconds"),
    _line("memory", b" == MEMORY USAGE == ",
          _TIME + rb" == MEMORY USAGE == Free: (?P<free_kib>\d{1,20}) kB, "
          rb"Buffers\+Cache: (?P<cache_kib>\d{1,20}) kB$",
          "health/memoryusage.cpp", "%1 == MEMORY USAGE == Free: %2, Buffers+Cache: %3"),
    _line("message", b"Cannot initialize supplementary groups",
          rb"(?P<text>Cannot initialize supplementary groups)$",
          "app/pynxprocess.cpp", "Cannot initialize supplementary groups"),
    _line("message", b"Cannot change user/group", rb"(?P<text>Cannot change user/group)$",
          "app/pynxprocess.cpp", "Cannot change user/group"),
    LogText("guard", GUARD_NAME[0].encode(), GUARD_LINE, "tools/guard/guard.cpp",
            ("hang: ", "no beat for ", " s", "ended: ", "status ", "signal ", " after ",
             " s, peak ", " kB", ", last status: ")),
)

# What can follow a request in its line, where the application has not ended that.
AFTER_REQUEST = [line.pattern for line in LOG_TEXTS
                 if line.kind in ("time line", "alarm", "memory", "guard")]

# What the application prints to ask for a report. A marker may stand anywhere in a line.
FILE_MARKER = b"==Report file:"
TEXT_MARKER = b"==Report=="
MARKERS_SOURCE = "logging/reportmarkers.cpp"

END = re.compile(
    r"Restarting process: exit code:(?P<code>-?\d{1,12}), exist status:(?P<crash>[01]), "
    r"uptime:(?:(?P<days>-?\d{1,12}) days )?(?:(?P<hours>-?\d{1,12}) hours )?"
    r"(?:(?P<minutes>-?\d{1,12}) min )?(?P<seconds>-?\d{1,12}) sec")
END_SOURCE = ("app/watchdog.cpp",
              "Restarting process: exit code:%d, exist status:%d, uptime:%s")
START_FAILED = re.compile(r"Error occured during process startup, code: (?P<code>-?\d{1,12})")
START_FAILED_SOURCE = ("common/processerror.cpp",
                       "Error occured during process startup, code: %d")
THIRD_END = "Critical FW error, rebooting."
READ_ONLY_ROOT = "Detected filesystem in read-only mode. Rebooting"

# How the lines begin that killall and Qt print there.
STANDARD_ERROR_OF_OTHERS = ("pYNX: no process found", "QProcess: Destroyed while process")

# How the lines begin that the supervisor prints on standard error.
STANDARD_ERROR = (
    "Can't open file : ", "Can't rename file from:", "Cannot open file : ", "Cannot set priority",
    THIRD_END, READ_ONLY_ROOT, "Failed to generate report", "Failed to get info about user: ",
    "MemoryUsage: ", "Scheduler getparam failed...",
    "Upload path doesn't allow non ROOT user to remove the report",
    "Watchdog device doesn't exist!!!", *STANDARD_ERROR_OF_OTHERS,
)

# How a file begins that the guard has written the stacks of all threads into, how a thread in it,
# and how a function that the thread is in, the innermost first.
STACKS = re.compile(
    r"(?P<text>(?P<stacks>hang|crash): .*)\n"
    r"(?P<program>.*), process (?P<process>\d{1,10}), (?P<seconds>\d{1,12}) s after its start\n"
    r"(?P<date>\d{4}-\d\d-\d\d) (?P<clock>\d\d:\d\d:\d\d) (?P<zone>[-+]\d{4})\n")
STACKS_SOURCE = ("tools/guard/guard.cpp", "%s\\n%s, process %d, %lld s after its start\\n%s\\n")
STACKS_TIME_SOURCE = ("tools/guard/guard.cpp", "%F %T %z")
GUARD_FILE = re.compile(r".*/guard-[^/]+-\d+\.txt")
GUARD_FILE_SOURCE = ("tools/guard/guard.cpp", "/guard-")
THREAD = re.compile(r'Thread (?P<id>\d+) "(?P<name>.*)":$')
THREAD_SOURCE = ("tools/guard/stacks.cpp", r"\nThread %d \"%s\":\n")
FRAME = re.compile(r"#\d+ +0x[0-9a-f]+ in (?P<where>.*)")  # FUNCTION at FILE:LINE from FILE+PLACE
FRAME_SOURCE = ("tools/guard/stacks.cpp", "#%-3d %s\\n")

# How the text begins that boot-cause writes, whose last line is the same as JSON.
BOOT_CAUSE = "Cause of this boot: "
BOOT_CAUSE_SOURCE = "packaging/boot/boot-cause"
