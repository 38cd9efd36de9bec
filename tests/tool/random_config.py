# SPDX-License-Identifier: Apache-2.0
"""Random configuration files: every item, values of all kinds, and lines that are torn in every way."""

import os
import re

from tool import SOURCE

SWITCHES = "0 1 1 2 10 01 on off 1x -1".split()
NUMBERS = ("0 1 2 3 8 63 64 65 279 280 560 1024 2800 5000 14000 28000 00 007 7x x +5 -1 -7 1048576 999999999 2147483647 "
           "2147483648 -2147483649 4294967296 4294967297 4294967304 999999999999999").split()
MAPS_SIZES = "0 1 2 33 1024 00 007 7x x +5 -1 -2147483649".split()  # every log file is that long
TIMER_SIGNALS = ("0 1 10 12 14 16 34 40x 64 65 -3 SIGUSR1 SIGUSR2 SIGALRM SIGTERM SIG40 SIG64 SIG65 SIG128 SIG129 "
                 "SIGHUP SIGINVALID sigusr1 nonsense 4294967306").split()
SIGNALS = TIMER_SIGNALS + "9 19 32 33 60".split()  # those without a handler would end the process when the timer fires
TEXTS = ["1", "0", "run", "v" * 15, "v" * 16]
KINDS = {"QUARL_TIMER_SIG": TIMER_SIGNALS, "QUARL_SIG": SIGNALS, "QUARL_SLOPOVER_USER": SIGNALS, "QUARL_LOG_FILENAME": TEXTS,
         "QUARL_MAPS_SIZE": MAPS_SIZES,
         **dict.fromkeys(("QUARL_TIME_INTERVAL", "QUARL_SNAP_INTERVAL", "QUARL_HEAD_STACKDEPTH", "QUARL_TRACE_BUFSIZE"),
                         NUMBERS)}
TIMED = ["QUARL_ALL=1", "QUARL_MEM_HEAD=1", "QUARL_HEAD_TIME=2", "QUARL_TIME_INTERVAL=5"]
LINE_LIMIT = 127


def documented_keys():
    with open(os.path.join(SOURCE, "docs/configuration.md"), encoding="utf-8") as page:
        return re.findall(r"^\| `(QUARL_\w+)`", page.read(), re.MULTILINE)


class RandomConfig:
    def __init__(self, rng, keys):
        self.rng = rng
        self.keys = keys

    def item(self):
        key = self.rng.choice(self.keys)
        if key == "QUARL_SNAP_INTERVAL" and self.rng.random() < 0.6:  # else most processes would end at one
            key = "QUARL_HEAD_TIME"
        return key, self.rng.choice(KINDS.get(key, SWITCHES))

    def torn(self):
        key, value = self.item()
        noise = "".join(chr(self.rng.randrange(1, 256)) for _ in range(self.rng.randrange(1, 60)))
        return self.rng.choice([
            f" \t{key} \t=  {value} # on", f"{key} junk = {value}", f"{key}={value} junk", f"{key} {value}", f"{key}=  ",
            f"{key}=#{value}", f"{key}=={value}", f"={value}", key.lower() + "=1", f"{key}X={value}", f"{key}\0={value}",
            f"{key}={value}\0junk", "K" * 31 + f"={value}", "K" * 32 + f"={value}", f"{key}=" + value.ljust(16, "0"),
            f"# {key}={value}", f" \t#{key}={value}", "", "   ", "\t", noise.replace("\n", "").replace("\r", "")])

    def long(self):
        """Around the limit, where only the end of the line counts; also as a comment."""
        text = "=".join(self.item())
        length = LINE_LIMIT + self.rng.choice([-1, 0, 1, 2, 50, 200])
        start = self.rng.choice([" ", "#", "x", "=", " " * 12 + "x"]) * length
        return self.rng.choice([start[:length - len(text)] + text, (text + " # ").ljust(length, "-")])

    def line(self):
        kind = self.rng.random()
        return "=".join(self.item()) if kind < 0.7 else self.torn() if kind < 0.9 else self.long()

    def file(self):
        lines = TIMED[:self.rng.randrange(3, 5)] if self.rng.random() < 0.5 else []
        lines += [self.line() for _ in range(self.rng.randrange(40))]
        text = "".join(line + self.rng.choice(["\n"] * 8 + ["\r\n", "\r"]) for line in lines)
        return (text + self.rng.choice(["", "", "=".join(self.item())])).encode("latin-1")
