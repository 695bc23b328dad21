# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The names of the things in the device directory and in the box."""

# In the device directory, on the host.
ACCOUNT = "account.jsonl"
BOOT_LOADER = "boot-loader.json"
CONFIGURATION = "device.json"
SIMULATOR_LOG = "simulator.log"
SUPERVISOR_STDOUT = "supervisor.stdout"
SUPERVISOR_STDERR = "supervisor.stderr"

# In the box.
HOME = "/home/root"
PROGRAM_DIRECTORY = "/supervisor"
PROGRAM = PROGRAM_DIRECTORY + "/watchdog"
COMMAND_PATH = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"

# Directories of the box that lie in the device directory: place in the box → name there.
KEPT_DIRECTORIES = {"/tmp": "tmp", HOME: "home-root", PROGRAM_DIRECTORY: "supervisor"}

# Everything of the simulator lies below one directory of the box's own /run.
RUN = "/run/simulator"
TOOLS = RUN + "/tools"
COMMANDS = RUN + "/commands"
TOOL_SOCKET = RUN + "/tool-socket"
WATCHDOG_SOCKET = RUN + "/watchdog"
WATCHDOG_LIBRARY = RUN + "/libwatchdogdevice.so"
