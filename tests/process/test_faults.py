"""Bad input and broken peers: each gets a clear line, and the service lives on."""

import json
import time

from harness.waiting import eventually


def mailbox(stage):
    return json.loads(stage.host.ctl("mailbox", "--json"))


def ten_reads_pending(stage):
    eventually(lambda: mailbox(stage)["pendingReads"] == 10, "ten pending reads")


def test_short_messages_and_unknown_commands_leave_ten_reads_pending(stage):
    stage.boot()
    ten_reads_pending(stage)
    for size in (0, 1, 2):
        stage.firmware.send("--raw", "--size", size)
    for number in (7, 53, 255):
        stage.firmware.send(number)
    for number in (7, 53, 255):
        stage.host.await_log(f"ProcessRead: Unknown Command received from driver: 0x{number:x}")
    ten_reads_pending(stage)


def test_a_message_of_the_whole_buffer_reaches_the_console(stage):
    stage.firmware = type(stage.firmware)(stage.workdir, dash="none")
    stage.boot()
    payload = stage.workdir / "payload"
    payload.write_bytes(bytes(range(256)) * 511 + b"x" * (0x20000 - 2 - 256 * 511))
    with stage.console.connect() as console:
        stage.host.await_log("Processing DASH traffic")
        stage.firmware.send("DASH_DATA", "--file", payload)
        received = b""
        while len(received) < 0x20000 - 2:
            received += console.recv(65536)
    assert received == payload.read_bytes()
    ten_reads_pending(stage)


def test_a_vanished_driver_is_told_in_the_log_and_the_service_still_stops(stage):
    stage.boot()
    ten_reads_pending(stage)
    stage.expect_errors("GetQueuedCompletionStatus failed with error", "GetOverlappedResult failed", "Asynchronous",
                        "Return from MailBoxDriverInterface")
    stage.firmware.fault("vanish")
    stage.host.await_log("GetQueuedCompletionStatus failed with error")
    stage.host.await_log("ReadFromMailBoxDriverThread: Exiting Thread Handler")
    assert stage.host.stop_service() == 0


def test_a_request_that_never_completes_ends_with_the_stop(stage):
    stage.boot()
    stage.expect_errors("GetOverlappedResult failed for SendIOCtlToDriver with error: 995", "with dwLastError = 995",
                        "Service is not signalled as Up")  # the close record finds the gate closed
    stage.firmware.fault("hold", "WriteDASHPacket")
    with stage.console.connect() as console:
        console.sendall(b"hello")
        stage.firmware.await_request("WriteDASHPacket")
        started = time.monotonic()
        assert stage.host.stop_service() == 0
        assert time.monotonic() - started < 10


def test_a_refused_close_record_ends_dash_and_a_stop_still_ends_the_process(stage):
    stage.boot()
    stage.expect_errors("GetOverlappedResult failed", "with dwLastError = 5", "Last error")
    stage.firmware.fault("refuse", "WriteCloseSocketcmd", 5)
    with stage.console.connect():
        stage.host.await_log("Processing DASH traffic")
    stage.host.await_log("MPM returned code 5 for WriteCloseSocketcmd")
    stage.host.await_log("Resetting DASH communication")
    assert stage.host.stop_service() == 0


def test_a_console_that_never_reads_is_closed_and_does_not_stop_the_service(stage):
    stage.firmware = type(stage.firmware)(stage.workdir, dash="none")
    stage.boot()
    stage.expect_errors("send() failed 5 times")
    payload = stage.workdir / "payload"
    payload.write_bytes(b"x" * 100_000)
    with stage.console.connect():
        stage.host.await_log("Processing DASH traffic")
        sent = 0
        while "send() failed. Error: 10035" not in stage.host.log_text() and sent < 500:
            stage.firmware.send("DASH_DATA", "--file", payload)
            sent += 1
        eventually(lambda: stage.host.ctl("clock", "advance", 1_000) is not None
                   and "After sock close" in stage.host.log_text(), "the end of the session")
    assert stage.host.stop_service() == 0
