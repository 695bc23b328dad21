// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT

void pynxThrift()
{ }
