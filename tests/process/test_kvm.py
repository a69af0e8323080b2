"""A KVM session as the firmware, the console and the person at the PC see it."""

import contextlib
import random
import socket
import threading

import pytest

from harness.console import closed_by_peer
from harness.kvm import echoes, receive
from harness.native import NativeHost
from harness.processes import is_running
from harness.waiting import eventually

PROGRAM = '"C:\\Program Files\\Tarvix\\bin\\ZELKVMApp.exe"'


# --- the session's beginning ---


def test_the_firmware_is_told_of_the_console_that_connects(kvm):
    kvm.boot()
    kvm.enable()
    with kvm.begin_session() as client:
        peers = kvm.announced_connections()
        assert [(fields["Port"], fields["PeerAddress"], fields["PeerPort"]) for fields in peers] == \
            [(22, "127.0.0.1", client.getsockname()[1])]


@pytest.mark.parametrize("level", [30, 50])
def test_the_agent_starts_on_the_users_desktop(kvm, level):
    kvm.boot(level=level, screen={"width": 1366, "height": 768}, consoleSession=3,
             processes=[{"name": "winlogon.exe", "pid": 400, "session": 1}, {"name": "winlogon.exe", "pid": 404, "session": 3}])
    kvm.enable()
    with kvm.begin_session():
        [launch] = kvm.host.launches()
        assert launch["commandLine"] == f"{PROGRAM} -X 1366 -Y 768 -V {level} -E 0"
        assert (launch["session"], launch["desktop"]) == (3, "Winsta0\\Default")
        assert kvm.host.agents() == [launch["pid"]]
        first_line = f"[{launch['pid']}] started with -X 1366 -Y 768 -V {level} -E 0\n"
        eventually(lambda: first_line in kvm.host.agent_log(), "the agent's first line")


def test_the_status_file_tells_of_the_session(kvm):
    kvm.boot()
    eventually(lambda: kvm.status() == "NO", "the status before")
    kvm.enable()
    with kvm.begin_session():
        eventually(lambda: kvm.status() == "YES", "the status in the session")
        kvm.close_session()
        eventually(lambda: kvm.status() == "NO", "the status behind it")


# --- its bytes ---


def test_megabytes_come_back_unchanged_from_an_echoing_firmware(kvm):
    kvm.boot()
    kvm.enable()
    data = random.Random(22).randbytes(5_000_000)
    with kvm.begin_session() as client:
        sender = threading.Thread(target=client.sendall, args=(data,))
        sender.start()
        assert receive(client, len(data)) == data
        sender.join()


def test_a_server_that_speaks_first_is_heard_and_both_directions_go_at_once(kvm):
    picture, keys = random.Random(1).randbytes(6_000_000), random.Random(2).randbytes(2_000_000)
    received = []

    def serve(listener):
        server, _ = listener.accept()
        with server:
            sender = threading.Thread(target=server.sendall, args=(picture,))
            sender.start()
            received.append(receive(server, len(keys)))
            sender.join()

    with socket.create_server(("127.0.0.1", 0)) as listener:
        listener.settimeout(20)
        kvm.boot(kvm=f"bridge:127.0.0.1:{listener.getsockname()[1]}")
        kvm.enable()
        server = threading.Thread(target=serve, args=(listener,))
        server.start()
        with kvm.begin_session() as viewer:
            seen = receive(viewer, 1_000)
            sender = threading.Thread(target=viewer.sendall, args=(keys,))
            sender.start()
            seen += receive(viewer, len(picture) - len(seen))
            sender.join()
            server.join()
            assert (seen == picture, received == [keys]) == (True, True)
            assert closed_by_peer(viewer)  # the server's close is the end of the session
    kvm.await_reported_close()


# --- its end ---


def test_the_firmwares_close_ends_it_and_takes_the_agent_along(kvm):
    kvm.boot()
    kvm.enable()
    client = kvm.begin_session()
    [agent] = kvm.host.agents()
    eventually(kvm.host.agent_log, "the agent's log")
    kvm.close_session()
    with client:
        assert closed_by_peer(client)
    kvm.await_reported_close()
    eventually(lambda: not is_running(agent), "the agent to leave as it is asked")
    left = [kvm.host.working_folder / name for name in ("terminate.txt", "DisplayMgr.log")]
    assert left[0].read_text() == "terminate\n" and left[1].read_text().endswith("asked to leave\n")
    kvm.advance_until(lambda: not any(file.exists() for file in left), "the session's files to go")
    assert "Forcefully exited" not in kvm.host.log_text()
    assert kvm.reported_closes() == 1


def test_the_files_of_a_session_go_after_two_seconds(kvm):
    kvm.boot()
    kvm.host.ctl("clock", "manual")
    kvm.enable()
    with kvm.begin_session():
        kvm.close_session()
        kvm.host.await_log("Cleaned Tarvix KVM App if still open.")
        kvm.host.ctl("clock", "advance", 1_999)
        assert (kvm.host.working_folder / "terminate.txt").exists()
        kvm.advance_until(lambda: "Terminate file deleted successfully" in kvm.host.log_text(), "the clean-up", milliseconds=1)


