"""The cloud part of the demo: outside of the company's network a console reaches the laptop through a relay."""

from dash import identify
from harness.cloud import Relay, make_certificates, provision

DOMAIN = "corp.example.com"


def prepare_cloud(host, firmware, workdir):
    """A relay, and what the firmware knows of it, before the service starts."""
    relay = Relay(workdir, make_certificates(workdir / "certificates")).start()
    provision(firmware, relay.port, relay.certificates, domains=DOMAIN)
    host.install_cloud_library()
    return relay


def show_cloud(story, host, relay):
    event = relay.await_event("connected")
    story.add("PC", f"the laptop is outside of {DOMAIN}; it is connected to the relay as {event['pc']}")
    identify(story, relay.console(host.network_name), "a console at the relay")
    status = relay.console(host.network_name).status_of_connect(f"{event['pc']}:445")
    story.add("console", f"the laptop refuses the relay its port 445: HTTP {status}")
    if status != 403:
        raise AssertionError(f"HTTP {status} for another port")
