"""KVM sessions in which something goes wrong."""

import json
import multiprocessing
import random
import socket
import time

import pytest

from harness.console import closed_by_peer
from harness.kvm import echoes, receive
from harness.processes import is_running
from harness.waiting import eventually

RETRY, CANCELLED = 1450, 995


def failed_requests(error):
    """What the service logs of each request that ends so."""
    return f"GetOverlappedResult failed for SendIOCtlToDriver with error: {error}", f"with dwLastError = {error}"


# Three seconds for the service, two for its agent, and some for a busy machine.
LONGEST_STOP = 3 + 2 + 2


def stop_seconds(kvm):
    started = time.monotonic()
    assert kvm.host.stop_service() == 0
    return time.monotonic() - started


# --- viewers ---


def receive_for_ever(address):
    with socket.create_connection(address) as viewer:
        while viewer.recv(65536):
            pass


def test_a_viewer_that_is_killed_in_mid_stream_ends_its_session_alone(kvm):
    kvm.stage.expect_errors("send() failed with error: 10054", "recv() failed with error: 10054")
    kvm.boot(kvm="none")
    kvm.enable()
    viewer = multiprocessing.get_context("spawn").Process(target=receive_for_ever, args=(kvm.host.kvm_address,), daemon=True)
    viewer.start()
    kvm.host.await_log("Response returned for KVM request")
    picture = kvm.stage.workdir / "picture"
    picture.write_bytes(bytes(100_000))
    for _ in range(5):
        kvm.firmware.send("KVM_DATA", "--file", picture)
    kvm.host.await_log("KVM data sent")
    viewer.kill()
    for _ in range(5):
        kvm.firmware.send("KVM_DATA", "--file", picture)
    kvm.await_reported_close()
    kvm.close_session()
    kvm.await_agent_removed()
    kvm.firmware.set(Kvm="echo")
    kvm.enable()
    with kvm.begin_session() as client:
        assert echoes(client)


class Pictures:
    """A server behind the firmware that sends more than the connections on the way can hold, and takes what comes."""

    def __init__(self):
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._listener.settimeout(20)
        self.peer = f"bridge:127.0.0.1:{self._listener.getsockname()[1]}"
        self.bytes = random.Random(3).randbytes(1_000_000) * 40

    def accept(self):
        server, _ = self._listener.accept()
        server.settimeout(20)
        return server

    def close(self):
        self._listener.close()


@pytest.fixture
def pictures():
    pictures = Pictures()
    yield pictures
    pictures.close()


def send_what_goes(server, data):
    """Sends until the connection takes no more for a while; how much it took."""
    server.settimeout(0.5)
    sent = 0
    try:
        while sent < len(data):
            sent += server.send(data[sent:])
    except TimeoutError:
        pass
    server.settimeout(20)
    return sent


def test_while_a_viewer_does_not_read_only_the_firmwares_messages_stand_still(kvm, pictures):
    kvm.boot(kvm=pictures.peer)
    kvm.enable()
    with kvm.begin_session() as viewer, pictures.accept() as server:
        sent = send_what_goes(server, pictures.bytes)
        assert sent < len(pictures.bytes)
        kvm.firmware.send(53)  # waits behind the picture
        # What the console sends, and what the service reports by itself, still gets through.
        for key in (b"one key", b"another"):
            viewer.sendall(key)
            assert receive(server, len(key)) == key
        moved = [{**adapter, "address": "192.168.1.11"} for adapter in kvm.host.description["adapters"]]
        kvm.host.ctl("change", json.dumps({"adapters": moved}))
        kvm.advance_until(lambda: "192.168.1.11" in str(kvm.firmware.requests("WriteIPCompleteInformation")),
                          "the new address", 61_000)
        with kvm.stage.console.connect() as console:
            console.sendall(b"hello")
            kvm.firmware.await_request("WriteDASHPacket")
        assert "Unknown Command received from driver: 0x35" not in kvm.host.log_text()
        # And it goes on where it stopped.
        assert receive(viewer, sent) == pictures.bytes[:sent]
        kvm.host.await_log("Unknown Command received from driver: 0x35")


