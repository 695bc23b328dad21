# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The system log: how messages are decoded, and the board's /dev/log."""

import pytest

from simulator.box.system_log import Message, decode

from simulated_devices import DeviceFactory
from standin import Script


@pytest.mark.parametrize(("datagram", "message"), [
    (b"<11>Nov 21 09:00:00 pynx_watchdog: it failed\n",
     Message("user", "err", "pynx_watchdog", None, "it failed", "it failed\n")),
    (b"<13>Nov  1 09:00:00 ident[42]: with: colon",
     Message("user", "notice", "ident", 42, "with: colon", "with: colon")),
    (b"<0>Nov 21 09:00:00 kernel: ", Message("kern", "emerg", "kernel", None, "", "")),
    (b"<191>x: y\0", Message("local7", "debug", "x", None, "y", "y")),
    (b"<12>a: b", Message("user", "warning", "a", None, "b", "b")),
    (b"no number", Message("user", "notice", "", None, "no number", "no number")),
    (b"<11>Nov 21 09:00:00 a: two\nlines\n",
     Message("user", "err", "a", None, "two\nlines", "two\nlines\n")),
    (b"<14>t: \xff", Message("user", "info", "t", None, "\\xff", "\\xff")),
    (b"", Message("user", "notice", "", None, "", "")),
])
def test_decoding(datagram: bytes, message: Message) -> None:
    assert decode(datagram) == message


def test_messages_arrive_in_order_before_the_supervisors_end(device: DeviceFactory,
                                                             script: Script) -> None:
    running = device(script("logger -p user.err -t first 'says one'\n"
                            "logger -p local0.debug -t second -i 'says two'"))
    end = running.wait_end()
    first = running.wait_for("system log", ident="first")
    second = running.wait_for("system log", ident="second")
    assert (first.text, first["priority"], first["facility"]) == ("says one", "err", "user")
    assert (second.text, second["priority"], second["facility"]) == ("says two", "debug", "local0")
    assert second["sender"] > 1
    assert first.index < second.index < end.index
