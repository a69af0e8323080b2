"""The programs beside the service: the agent of a KVM session, and the client that asks for consent."""

import os
import signal
import struct

import pytest

from harness.companions import Asking, CompanionPc
from harness.waiting import eventually


@pytest.fixture
def pc(tmp_path):
    pc = CompanionPc(tmp_path)
    yield pc
    pc.close()


@pytest.mark.parametrize("name, arguments", [
    ("ZELKVMApp", ("-X", "1920", "-Y", "1080", "-V", "21", "-E", "0")), ("userconsent", ()),
])
def test_a_companion_without_its_pc_creates_none(pc, tmp_path, name, arguments):
    def refusal(folder):
        return f"winhost: no PC is in {folder}; WINHOST_ROOT names the root of the one to join\n"

    pc.environment["WINHOST_ROOT"] = str(tmp_path / "none")
    done = pc.run(name, *arguments)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", refusal(tmp_path / "none"))
    assert not (tmp_path / "none").exists()

    del pc.environment["WINHOST_ROOT"]
    done = pc.run(name, *arguments)
    assert (done.returncode, done.stdout, done.stderr) == (2, "", refusal(os.getcwd()))
    assert not os.path.exists("C:")

    assert pc.run(name, "--help").returncode == 0


# --- the agent ---


def test_the_agent_stays_until_it_is_asked_to_leave(pc):
    agent = pc.agent()
    eventually(lambda: "started with -X 1920 -Y 1080 -V 21 -E 0\n" in pc.agent_log(), "the agent's first line")
    assert agent.running()
    pc.ask_to_leave()
    assert agent.wait() == 0
    assert pc.agent_log().endswith(f"[{agent.pid}] asked to leave\n")
    assert agent.output() == ""


def test_a_terminate_file_without_the_word_asks_nobody(pc):
    pc.ask_to_leave("")
    agent = pc.agent()
    eventually(lambda: "started" in pc.agent_log(), "the agent's first line")
    assert "asked to leave" not in pc.agent_log()
    pc.ask_to_leave()
    assert agent.wait() == 0


def test_an_agent_that_finds_the_file_of_the_last_session_leaves(pc):
    pc.ask_to_leave()
    assert pc.agent().wait() == 0


def test_one_file_asks_all_agents(pc):
    agents = [pc.agent(), pc.agent()]
    eventually(lambda: pc.agent_log().count("started") == 2, "both agents")
    pc.ask_to_leave()
    assert [agent.wait() for agent in agents] == [0, 0]


@pytest.mark.parametrize("arguments", [
    (), ("-X", "1920"), ("-X", "1920", "-Y", "1080", "-V", "21"), ("-X", "wide", "-Y", "1080", "-V", "21", "-E", "0"),
    ("-X", "1920", "-Y", "1080", "-V", "21", "-E", "2"), ("-X", "1920", "-Y", "1080", "-V", "21", "-E", "0", "-Z", "1"),
    ("-X", "-5", "-Y", "1080", "-V", "21", "-E", "0"), ("-X", "1920", "-Y", "1080", "-V", "21", "-E", "0", "more"),
])
def test_the_agent_refuses_other_arguments(pc, arguments):
    done = pc.run("ZELKVMApp", *arguments)
    assert done.returncode == 2
    assert done.stderr.startswith("ZELKVMApp: ") and done.stderr.count("\n") == 1
    assert done.stdout == "" and pc.agent_log() == ""


def test_the_agent_can_be_told_to_crash(pc):
    pc.set_behaviour("crash")
    assert pc.agent().wait() == -signal.SIGABRT
    assert pc.agent_log() == ""


def test_the_agent_can_be_told_to_stay_whatever_is_asked(pc):
    pc.set_behaviour("ignore-terminate")
    agent = pc.agent()
    pc.ask_to_leave()
    eventually(lambda: "asked to leave, and stays\n" in pc.agent_log(), "the agent to see the file")
    assert agent.running()


def test_the_agent_refuses_a_behaviour_that_it_does_not_know(pc):
    pc.set_behaviour("dance")
    assert pc.agent().wait() == 2


def test_the_agent_needs_the_data_folder(pc):
    del pc.environment["PROGRAMDATA"]
    agent = pc.agent()
    assert agent.wait() == 1
    assert agent.output() == "ZELKVMApp: PROGRAMDATA is not set\n"


# --- the agent in display mode ---


ERROR_MORE_DATA = 234
DISPLAY_MODE = ("-X", 1920, "-Y", 1080, "-V", 50, "-E", 1)


@pytest.fixture
def luxkvm(pc):
    """The service's end of the pipe."""
    server = pc.pipe_server()
    assert server.ask("create", "luxkvm")["error"] == 0
    return server


