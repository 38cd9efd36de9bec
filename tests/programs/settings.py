# SPDX-License-Identifier: Apache-2.0
"""The configurations that programs run in, and what the logs that each leaves must tell."""

from dataclasses import dataclass

import logs
import told


@dataclass(frozen=True)
class Setting:
    lines: tuple = ()
    checked: bool = True
    small: bool = False
    room: bool = False  # every process of the work is checked, in a room of its own where the target has rooms
    contract: str = ""
    ends: bool = False  # by signals are told and logged (QUARL_END_SIGNALS)
    events: bool = False  # told in a file, and nothing printed
    log: str = ""  # end of the names of the logs that every checked process leaves
    reconcile: object = None

    def size(self):
        return "small" if self.small else "full"


CHECKS = ("QUARL_SLOPOVER_MALLOC=1", "QUARL_SLOPOVER_FREE=1", "QUARL_SLOPOVER_THREAD=1", "QUARL_MEM_CHECK_IN_HOOK=1",
          "QUARL_SLOPOVER_TIMER=1", "QUARL_TIMER=1", "QUARL_SLOPOVER_USER=12", "QUARL_SLOPOVER_API=1",
          "QUARL_SLOPOVER_EXIT=1", "QUARL_MEM_CHECK=1")
RECORD = ("QUARL_OUTPUT_LOG=1",)
RECORD_ANEW = ("QUARL_OUTPUT_LOG=1", "QUARL_LOG_OVERLAY=1")  # for a process that becomes a program of the same name (sshd)
SNAPSHOTS = ("QUARL_TIMER_SIG=SIG40", "QUARL_ALL=1", "QUARL_MEM_HEAD=1", "QUARL_HEAD_TIME=2", "QUARL_TIME_INTERVAL=1",
             "QUARL_SNAP_INTERVAL=1", "QUARL_SNAP_DETAIL=1")  # not on SIGALRM, which many programs take for their own use

SETTINGS = {
    "defaults": Setting(),
    "checks": Setting(CHECKS, small=True),
    "record": Setting(RECORD, small=True, log="_quarlAll.log", reconcile=logs.reconcile_records),
    "snapshots": Setting(SNAPSHOTS, log="_quarl_autosnap.log", reconcile=logs.reconcile_snapshots),
    "contract": Setting(room=True, contract="libc", log="_quarl.log", reconcile=logs.unreadable),
    "contract-record": Setting(RECORD_ANEW, small=True, room=True, contract="libc", log="_quarlAll.log", reconcile=logs.unreadable),
    "contract-snapshots": Setting(SNAPSHOTS, small=True, room=True, contract="libc", log="_quarl_autosnap.log",
                                  reconcile=logs.unreadable),
    "ends": Setting(contract="libc", ends=True, log="_quarl.log", reconcile=logs.unreadable),
    "contract-ends": Setting(contract="libc", room=True, ends=True, log="_quarl.log", reconcile=logs.unreadable),
    "events": Setting(events=True, log="events", reconcile=told.wrong_events),
    "contract-events": Setting(small=True, room=True, contract="libc", events=True, log="events", reconcile=told.wrong_events),
    "room": Setting(room=True),
    "bare": Setting(room=True, checked=False),  # beside the other bare run: shows that the work itself does not differ
}
SOAKED = ("contract", "contract-record", "contract-snapshots", "contract-events")