def test_a_console_that_leaves_ends_it_and_only_a_close_and_an_enable_bring_kvm_back(kvm):
    kvm.boot()
    kvm.enable()
    kvm.begin_session().close()
    kvm.await_reported_close()
    kvm.firmware.send("KVM_ENABLE_STATUS")
    kvm.host.await_log("Setting KVM Enabled to", 2)
    with pytest.raises(ConnectionRefusedError):
        kvm.connect()
    kvm.close_session()
    kvm.await_agent_removed()
    kvm.enable()
    with kvm.begin_session() as client:
        assert echoes(client)


# --- who may connect ---


def test_an_untrusted_console_is_left_aside_and_the_trusted_one_gets_the_next_listener(kvm):
    kvm.stage.expect_errors("KVM IP validation failed, closing the base socket and retry...")
    kvm.boot()
    kvm.enable()
    kvm.trust("127.0.0.5", port=5900)
    with kvm.connect(source="127.0.0.6") as stranger:
        kvm.host.await_log("Calling KVM Socket Accept", 2)
        with kvm.begin_session(source="127.0.0.5") as trusted:
            assert echoes(trusted)
            stranger.setblocking(False)
            with pytest.raises(BlockingIOError):
                stranger.recv(1)
    assert [fields["PeerAddress"] for fields in kvm.announced_connections()] == ["127.0.0.5"]


def test_the_trust_lasts_for_one_session(kvm):
    kvm.boot()
    kvm.enable()
    kvm.trust("127.0.0.5")
    with kvm.begin_session(source="127.0.0.5"):
        kvm.close_session()
        kvm.await_agent_removed()
    kvm.enable()
    with kvm.begin_session(source="127.0.0.6") as client:
        assert echoes(client)


def test_addresses_that_are_too_short_or_too_long_change_what_they_cover_and_nothing_else(kvm):
    kvm.boot()
    kvm.enable()
    kvm.trust("127.0.0.5", port=0x1234)
    kvm.firmware.send("KVM_IP_PORT_INFO", "--hex", "7e")
    kvm.host.await_log("IP: 0x500007e & Port: 0x1234")
    kvm.firmware.send("KVM_IP_PORT_INFO", "--hex", "7f000006" + "785600000000" + "ff" * 1000)
    kvm.host.await_log("IP: 0x600007f & Port: 0x5678")
    kvm.firmware.send("KVM_IP_PORT_INFO")
    with kvm.begin_session(source="127.0.0.6") as client:
        assert echoes(client)


def test_an_address_before_kvm_is_enabled_is_not_taken(kvm):
    kvm.boot()
    kvm.firmware.send("KVM_IP_PORT_INFO", "--hex", "0102030400000000")
    kvm.host.await_log("KVM is disabled")
    kvm.enable()
    with kvm.begin_session() as client:
        assert echoes(client)


def test_a_second_console_takes_the_session_over(kvm):
    kvm.boot(kvm="none")
    kvm.enable()
    with kvm.begin_session() as first, kvm.begin_session() as second:
        kvm.firmware.send("KVM_DATA", "--text", "picture")
        assert receive(second, 7) == b"picture"
        assert len(set(kvm.host.agents())) == 2
        # At once, whatever the first one does.
        second.sendall(b"keys")
        eventually(lambda: kvm.firmware.requests("WriteKVMPacket"), "the second console's bytes")
        first.sendall(b"never read")
        second.sendall(b"more")
        eventually(lambda: kvm.firmware.requests("WriteKVMPacket")[1:], "the second console's next bytes")
        assert [request["bytes"] for request in kvm.firmware.requests("WriteKVMPacket")] == [len(b"keys"), len(b"more")]
        first.setblocking(False)
        with pytest.raises(BlockingIOError):
            first.recv(1)
        kvm.close_session()
        first.setblocking(True)
        assert closed_by_peer(first) and closed_by_peer(second)
    eventually(lambda: kvm.host.agents() == [], "both agents to leave")


def test_a_port_scan_costs_a_running_session_nothing(kvm):
    kvm.boot()
    kvm.enable()
    with kvm.begin_session() as viewer:
        for scans in range(1, 6):
            kvm.connect().close()
            kvm.host.await_log("RunServerKVMThread: Client closed the connection at once, the session continues", scans)
            assert echoes(viewer)
        assert len(kvm.announced_connections()) == 1
        assert len(kvm.host.agents()) == 1


def test_a_hundred_sessions_leave_nothing_behind(kvm, monkeypatch):
    # Memory that a sanitizer keeps back after it was freed would count.
    monkeypatch.setattr(NativeHost, "asan_options", f"{NativeHost.asan_options}:quarantine_size_mb=4")
    kvm.boot()

    terminate_file = kvm.host.working_folder / "terminate.txt"

    def connect():
        with contextlib.suppress(ConnectionRefusedError):
            return kvm.connect()

    def session():
        kvm.firmware.send("KVM_ENABLE_STATUS")
        with eventually(connect, "the listener") as client:
            assert echoes(client)
            kvm.close_session()
            assert closed_by_peer(client)
        kvm.advance_until(lambda: not terminate_file.exists() and not kvm.host.agent_log(), "the clean-up", 2_000)

    for _ in range(30):
        session()
    eventually(lambda: kvm.host.agents() == [], "the last agent to be gone")
    before = kvm.host.footprint()
    for _ in range(100):
        session()
    after = kvm.host.footprint()
    assert after.handles <= before.handles
    assert after.threads <= before.threads
    assert after.kilobytes <= before.kilobytes + 4_000
    assert kvm.reported_closes() == 130
    assert kvm.host.agents() == []
