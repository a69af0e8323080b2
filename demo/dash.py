"""The DASH part of the demo: WS-Management requests from consoles through the service to the firmware."""

import concurrent.futures
import time

from harness.console import OFF_HARD, closed_by_peer
from harness.native import NativeHost
from harness.waiting import eventually


def identify(story, console, name):
    story.tell("console", f"{name} posts a WS-Management Identify to {console.url}")
    answer = console.identify()
    told = ", ".join(answer[key] for key in ("ProductVendor", "ProductVersion") if key in answer)
    story.tell("console", f"{name} reads the firmware's answer: {told}")


def second_client_waits(story, console):
    """The first connection holds the session until it is closed for idleness; the second one waits behind it."""
    first = console.connect()
    story.tell("console", "an idle client connects and sends nothing")
    with concurrent.futures.ThreadPoolExecutor() as pool:
        answer = pool.submit(identify, story, console, "a second client")
        started = time.monotonic()
        closed = closed_by_peer(first)
        first.close()
        if not closed:
            raise AssertionError("the idle client was not closed")
        story.tell("console", f"the idle client was closed after {time.monotonic() - started:.1f} s; now the second one's turn")
        answer.result()


def show_host(story, firmware):
    firmware.await_request("WriteMultiNwInfo")
    firmware.await_request("WriteADInfo")
    table = "".join(f"\n          {line}" for line in firmware.show().split("\n\n")[0].splitlines())
    story.tell("demo", f"what the firmware knows of its PC by now (mpmsim show):{table}")


def power_off(story, console, host):
    story.tell("console", f"an administrator powers the PC off: RequestPowerStateChange to {OFF_HARD}, off hard")
    returned = console.request_power_state(OFF_HARD)
    story.tell("console", f"the administrator reads the firmware's answer: ReturnValue {returned}")
    if returned != 0:
        raise AssertionError(f"return value {returned}")
    host.await_log("DoSytemShutdown: Shutdown initiated")
    if not isinstance(host, NativeHost):
        return story.tell("PC", "Wine powers nothing off and goes on running")
    for call in eventually(host.power_actions, "the PC to power off"):
        story.tell("PC", f"Windows shuts down: {call}")
