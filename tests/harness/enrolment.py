"""An enterprise's certificate authority for a PC: a stand-in for certreq.exe with a small authority behind it, and the PC's
stores with the authority's certificate."""

import json

from .processes import build_folder
from .waiting import eventually

CA = "Example Enterprise CA"
ISSUER = f"CN={CA},O=Example"
# The authority writes it with its first use; a store reads it when it is opened.
CA_FILE = "C:\\ProgramData\\Example CA\\ca.pem"
PERSONAL_STORE = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\SystemCertificates\\MY\\Certificates"


class Enrolments:
    """Requests of the firmware for certificates, and what its host has answered."""

    def __init__(self, firmware):
        self._firmware = firmware

    def answers(self):
        return self._firmware.requests("WriteCSRResponse")

    def await_answers(self, count=1):
        """The last of so many answers, as the firmware has examined it."""
        def examined():
            certificate = json.loads(self._firmware.show("--json"))["host"].get("certificate", {})
            return certificate.get("answers") == count and certificate
        return eventually(examined, f"{count} answers to a request for a certificate")

    def enrol(self, ca=CA, subject="laptop.example.test"):
        """One enrolment from the firmware's request to what its answer is worth."""
        before = len(self.answers())
        self.begin(ca, subject)
        return self.await_answers(before + 1)

    def begin(self, ca=CA, subject="laptop.example.test"):
        self._firmware.enrol(host="ca.example.test", ca=ca, template="Machine", subject=subject)


class Enterprise(Enrolments):
    """Of a NativeHost, before the start of its service."""

    def __init__(self, host, firmware):
        super().__init__(firmware)
        self._host = host
        self._system = host.root / "C:" / "Windows" / "System32"
        self._system.mkdir(parents=True, exist_ok=True)
        self.install()
        self.set_stores([CA_FILE], [CA_FILE])

    # --- the program ---

    def install(self):
        (self._system / "certreq.exe").symlink_to(build_folder() / "certreq")

    def remove(self):
        (self._system / "certreq.exe").unlink()

    def set_behaviour(self, word):
        """What the programs do that start from now on (docs/companions.md)."""
        (self._system / "certreq.behaviour").write_text(word + "\n")

    def running(self):
        return [process["pid"] for process in json.loads(self._host.ctl("processes", "--json")) if process["name"] == "certreq.exe"]

    # --- the stores ---

    def set_stores(self, personal, root):
        """PEM texts, or Windows paths of files with them."""
        self._host.description["rootCertificates"] = root
        self._host.description["registry"][PERSONAL_STORE] = {str(number): text for number, text in enumerate(personal)}

    def folder_exists(self):
        return (self._host.working_folder / "CSRCert").exists()