def received(server):
    assert server.ask("connect")["error"] == 0
    answer = server.ask("read")
    assert answer["error"] in (0, ERROR_MORE_DATA), answer
    return bytes.fromhex(answer["data"])


def test_the_agent_reports_the_display_and_takes_the_start_message(pc, luxkvm):
    agent = pc.agent(*DISPLAY_MODE)
    assert received(luxkvm) == struct.pack("<4I", 1, 1920, 1080, 0)
    assert luxkvm.ask("write", "\2")["error"] == 0
    eventually(lambda: "received message 2\n" in pc.agent_log(), "the start message")
    assert luxkvm.ask("close")["error"] == 0
    eventually(lambda: "the service has disconnected\n" in pc.agent_log(), "the end of the pipe")
    assert agent.running()
    pc.ask_to_leave()
    assert agent.wait() == 0


@pytest.mark.parametrize("word, message", [
    ("message=7", struct.pack("<4I", 7, 1920, 1080, 0)), ("length=3", b"\1\0\0"),
    ("length=600", struct.pack("<4I", 1, 1920, 1080, 0).ljust(511, b"\0")),
])
def test_the_agent_can_be_told_to_report_something_else(pc, luxkvm, word, message):
    pc.set_behaviour(word)
    pc.agent(*DISPLAY_MODE)
    assert received(luxkvm)[:len(message)] == message


def test_the_agent_can_be_told_to_connect_and_to_be_silent(pc, luxkvm):
    pc.set_behaviour("silent")
    agent = pc.agent(*DISPLAY_MODE)
    assert luxkvm.ask("connect")["error"] == 0
    pc.ask_to_leave()
    assert agent.wait() == 0
    assert "sent" not in pc.agent_log()


@pytest.mark.parametrize("word", ["no-connection", None])
def test_an_agent_that_does_not_connect_leaves_when_it_is_asked_to(pc, word):
    if word:
        pc.set_behaviour(word)
    agent = pc.agent(*DISPLAY_MODE)
    eventually(lambda: "started" in pc.agent_log(), "the agent's first line")
    pc.ask_to_leave()
    assert agent.wait() == 0


@pytest.mark.parametrize("word", ["message=", "message=x", "length=65537", "length=-1", "silently"])
def test_the_agent_refuses_a_report_that_it_does_not_know(pc, word):
    pc.set_behaviour(word)
    assert pc.agent(*DISPLAY_MODE).wait() == 2


# --- the consent client, unattended ---


@pytest.mark.parametrize("answer, words", [
    ("yes", b"Consent_yes"), ("no", b"Consent_no"), ("noresponse", b"Consent_noreponce"), ("perhaps", b"perhaps"),
])
def test_an_answer_can_be_given_ahead(pc, answer, words):
    client = pc.consent("--answer", answer)
    asking = Asking(pc).ask()
    assert asking.read() == words
    assert client.wait() == 0
    assert client.output() == f"asked: type 1, time limit 30 seconds\nsent {words.decode()}\n"


def test_the_client_may_come_before_the_question_or_after_it(pc):
    asking = Asking(pc).open()
    asking.close()
    client = pc.consent("--answer", "yes")
    assert asking.ask().read() == b"Consent_yes"
    assert client.wait() == 0


def test_several_answers_follow_each_other(pc):
    client = pc.consent("--answer", "maybe", "yes", "--repeat", "2")
    asking = Asking(pc).ask()
    assert [asking.read() for _ in range(4)] == [b"maybe", b"maybe", b"Consent_yes", b"Consent_yes"]
    assert client.wait() == 0


def test_any_bytes_can_be_sent(pc):
    client = pc.consent("--raw", "Consent_yes\\r\\n\\0\\x41\\\\" + "z" * 400)
    asking = Asking(pc).ask()
    assert asking.read() == b"Consent_yes\r\n\0A\\" + b"z" * 400
    assert client.wait() == 0


def test_a_silent_client_stays_until_the_pipe_ends(pc):
    client = pc.consent("--answer", "silent")
    asking = Asking(pc).ask()
    eventually(lambda: "asked" in client.output(), "the client to have the question")
    assert client.running()
    asking.close()
    assert client.wait() == 0


def test_a_client_whose_service_goes_says_so(pc):
    client = pc.consent("--answer", "yes", "--delay", "0.2")
    Asking(pc).ask().close()
    assert client.wait() == 1
    assert "userconsent: the service takes no answer any more (error 233)\n" in client.output()


