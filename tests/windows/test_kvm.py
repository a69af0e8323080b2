"""Remote KVM with the shipped executables: the agent on a user's desktop, Windows' own sockets, the mailbox driver.

A stand-in for the logon program makes the user's session. What Wine can't give is checked natively alone: a session of another
number than 1 and a screen of another size than a service's 1024 x 768; tokens and environments that fail; safe boot; a clock that
is moved to the limits of a time. A thread that waits on a socket while it is closed gets 995 or 10022 under Wine, not 10004.
"""

import random
import socket
import threading

import pytest

from harness.console import closed_by_peer
from harness.kvm import ACCEPTS, echoes, receive
from harness.waiting import eventually

AGENT = "C:\\Program Files\\Tarvix\\bin\\ZELKVMApp.exe"
SETTINGS = ["-X", "1024", "-Y", "768", "-V", "50", "-E", "0"]


PICTURE, KEYS = random.Random(1).randbytes(3_000_000), random.Random(2).randbytes(1_000_000)


class Server:
    """What the firmware brings the consoles to."""

    def __init__(self):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._listener.settimeout(20)
        self.peer = f"bridge:127.0.0.1:{self._listener.getsockname()[1]}"

    def accept(self):
        connection, _ = self._listener.accept()
        connection.settimeout(20)
        return connection

    def close(self):
        self._listener.close()


def both_get_what_the_other_sends(server, console):
    """The server speaks first, and then both directions go at once."""
    received = []
    threads = [threading.Thread(target=server.sendall, args=(PICTURE,)),
               threading.Thread(target=console.sendall, args=(KEYS,)),
               threading.Thread(target=lambda: received.append(receive(server, len(KEYS))))]
    threads[0].start()
    seen = receive(console, 1_000)
    for thread in threads[1:]:
        thread.start()
    seen += receive(console, len(PICTURE) - len(seen))
    for thread in threads:
        thread.join()
    return seen == PICTURE and received == [KEYS]


@pytest.fixture
def server():
    server = Server()
    yield server
    server.close()


def test_a_session_from_its_enabling_to_its_close_and_others_after_it(kvm, server):
    kvm.boot(server.peer)
    for count in (1, 2, 3):
        kvm.enable()
        kvm.trust("127.0.0.1", port=5900)
        with kvm.begin_session() as console, server.accept() as reached:
            peer = kvm.announced_connections()[-1]
            assert (peer["Port"], peer["PeerAddress"], peer["PeerPort"]) == (22, "127.0.0.1", console.getsockname()[1])
            [command] = kvm.host.agents().values()
            assert command == [AGENT, *SETTINGS]
            eventually(lambda: "started with " + " ".join(SETTINGS) in kvm.host.agent_log(), "the agent's first line")
            eventually(lambda: kvm.status() == "YES", "the session in the status file")
            assert both_get_what_the_other_sends(reached, console)
            kvm.close_session()
            assert closed_by_peer(console)
        eventually(lambda: not kvm.host.agents(), "the agent to leave as it is asked")
        eventually(lambda: kvm.status() == "NO", "the end in the status file")
        kvm.await_end(count)
        if count == 1:
            before = kvm.host.footprint()
    assert "Forcefully exited" not in kvm.host.log_text()
    eventually(lambda: all(now <= then for now, then in zip(kvm.host.footprint(), before)), f"no more than {before}")


def test_an_untrusted_console_is_left_aside_and_a_stop_ends_the_session_of_the_trusted_one(kvm):
    kvm.stage.expect_errors("KVM IP validation failed, closing the base socket and retry...")
    kvm.boot()
    kvm.enable()
    kvm.trust("127.0.0.5")
    with kvm.connect(source="127.0.0.6") as stranger:
        kvm.host.await_log(ACCEPTS, 2)
        with kvm.begin_session(source="127.0.0.5") as console:
            assert echoes(console)
            stranger.setblocking(False)
            with pytest.raises(BlockingIOError):
                stranger.recv(1)
            assert [fields["PeerAddress"] for fields in kvm.announced_connections()] == ["127.0.0.5"]
            assert kvm.host.stop_service() == 0
            assert closed_by_peer(console)
    assert kvm.reported_closes() == 1
    assert kvm.left_behind() == []
    names = [request["name"] for request in kvm.firmware.requests()]
    assert names.index("WriteCloseSocketcmd") < len(names) - 1 and names[-1] == "WriteZELStatus"


def test_agents_that_do_not_leave_are_killed(kvm):
    """In console mode."""
    kvm.power_up()
    kvm.host.start_console()
    kvm.host.await_log("Calling HTTPS Socket Accept")
    kvm.host.set_agent_behaviour("ignore-terminate")
    kvm.enable()
    with kvm.begin_session() as first, kvm.begin_session() as second:
        assert len(kvm.host.agents()) == 2
        # The second console has the session, and nothing that the first one sends reaches the firmware.
        first.sendall(b"a key")
        assert echoes(second)
        kvm.close_session()
        eventually(lambda: kvm.host.agent_log().count("asked to leave, and stays") == 2, "both agents to be asked")
        kvm.await_end()
    assert kvm.host.log_text().count("Forcefully exited ZELKVMApp.exe by kill by process") == 2


def test_without_a_users_session_the_console_is_refused(kvm):
    kvm.stage.expect_errors("getWindowsLogonHandle: OpenProcess failed returning false", "DoInitKVM")
    kvm.boot()
    kvm.host.log_off()
    kvm.enable()
    with kvm.connect() as console:
        assert closed_by_peer(console)
    eventually(lambda: kvm.reported_closes() == 1, "the end at the firmware")
    assert kvm.announced_connections() == []
    eventually(lambda: kvm.status() == "NO", "no session in the status file")
    with pytest.raises(ConnectionRefusedError):
        kvm.connect()
    assert kvm.host.stop_service() == 0
    assert kvm.left_behind() == []
