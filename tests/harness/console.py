"""Management consoles: a real WS-Management client (curl), and bare TCP clients."""

import re
import socket
import subprocess

IDENTIFY = """<?xml version="1.0" encoding="UTF-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"
            xmlns:wsmid="http://schemas.dmtf.org/wbem/wsman/identity/1/wsmanidentity.xsd">
  <s:Header/><s:Body><wsmid:Identify/></s:Body>
</s:Envelope>"""

CIM = "http://schemas.dmtf.org/wbem/wscim/1/cim-schema/2/"
REQUEST_POWER_STATE_CHANGE = f"""<?xml version="1.0" encoding="UTF-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing"
            xmlns:wsman="http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd" xmlns:p="{CIM}CIM_PowerManagementService">
  <s:Header>
    <wsa:Action s:mustUnderstand="true">{CIM}CIM_PowerManagementService/RequestPowerStateChange</wsa:Action>
    <wsa:MessageID>uuid:3a0e6a6e-7f6c-4c0e-9d55-2d6f0f6f4b01</wsa:MessageID>
    <wsman:ResourceURI s:mustUnderstand="true">{CIM}CIM_PowerManagementService</wsman:ResourceURI>
  </s:Header>
  <s:Body>
    <p:RequestPowerStateChange_INPUT>
      <p:PowerState>%d</p:PowerState>
      <p:ManagedElement>
        <wsa:Address>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsa:Address>
        <wsa:ReferenceParameters>
          <wsman:ResourceURI>{CIM}CIM_ComputerSystem</wsman:ResourceURI>
          <wsman:SelectorSet>
            <wsman:Selector Name="CreationClassName">CIM_ComputerSystem</wsman:Selector>
            <wsman:Selector Name="Name">ManagedSystem</wsman:Selector>
          </wsman:SelectorSet>
        </wsa:ReferenceParameters>
      </p:ManagedElement>
    </p:RequestPowerStateChange_INPUT>
  </s:Body>
</s:Envelope>"""

GET_COMPUTER_SYSTEM = f"""<?xml version="1.0" encoding="UTF-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing"
            xmlns:wsman="http://schemas.dmtf.org/wbem/wsman/1/wsman.xsd">
  <s:Header>
    <wsa:Action s:mustUnderstand="true">http://schemas.xmlsoap.org/ws/2004/09/transfer/Get</wsa:Action>
    <wsa:MessageID>uuid:7b3c6c0e-55b6-4a53-8c0c-6d2f1d8f4b02</wsa:MessageID>
    <wsa:ReplyTo><wsa:Address>http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsa:Address></wsa:ReplyTo>
    <wsman:ResourceURI s:mustUnderstand="true">{CIM}CIM_ComputerSystem</wsman:ResourceURI>
  </s:Header>
  <s:Body/>
</s:Envelope>"""

# Power states as CIM numbers them.
SLEEP, POWER_CYCLE, OFF_HARD, HIBERNATE, OFF_SOFT_GRACEFUL = 3, 5, 6, 7, 12


class Console:
    """Posts WS-Management requests over HTTPS to the DASH port of a host."""

    def __init__(self, address, user=None, password=None):
        self.address = address
        self._credentials = ["--anyauth", "--user", f"{user}:{password}"] if user else []

    @property
    def url(self):
        return f"https://{self.address[0]}:{self.address[1]}/wsman"

    def post(self, envelope, patience=20):
        """The answer's HTTP status and body. The simulated firmware signs its own certificate, so it isn't checked."""
        done = subprocess.run(
            ["curl", "--silent", "--show-error", "--insecure", "--max-time", str(patience), "--write-out", "\n%{http_code}",
             "--header", "Content-Type: application/soap+xml;charset=UTF-8", "--data-binary", "@-", *self._credentials, self.url],
            input=envelope, capture_output=True, text=True, timeout=patience + 10,
        )
        assert done.returncode == 0, f"curl ended with {done.returncode}: {done.stderr}"
        body, status = done.stdout.rsplit("\n", 1)
        return int(status), body

    def identify(self):
        """The firmware's answer to Identify as a dictionary of element names and texts."""
        status, body = self.post(IDENTIFY)
        assert status == 200, f"HTTP {status}: {body}"
        return dict(re.findall(r"<(?:\w+:)?(\w+)[^<>]*>([^<>]+)</", body))

    def request_power_state(self, state):
        """Presses a power button; the method's return value, 0 when the firmware does as it was asked."""
        status, body = self.post(REQUEST_POWER_STATE_CHANGE % state)
        assert status == 200, f"HTTP {status}: {body}"
        return int(re.search(r"<p:ReturnValue>(\d+)</p:ReturnValue>", body)[1])

    def connect(self, patience=20):
        """A bare TCP connection to the same port."""
        return socket.create_connection(self.address, patience)


def closed_by_peer(connection, patience=20):
    """Waits until the other side closes; what it sent before is dropped. False when it did not in time."""
    connection.settimeout(patience)
    try:
        while connection.recv(65536):
            pass
        return True
    except ConnectionError:
        return True
    except TimeoutError:
        return False
