#!/usr/bin/env python3
"""Checks which folders of the product include which. Each folder sees the layers below it, and of another
subsystem only the headers that this subsystem offers. Prints each violation with the way to repair it."""

import re
import subprocess
import sys

LOWER = {
    "base": [],
    "mailbox": ["base"],
    "state": ["base", "mailbox"],
}
SHARED = ["base", "mailbox", "state"]

# What a subsystem offers to other subsystems, besides SHARED. The service includes everything.
OFFERED = {
    "reporting": {"reporting/HostNames.h", "reporting/IPv4InfoStore.h", "reporting/StatusFile.h"},
    "session": {"session/LaunchProcess.h"},
    "hostcontrol": {"hostcontrol/FilterDriver.h", "hostcontrol/HostControl.h"},
    "KVMDisplayMgrLib/src": {"KVMDisplayMgrLib/src/DisplayMgr.h", "KVMDisplayMgrLib/src/EncodeCapability.h"},
    "wifi": {"wifi/WiFiSync.h"},
    "identity": {"identity/CsrEnrolment.h"},
    "cloud": {"cloud/NubaClient.h"},
    "connection": {"connection/ConnectionAnnouncer.h", "connection/SocketServers.h"},
}

# Who uses what another subsystem offers; no arrow leads back.
USES = {
    "connection": ["reporting"],
    "dash": ["connection"],
    "kvm": ["connection", "reporting", "session", "hostcontrol", "KVMDisplayMgrLib/src"],
    "KVMDisplayMgrLib/src": [],
    "reporting": ["KVMDisplayMgrLib/src", "cloud", "hostcontrol", "wifi"],
    "session": [],
    "hostcontrol": [],
    "wifi": [],
    "identity": ["reporting"],
    "package": [],
    "cloud": [],
}

TOP = "service"
# Outside the product: the interface of the media runtime, which only this folder's sources and its headers see.
RUNTIME, RUNTIME_USER = "lux", "KVMDisplayMgrLib/src"

LOWER_REPAIR = "move what both need to a lower layer, or pass it in as an argument"
REPAIRS = {
    TOP: "take what is needed from state/ServiceState.h, or let service/ pass it to the constructor",
    None: "take a reference to what is needed in the constructor, and add its header to OFFERED and USES here",
}


def folder_of(path):
    return path.rpartition("/")[0]


def allowed(folder, header):
    target = folder_of(header)
    if target == RUNTIME:
        return folder == RUNTIME_USER
    if target == folder or folder == TOP:
        return True
    if folder in LOWER:
        return target in LOWER[folder]
    return target in SHARED or (target in USES[folder] and header in OFFERED[target])


def violations(files):
    for path in files:
        folder = folder_of(path)
        with open(path, encoding="utf-8") as source:
            for number, line in enumerate(source, 1):
                include = re.match(r'#include "([^"]+)"', line)
                if include and not allowed(folder, include.group(1)):
                    target = folder_of(include.group(1))
                    repair = LOWER_REPAIR if folder in LOWER else REPAIRS.get(target, REPAIRS[None])
                    yield f"{path}:{number}: {folder}/ must not include {include.group(1)}: {repair}"


def main():
    folders = [*LOWER, *USES, TOP]
    with open("CMakeLists.txt", encoding="utf-8") as cmake:
        product = re.search(r"set\(PRODUCT_FOLDERS ([^)]*)\)", cmake.read()).group(1).split()
    unknown = set(product) - set(folders)
    if unknown:
        sys.exit(f"lint/layers.py: say in LOWER or USES where these folders stand: {', '.join(sorted(unknown))}")
    listed = subprocess.run(
        ["git", "ls-files", "-co", "--exclude-standard", *(f"{folder}/*" for folder in product)],
        check=True, capture_output=True, text=True,
    ).stdout.split()  # fmt: skip
    found = list(violations([path for path in listed if path.endswith((".cpp", ".h"))]))
    for violation in found:
        print(violation)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
