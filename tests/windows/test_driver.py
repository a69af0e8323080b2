"""What the mailbox driver itself promises its callers, seen by a bare client."""

import pytest

from harness.waiting import eventually

PENDING = 997
ABORTED = 995
NOT_CONNECTED = 1167
MORE_DATA = 234

WRITE_DASH_PACKET = "9C41A400"
WRITE_ZEL_STATUS = "9C41A410"
GET_ZEL_VERSION = "9C416424"
WRITE_NETWORK_STATUS = "9C41A428"
WRITE_KVM_PACKET = "9C41A43D"
UP = "01000000"


@pytest.fixture
def mailbox(stage):
    """A client with one open handle, "requests"."""
    stage.power_up()
    assert stage.probe.ask("find")["error"] == 0
    assert stage.probe.ask("open", "requests")["error"] == 0
    return stage.probe


def finish(mailbox, *request):
    """Sends a request, which must pend, and waits for its end."""
    begun = mailbox.ask("request", *request)
    assert begun["error"] == PENDING
    return mailbox.ask("wait", begun["number"], 10_000)


def listen(stage, mailbox, reads=10):
    """Opens the second handle, "messages", with reads that pend."""
    assert mailbox.ask("open", "messages")["error"] == 0
    answer = mailbox.ask("read", "messages", reads)
    assert (answer["pending"], answer["error"]) == (reads, PENDING)


def test_the_mailbox_is_listed_while_the_firmware_is_there(stage):
    stage.host.power_up()
    assert "path" not in stage.probe.ask("find")
    stage.power_up()
    assert stage.probe.ask("find")["path"].lower().endswith("{70a9067b-708f-443c-84ba-bc391fdbf72b}")


def test_a_request_pends_and_brings_the_firmwares_answer(mailbox):
    answer = finish(mailbox, "requests", GET_ZEL_VERSION, "-", 80)
    assert (answer["error"], answer["bytes"]) == (0, 80)
    assert bytes.fromhex(answer["data"]).startswith(b"5.0.0.100\0")


def test_the_firmware_gets_what_a_request_carries(stage, mailbox):
    assert finish(mailbox, "requests", WRITE_ZEL_STATUS, UP, 0)["error"] == 0
    assert stage.firmware.await_request("WriteZELStatus")["fields"] == {"state": 1}


def test_both_transfer_methods_carry_large_requests(stage, mailbox):
    for code, name in ((WRITE_DASH_PACKET, "WriteDASHPacket"), (WRITE_KVM_PACKET, "WriteKVMPacket")):
        assert finish(mailbox, "requests", code, "*131072", 0)["error"] == 0
        assert stage.firmware.await_request(name)["bytes"] == 131072


@pytest.mark.parametrize("error", [5, 31, 87, 1450])
def test_the_firmwares_refusal_is_the_callers_last_error(stage, mailbox, error):
    stage.firmware.fault("refuse", "WriteZELStatus", error)
    answer = finish(mailbox, "requests", WRITE_ZEL_STATUS, UP, 0)
    assert (answer["error"], answer["bytes"]) == (error, 0)


def test_an_answer_that_is_too_long_fills_the_callers_room(stage, mailbox):
    stage.firmware.fault("answer-size", "GetZELVersion", 100)
    answer = finish(mailbox, "requests", GET_ZEL_VERSION, "-", 80)
    assert (answer["error"], answer["bytes"]) == (MORE_DATA, 80)
    assert bytes.fromhex(answer["data"]).startswith(b"5.0.0.100\0")


def test_an_answer_that_is_too_short_arrives_as_it_is(stage, mailbox):
    stage.firmware.fault("answer-size", "GetZELVersion", 3)
    answer = finish(mailbox, "requests", GET_ZEL_VERSION, "-", 80)
    assert (answer["error"], bytes.fromhex(answer["data"])) == (0, b"5.0")


def test_a_request_of_another_device_type_is_refused(mailbox):
    assert mailbox.ask("request", "requests", "9C42A410", UP, 0)["error"] == 1


def test_a_request_above_one_mebibyte_is_refused(mailbox):
    assert mailbox.ask("request", "requests", WRITE_KVM_PACKET, "*1048577", 0)["error"] == 1784


def test_a_third_handle_carries_nothing_and_disturbs_nobody(mailbox):
    assert mailbox.ask("open", "messages")["error"] == 0
    # Wine opens it, dead; Windows does not.
    if mailbox.ask("open", "third")["error"] == 0:
        assert mailbox.ask("request", "third", WRITE_ZEL_STATUS, UP, 0)["error"] == NOT_CONNECTED
    assert finish(mailbox, "requests", WRITE_ZEL_STATUS, UP, 0)["error"] == 0
    mailbox.ask("close", "messages")
    assert mailbox.ask("open", "fourth")["error"] == 0
    assert finish(mailbox, "fourth", WRITE_ZEL_STATUS, UP, 0)["error"] == 0


def test_messages_complete_the_reads_in_their_order(stage, mailbox):
    listen(stage, mailbox)
    for number in range(25):
        stage.firmware.send(number, "--hex", f"{number:02x}" * 3, "--trailer", 7)
    for number in range(25):
        read = mailbox.ask("next", 10_000)
        assert (read["error"], read["bytes"], read["head"]) == (0, 5, f"{number:02x}" * 3 + f"{number:02x}07")
        # Also a read that finds a message waiting pends.
        assert mailbox.ask("read", "messages", 1)["error"] == PENDING


