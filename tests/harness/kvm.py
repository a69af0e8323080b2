"""Both ends of remote KVM: the firmware's commands, and a console that connects to the PC."""

import ipaddress
import json
import socket
import struct

# What the service logs as errors at the end of each session: the close of its listener is the signal to the thread there.
SESSION_END_ERRORS = ("accept() API failed with error: ", "RunServerKVMThread: KVM socket Accept failed, closing the base socket")

ACCEPTS = "Calling KVM Socket Accept"
SESSION_BEGUN = "Response returned for KVM request from Mailbox driver"


class RemoteKvm:
    """The KVM of one PC, from outside."""

    def __init__(self, host, firmware):
        self.host, self.firmware = host, firmware

    def enable(self):
        """The firmware switches KVM on; the port is open when this returns."""
        accepts = self.host.log_text().count(ACCEPTS)
        self.firmware.send("KVM_ENABLE_STATUS")
        self.host.await_log(ACCEPTS, accepts + 1)

    def trust(self, address, port=0):
        """The firmware names the one peer that may connect."""
        payload = ipaddress.ip_address(address).packed + struct.pack("<I", port)
        self.firmware.send("KVM_IP_PORT_INFO", "--hex", payload.hex())
        self.host.await_log(f"IP: 0x{int.from_bytes(payload[:4], 'little'):x} & Port: 0x{port:x}")

    def close_session(self):
        self.firmware.send("VNC_SOC_CLOSE")

    def ask_consent(self, kind, timeout):
        """The firmware asks for the consent of the person at the PC."""
        self.firmware.send("GET_KVM_CONSENT", "--hex", struct.pack("<II", kind, timeout).hex())

    def connect(self, source="127.0.0.1", patience=20):
        """A console's bare connection to the KVM port."""
        return socket.create_connection(self.host.kvm_address, patience, source_address=(source, 0))

    def begin_session(self, **connection):
        """A console in a session: it is announced to the firmware, which takes and sends bytes."""
        begun = self.host.log_text().count(SESSION_BEGUN)
        client = self.connect(**connection)
        self.host.await_log(SESSION_BEGUN, begun + 1)
        return client

    def announced_connections(self):
        """The consoles that were announced to the firmware."""
        reports = self.firmware.requests("WriteIPCompleteInformation")
        return [request["fields"] for request in reports if request["fields"]["PeerMarker"] == 0xFFFF]

    def reported_closes(self):
        """How many ends of KVM sessions were reported to the firmware."""
        return sum(request["fields"]["port"] == 22 for request in self.firmware.requests("WriteCloseSocketcmd"))

    def agent_removals(self):
        """How often the service has removed the agent and its files: at its start, and two seconds after each session."""
        return self.host.log_text().count("DisplayMgr file ")

    def status(self):
        """What the PC's status file says of KVM: YES or NO; nothing while the file is being written."""
        try:
            return json.loads((self.host.working_folder / "zel_json_data.txt").read_text())["KVMStatus"]
        except (OSError, ValueError):
            return None


def receive(connection, size):
    """Just so many bytes."""
    received = bytearray()
    while len(received) < size:
        block = connection.recv(size - len(received))
        assert block, f"the connection ended after {len(received)} bytes"
        received += block
    return bytes(received)


def echoes(connection, text=b"are you there?"):
    """Whether the firmware, in echo mode, is at the other end."""
    connection.sendall(text)
    return receive(connection, len(text)) == text