def test_a_viewer_that_never_reads_does_not_hold_the_stop(kvm, pictures):
    kvm.stage.expect_errors("send() failed with error: ", "Service is not signalled as Up")
    kvm.boot(kvm=pictures.peer)
    kvm.enable()
    with kvm.begin_session(), pictures.accept() as server:
        send_what_goes(server, pictures.bytes)
        assert stop_seconds(kvm) < LONGEST_STOP


# --- agents ---


def test_without_an_agent_the_session_ends_with_a_clean_up_and_the_next_one_may_have_one(kvm):
    kvm.stage.expect_errors("LaunchProcess: ZELKVMApp.exe CreateProcessAsUser failed with error: 2",
                            "DoInitKVM: Launch KVM_Agent failed",
                            "RunServerKVMThread: DoInitKVM failed, closing the KVM connection and do complete cleanup")
    kvm.boot()
    kvm.host.remove_agent()
    kvm.enable()
    with kvm.connect() as client:
        assert closed_by_peer(client)
    kvm.await_reported_close()
    assert kvm.status() == "NO"
    assert kvm.announced_connections() == []
    kvm.host.install_agent()
    kvm.close_session()
    kvm.await_agent_removed()
    kvm.enable()
    with kvm.begin_session() as client:
        assert echoes(client)


def test_nobody_at_the_console_means_no_session(kvm):
    kvm.stage.expect_errors("getWindowsLogonHandle: OpenProcess failed returning false", "DoInitKVM")
    kvm.boot()
    kvm.host.ctl("session", "none")
    kvm.enable()
    with kvm.connect() as client:
        assert closed_by_peer(client)
    kvm.await_reported_close()


def test_an_agent_that_crashes_at_once_costs_the_session_nothing_else(kvm):
    kvm.boot()
    kvm.host.set_agent_behaviour("crash")
    kvm.enable()
    with kvm.begin_session() as client:
        eventually(lambda: kvm.host.agents() == [], "the agent to crash")
        assert echoes(client)
        kvm.close_session()
        assert closed_by_peer(client)
    kvm.await_agent_removed()


def test_agents_that_do_not_leave_are_killed_two_seconds_after_the_session(kvm):
    kvm.boot()
    kvm.host.set_agent_behaviour("ignore-terminate")
    kvm.enable()
    with kvm.begin_session(), kvm.begin_session():
        kvm.host.ctl("clock", "manual")
        agents = kvm.host.agents()
        assert len(agents) == 2
        kvm.close_session()
        eventually(lambda: kvm.host.agent_log().count("asked to leave, and stays") == 2, "both agents to be asked")
        kvm.host.await_log("Cleaned Tarvix KVM App if still open.")
        kvm.host.ctl("clock", "advance", 1_999)
        assert kvm.host.agents() == agents
        kvm.await_agent_removed()
        assert kvm.host.agents() == []
    assert kvm.host.log_text().count("Forcefully exited ZELKVMApp.exe by kill by process") == 2
    assert not (kvm.host.working_folder / "DisplayMgr.log").exists()


# --- the port and the firmware ---


def test_a_taken_port_is_tried_again_every_five_seconds(kvm):
    kvm.stage.expect_errors("bind() API failed with error: 10048", "Sleep and retry creating SSH port socket...")
    kvm.boot()
    with socket.socket() as taken:
        taken.bind(("0.0.0.0", kvm.host.kvm_address[1]))
        taken.listen()
        kvm.firmware.send("KVM_ENABLE_STATUS")
        kvm.host.await_log("RunServerKVMThread: Sleep and retry creating SSH port socket...")
    kvm.advance_until(lambda: "Calling KVM Socket Accept" in kvm.host.log_text(), "the listener", 5_000)
    with kvm.begin_session() as client:
        assert echoes(client)