def test_a_client_whose_question_is_given_up_before_it_was_put_waits_for_the_next_one(pc):
    client = pc.consent("--answer", "yes")
    asking = Asking(pc).meet()
    asking.close()
    assert asking.ask().read() == b"Consent_yes"
    assert client.wait() == 0


def test_what_is_no_question_is_refused(pc):
    for text in ("no\\n1\\n30", "yes\\n1", "yes\\n1\\nsoon", "yes\\n1\\n30\\nmore", "yes"):
        client = pc.consent("--answer", "yes")
        asking = Asking(pc).say(text)
        assert client.wait() == 1
        assert client.output() == "userconsent: what the service sends is no question (error 13)\n"
        asking.close()


def test_a_serving_client_goes_on_with_the_next_question(pc):
    client = pc.consent("--answer", "yes", "--serve")
    asking = Asking(pc)
    for _ in range(3):
        assert asking.ask().read() == b"Consent_yes"
        asking.close()
    assert client.running()


def test_a_client_waits_no_longer_than_it_is_told(pc):
    client = pc.consent("--answer", "yes", "--wait", "0.1")
    assert client.wait() == 3
    assert client.output() == "userconsent: the service has asked nothing\n"


@pytest.mark.parametrize("arguments", [
    ("--wait", "soon"), ("--wait", "-1"), ("--answer",), ("--answer", "yes", "--raw", "yes"), ("--repeat", "0"), ("yes",),
])
def test_the_client_refuses_other_arguments(pc, arguments):
    done = pc.run("userconsent", *arguments)
    assert done.returncode == 2
    assert done.stderr.startswith("userconsent: ") and done.stderr.count("\n") == 1


# --- the consent client with somebody at it ---


def await_question(client, seconds):
    """Until the terminal shows it."""
    line = ""
    while f"Type yes or no within {seconds} seconds." not in line:
        line = client.stdout.readline()
        assert line, "the question to be put"


@pytest.mark.parametrize("typed, words", [("yes\n", b"Consent_yes"), (" N\n", b"Consent_no"), ("what?\n\nYes\n", b"Consent_yes")])
def test_the_person_is_asked_and_the_answer_is_sent(pc, typed, words):
    client = pc.consent_terminal()
    asking = Asking(pc, kind=2, timeout=60).ask()
    await_question(client, 60)
    client.stdin.write(typed)
    client.stdin.flush()
    assert asking.read() == words
    assert client.wait(20) == 0


def test_what_was_typed_before_the_question_is_no_answer(pc):
    client = pc.consent_terminal("--serve")
    asking = Asking(pc).ask()
    await_question(client, 30)
    client.stdin.write("yes\nyes\n")
    client.stdin.flush()
    assert asking.read() == b"Consent_yes"
    asking.close()
    asking = Asking(pc, timeout=1).ask()
    assert asking.read() == b"Consent_noreponce"


def test_without_an_answer_in_time_the_client_says_that(pc):
    client = pc.consent()
    asking = Asking(pc, timeout=1).ask()
    assert asking.read() == b"Consent_noreponce"
    assert client.wait() == 0
    assert "1 s left" not in client.output()


def test_the_time_is_counted_down(pc):
    client = pc.consent()
    asking = Asking(pc, timeout=2).ask()
    assert asking.read() == b"Consent_noreponce"
    assert "1 s left\n" in client.output()


def test_no_more_time_is_given_than_the_service_has(pc):
    client = pc.consent()
    Asking(pc, timeout=120).ask()
    eventually(lambda: "within 90 seconds" in client.output(), "the question")
    assert "time limit 120 seconds" in client.output()


# --- the consent client's window ---


@pytest.mark.parametrize("code, words", [(0, b"Consent_yes"), (1, b"Consent_no"), (5, b"Consent_noreponce")])
def test_the_question_can_be_put_in_a_window(pc, code, words):
    tools = pc.workdir / "tools"
    tools.mkdir()
    zenity = tools / "zenity"
    zenity.write_text(f'#!/bin/sh\n[ "$1" = --version ] && echo 3.44 && exit 0\necho "$@" >"{tools}/asked"\nexit {code}\n')
    zenity.chmod(0o755)
    client = pc.consent("--dialog", PATH=f"{tools}:/usr/bin:/bin")
    asking = Asking(pc, timeout=45).ask()
    assert asking.read() == words
    assert client.wait() == 0
    assert "--question" in (tools / "asked").read_text() and "--timeout=45" in (tools / "asked").read_text()


def test_without_a_window_the_terminal_does(pc):
    client = pc.consent("--dialog", PATH="/nowhere:/bin")
    asking = Asking(pc, timeout=1).ask()
    assert asking.read() == b"Consent_noreponce"
    assert "Type yes or no within 1 seconds." in client.output()
