"""The DASH part of the demo: WS-Management requests from consoles through the service to the firmware."""

import concurrent.futures
import time

from harness.console import OFF_HARD, closed_by_peer
from harness.native import NativeHost
from harness.waiting import eventually


def identify(story, console, name):
    story.add("console", f"{name} posts a WS-Management Identify to {console.url}")
    answer = console.identify()
    product = ", ".join(answer[key] for key in ("ProductVendor", "ProductVersion") if key in answer)
    story.add("console", f"{name} receives the firmware's answer: {product}")


def second_client_waits(story, console):
    """The first connection holds the session until the idle limit closes it; the second one waits until then."""
    first = console.connect()
    story.add("console", "an idle client connects and sends nothing")
    with concurrent.futures.ThreadPoolExecutor() as pool:
        answer = pool.submit(identify, story, console, "a second client")
        started = time.monotonic()
        closed = closed_by_peer(first)
        first.close()
        if not closed:
            raise AssertionError("the idle client was not closed")
        idle = time.monotonic() - started
        story.add("console", f"the service closed the idle client after {idle:.1f} s and serves the second one")
        answer.result()


def show_host(story, firmware):
    firmware.await_request("WriteMultiNwInfo")
    firmware.await_request("WriteADInfo")
    table = "".join(f"\n          {line}" for line in firmware.show().split("\n\n")[0].splitlines())
    story.add("demo", f"what the firmware knows about its PC now (mpmsim show):{table}")


def power_off(story, console, host):
    story.add("console", f"an administrator powers the PC off: RequestPowerStateChange to {OFF_HARD}, off hard")
    returned = console.request_power_state(OFF_HARD)
    story.add("console", f"the administrator receives the firmware's answer: ReturnValue {returned}")
    if returned != 0:
        raise AssertionError(f"return value {returned}")
    host.await_log("DoSytemShutdown: Shutdown initiated")
    if not isinstance(host, NativeHost):
        return story.add("PC", "Wine does not power off; it keeps running")
    for call in eventually(host.power_actions, "the PC to power off"):
        story.add("PC", f"Windows shuts down: {call}")
