"""The seeds of the targets around a packaged service: the program that reads the Wi-Fi profile, and the package's texts."""

from corpus import block, long_block, number, seed

BOOT_MODE, NEVER_CONNECTS, COMES_LATE, LEAVES_UNREAD, STAYS_BEHIND = 1, 2, 4, 8, 16
RECORD = number(132) + b"\x01" + b"office".ljust(33, b"\0") + b"\x24\x00" + number(2) + b"secret key".ljust(64, b"\0") + number(
    3, 3, 0, 2, 0, 0)  # fmt: skip


def readers():
    for name, (how, pieces) in {
        "record": (0, [RECORD]),
        "record-late": (COMES_LATE, [RECORD]),
        "record-and-leaves": (LEAVES_UNREAD, [RECORD]),
        "record-late-and-leaves": (COMES_LATE | LEAVES_UNREAD, [RECORD]),
        "record-and-stays": (STAYS_BEHIND, [RECORD]),
        "nothing": (0, []),
        "nothing-and-stays": (STAYS_BEHIND, []),
        "never-connects": (NEVER_CONNECTS, []),
        "empty-piece": (0, [b"", RECORD]),
        "one-byte-short": (0, [RECORD[:-1]]),
        "one-byte-more": (0, [RECORD + b"x"]),
        "two-records": (COMES_LATE, [RECORD, RECORD]),
        "two-halves": (COMES_LATE, [RECORD[:66], RECORD[66:]]),
        "three-pieces": (0, [RECORD[:1], RECORD[1:131], RECORD[131:]]),
        "long": (STAYS_BEHIND, [bytes(600)]),
        "full-fields": (0, [b"\xff" * 132]),
        "boot-mode": (BOOT_MODE, [number(2)]),
        "boot-mode-late": (BOOT_MODE | COMES_LATE, [number(1)]),
        "boot-mode-late-and-stays": (BOOT_MODE | COMES_LATE | STAYS_BEHIND, [number(1)]),
        "boot-mode-short": (BOOT_MODE, [b"\2\0\0"]),
        "boot-mode-long": (BOOT_MODE | STAYS_BEHIND, [number(1, 2)]),
        "boot-mode-in-pieces": (BOOT_MODE | COMES_LATE, [b"\1\0", b"\0\0"]),
        "boot-mode-nothing": (BOOT_MODE | LEAVES_UNREAD, []),
        "boot-mode-never-connects": (BOOT_MODE | NEVER_CONNECTS, []),
    }.items():
        seed("datareader", name, bytes([how]) + b"".join(map(long_block, pieces)))


NO_TOOLS, NEW_TASKS, OLD_TASKS, SECOND_START = 0, 1, 2, 4
NAME, FAMILY = "Tarvix.ZEL_1.0.0.0_x64__8wekyb3d8bbwe", "Tarvix.ZEL_8wekyb3d8bbwe"
FOLDER = "C:\\Program Files\\WindowsApps\\Tarvix.ZEL"


def packages():
    for name, (how, *texts) in {
        "first-start": (NEW_TASKS, NAME, FOLDER, FAMILY),
        "second-start": (OLD_TASKS | SECOND_START, NAME, FOLDER, FAMILY),
        "failing-scripts": (OLD_TASKS, NAME, FOLDER, FAMILY),
        "no-tools": (NO_TOOLS, NAME, FOLDER, FAMILY),
        "no-package": (NEW_TASKS, "", FOLDER, FAMILY),
        "no-folder": (NEW_TASKS, NAME, "", FAMILY),
        "no-family": (NEW_TASKS, NAME, FOLDER, ""),
        "other-folder": (NO_TOOLS, NAME, "D:\\none", FAMILY),
        "parent-folders": (NO_TOOLS, NAME, "C:\\ProgramData\\..\\..\\..\\etc", FAMILY),
        "quotes": (NEW_TASKS, NAME, "C:\\a' 'b\" -x", 'a" -TaskName "b'),
        "redirection": (NEW_TASKS, NAME, "C:\\a > C:\\b & c | d", "%PATH% > nul 2>&1"),
        "not-ascii": (NEW_TASKS, "Paket_ä_名", "C:\\Prográmme\\名", "ä名"),
        "line-breaks": (NO_TOOLS, "a\r\nb", "C:\\a\nb", "\n"),
        "long": (NO_TOOLS, "n" * 255, "C:\\" + "f" * 1500, "m" * 255),
    }.items():
        full_name, folder, family = (text.encode() for text in texts)
        seed("package", name, bytes([how]) + block(full_name) + long_block(folder) + block(family))