def test_messages_of_every_size_arrive_whole(stage, mailbox):
    listen(stage, mailbox)
    for size in (0, 1, 2, 0x20000):
        stage.firmware.send("--raw", "--size", size)
        read = mailbox.ask("next", 10_000)
        assert (read["error"], read["bytes"]) == (0, size)


def test_a_message_that_is_too_long_fills_the_reader_and_the_next_one_is_whole(stage, mailbox):
    listen(stage, mailbox)
    stage.firmware.send("--raw", "--size", 0x20001)
    stage.firmware.send("--raw", "--hex", "0102")
    read = mailbox.ask("next", 10_000)
    assert (read["error"], read["bytes"]) == (MORE_DATA, 0x20000)
    assert mailbox.ask("next", 10_000)["head"] == "0102"


def test_a_cancelled_request_ends_with_995_and_the_firmware_hears_of_it(stage, mailbox):
    stage.firmware.fault("hold", "WriteZELStatus")
    held = mailbox.ask("request", "requests", WRITE_ZEL_STATUS, UP, 0)
    assert held["error"] == PENDING
    stage.firmware.await_request("WriteZELStatus")
    assert mailbox.ask("wait", held["number"], 0) == {"pending": True}
    assert mailbox.ask("cancel", "requests")["error"] == 0
    assert mailbox.ask("wait", held["number"], 10_000)["error"] == ABORTED
    eventually(lambda: "cancelled" in stage.firmware.notes(), "the cancellation at the firmware")
    assert finish(mailbox, "requests", GET_ZEL_VERSION, "-", 80)["error"] == 0


def test_reads_that_are_cancelled_end_with_995(stage, mailbox):
    listen(stage, mailbox)
    assert mailbox.ask("cancel", "messages")["error"] == 0
    assert [mailbox.ask("next", 10_000)["error"] for _ in range(10)] == [ABORTED] * 10


def test_closing_a_handle_ends_its_reads_alone(stage, mailbox):
    listen(stage, mailbox)
    stage.firmware.fault("hold", "WriteZELStatus")
    held = mailbox.ask("request", "requests", WRITE_ZEL_STATUS, UP, 0)
    stage.firmware.await_request("WriteZELStatus")
    mailbox.ask("close", "messages")
    assert [mailbox.ask("next", 10_000)["error"] for _ in range(10)] == [ABORTED] * 10
    stage.firmware.fault("release", "WriteZELStatus")
    assert mailbox.ask("wait", held["number"], 10_000)["error"] == 0


def all_pending_ends(mailbox, held):
    assert mailbox.ask("wait", held["number"], 10_000)["error"] == NOT_CONNECTED
    assert [mailbox.ask("next", 10_000)["error"] for _ in range(10)] == [NOT_CONNECTED] * 10
    assert mailbox.ask("request", "requests", WRITE_ZEL_STATUS, UP, 0)["error"] == NOT_CONNECTED
    assert mailbox.ask("read", "messages", 1)["error"] == NOT_CONNECTED
    assert "path" not in mailbox.ask("find")


def hold_one(stage, mailbox):
    listen(stage, mailbox)
    stage.firmware.fault("hold", "WriteZELStatus")
    held = mailbox.ask("request", "requests", WRITE_ZEL_STATUS, UP, 0)
    stage.firmware.await_request("WriteZELStatus")
    return held


def test_when_the_firmware_goes_all_that_pends_ends_and_its_return_serves_new_handles(stage, mailbox):
    held = hold_one(stage, mailbox)
    stage.firmware.fault("vanish")
    all_pending_ends(mailbox, held)
    stage.firmware.fault("come-back")
    stage.host.await_mailbox(True)
    assert mailbox.ask("request", "requests", WRITE_ZEL_STATUS, UP, 0)["error"] == NOT_CONNECTED
    assert mailbox.ask("find")["error"] == 0
    assert mailbox.ask("open", "new")["error"] == 0
    assert finish(mailbox, "new", GET_ZEL_VERSION, "-", 80)["error"] == 0


def test_when_the_gate_dies_all_that_pends_ends_and_the_next_gate_takes_over(stage, mailbox):
    held = hold_one(stage, mailbox)
    stage.host.kill_gate()
    all_pending_ends(mailbox, held)
    stage.host.start_gate()
    stage.host.await_mailbox(True)
    assert mailbox.ask("find")["error"] == 0
    assert mailbox.ask("open", "new")["error"] == 0
    assert finish(mailbox, "new", GET_ZEL_VERSION, "-", 80)["error"] == 0


def test_the_driver_unloads_and_loads_again(stage):
    stage.power_up()
    stage.host.stop_driver()
    assert "path" not in stage.probe.ask("find")
    stage.host.power_up()
    stage.host.await_mailbox(True)
    assert stage.probe.ask("find")["error"] == 0
    assert stage.probe.ask("open", "requests")["error"] == 0
    assert finish(stage.probe, "requests", GET_ZEL_VERSION, "-", 80)["error"] == 0


def test_two_gates_do_not_share_the_driver(stage):
    stage.power_up()
    assert stage.host.second_gate() == 1
