# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""garbage.py SEED DATAGRAMS: sends garbage to the notification socket, until all has been read."""

from __future__ import annotations

import os
import random
import socket
import sys

LONGEST = 4097  # bytes; one more than the guard takes


def _main() -> None:
    numbers = random.Random(int(sys.argv[1]))
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
        sender.connect("\0" + os.environ["NOTIFY_SOCKET"][1:])
        for _ in range(int(sys.argv[2])):
            size = numbers.choice((numbers.randint(0, LONGEST), LONGEST - 1, LONGEST))
            descriptors = [0] * numbers.choice((0, 0, 0, 0, 0, 0, 0, 0, 1, 253))
            socket.send_fds(sender, [numbers.randbytes(size)], descriptors)
        reading, writing = os.pipe()
        socket.send_fds(sender, [b"BARRIER=1"], [writing])
        os.close(writing)
        os.read(reading, 1)  # until the guard has closed the other end
    print("sent", flush=True)


_main()