def test_a_firmware_without_room_gets_the_block_again_until_it_takes_it(kvm):
    kvm.stage.expect_errors(*failed_requests(RETRY))
    kvm.boot()
    kvm.firmware.fault("refuse", "WriteKVMPacket", RETRY, 20)
    kvm.enable()
    with kvm.begin_session() as client:
        assert echoes(client)
    assert kvm.host.log_text().count("Re-attempting passing recv buffer. Re-attempt:") == 20


def test_a_firmware_that_falls_silent_while_a_block_is_retried_does_not_hold_the_stop(kvm):
    kvm.stage.expect_errors(*failed_requests(RETRY), *failed_requests(CANCELLED))
    kvm.boot()
    kvm.firmware.fault("refuse", "WriteKVMPacket", RETRY)
    kvm.firmware.fault("delay", "WriteKVMPacket", 20)
    kvm.enable()
    with kvm.begin_session() as client:
        client.sendall(b"a key")
        kvm.host.await_log("Re-attempting passing recv buffer. Re-attempt: 5")
        kvm.firmware.fault("hold", "WriteKVMPacket")
        assert stop_seconds(kvm) < LONGEST_STOP
        assert closed_by_peer(client)


# --- the service's end ---


def test_a_stop_during_a_session_ends_it_and_takes_the_agent_along(kvm):
    kvm.boot()
    kvm.enable()
    with kvm.begin_session() as client:
        [agent] = kvm.host.agents()
        assert stop_seconds(kvm) < LONGEST_STOP
        assert closed_by_peer(client)
    assert not is_running(agent)
    assert kvm.reported_closes() == 1
    names = [request["name"] for request in kvm.firmware.requests()]
    assert names.index("WriteCloseSocketcmd") < len(names) - 1 and names[-1] == "WriteZELStatus"
    assert sorted(path.name for path in kvm.host.working_folder.iterdir() if path.is_file()) == ["zel.log"]


def test_the_service_that_follows_a_crashed_one_removes_its_agent(kvm):
    kvm.boot()
    kvm.host.set_agent_behaviour("ignore-terminate")
    kvm.enable()
    with kvm.begin_session() as client:
        [agent] = kvm.host.agents()
        kvm.host.kill()
        assert closed_by_peer(client)
    assert is_running(agent)
    kvm.host.start_service()
    kvm.host.await_log("Forcefully exited ZELKVMApp.exe by kill by process")
    eventually(lambda: not is_running(agent), "the agent to end")
    kvm.host.await_log("Calling HTTPS Socket Accept", 2)
    kvm.enable()
    with kvm.begin_session() as client:
        assert echoes(client)


# --- safe boot ---


def test_in_safe_boot_the_firmware_leads_the_agent_and_the_end_reboots_the_pc(kvm):
    kvm.use_firmware()
    kvm.stage.power_up(cleanBoot=2)
    kvm.host.start_service()
    kvm.firmware.await_request("WriteZELStatus", lambda fields: fields["state"] == 4)
    kvm.firmware.send("SAFEBOOT", "--hex", "01000000")
    [agent] = eventually(kvm.host.agents, "the agent")
    eventually(lambda: kvm.status() == "YES", "the status file")
    kvm.firmware.send("SAFEBOOT", "--hex", "07000000")
    kvm.host.await_log("Safeboot unknown state received from driver: 7")
    assert kvm.host.power_actions() == []
    kvm.firmware.send("SAFEBOOT", "--hex", "02000000")
    assert eventually(kvm.host.power_actions, "the reboot") == ["InitiateSystemShutdownExA(null, null, 0, 1, 1, 0x80000000)"]
    assert kvm.status() == "NO"
    eventually(lambda: not is_running(agent), "the agent to leave")
    assert kvm.reported_closes() == 0  # nothing there listens for it
