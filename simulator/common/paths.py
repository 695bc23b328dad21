# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The names of files and directories in the device directory and in the box."""

# Names in the device directory, on the host.
ACCOUNT = "account.jsonl"
BOOT_LOADER = "boot-loader.json"
CONFIGURATION = "device.json"
SIMULATOR_LOG = "simulator.log"
SUPERVISOR_STDOUT = "supervisor.stdout"
SUPERVISOR_STDERR = "supervisor.stderr"

# Paths in the box.
HOME = "/home/root"
PROGRAM_DIRECTORY = "/supervisor"
PROGRAM = PROGRAM_DIRECTORY + "/watchdog"
CHECK = PROGRAM_DIRECTORY + "/pynx-watchdog-check"
PROGRAM_TOOLS = PROGRAM_DIRECTORY + "/tools"
STATE = HOME + "/pynx-watchdog"
COMMAND_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"

# Directories of the box that lie in the device directory: path in the box → name there.
KEPT_DIRECTORIES = {"/tmp": "tmp", HOME: "home-root", PROGRAM_DIRECTORY: "supervisor"}

# The simulator's own files lie below one directory of the box's /run.
RUN = "/run/simulator"
TOOLS = RUN + "/tools"
COMMANDS = RUN + "/commands"
TOOL_SOCKET = RUN + "/tool-socket"
WATCHDOG_SOCKET = RUN + "/watchdog"
WATCHDOG_LIBRARY = RUN + "/libwatchdogdevice.so"
