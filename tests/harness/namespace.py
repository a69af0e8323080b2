"""A network for one PC: loopback, one adapter, and every port free."""

import ctypes
import os
import pathlib
import subprocess

# The PC's one network adapter. Nothing answers behind it.
ADAPTER, ADDRESS, GATEWAY = "pc0", "192.168.1.10", "192.168.1.1"

_in_namespace = False
_own_user = False


def ip(*words):
    subprocess.run(["ip", *words], check=True, stdin=subprocess.DEVNULL)


def set_address(address):
    """The only one of the adapter, in the gateway's network."""
    ip("address", "flush", "dev", ADAPTER)
    ip("address", "add", f"{address}/24", "dev", ADAPTER)
    ip("route", "add", "default", "via", GATEWAY)


def enter_namespace():
    """Moves this process, and what it starts from now on, into a network of its own: loopback and the PC's adapter. Once
    for the whole process; as an ordinary user it must not have threads yet."""
    global _in_namespace, _own_user
    if _in_namespace:
        return
    newuser, newnet = 0x10000000, 0x40000000
    libc = ctypes.CDLL(None, use_errno=True)
    uid, gid = os.getuid(), os.getgid()
    if uid != 0 or libc.unshare(newnet) != 0:
        if libc.unshare(newuser | newnet) != 0:
            problem = os.strerror(ctypes.get_errno())
            raise OSError(f"the Windows service needs a network namespace for its ports, and there is none to be had: {problem}")
        for name, text in (("setgroups", "deny"), ("uid_map", f"0 {uid} 1"), ("gid_map", f"0 {gid} 1")):
            pathlib.Path("/proc/self", name).write_text(text)
        _own_user = True
    ip("link", "set", "lo", "up")
    ip("link", "add", ADAPTER, "type", "veth", "peer", "name", ADAPTER + "-switch")
    ip("link", "set", ADAPTER + "-switch", "up")
    ip("link", "set", ADAPTER, "up")
    set_address(ADDRESS)
    _in_namespace = True


def entry_command():
    """What stands ahead of a command that a person runs inside the network from another shell."""
    user = ["--user", "--preserve-credentials"] if _own_user else []
    return " ".join(["nsenter", f"--target={os.getpid()}", *user, "--net"])
