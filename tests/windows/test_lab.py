"""The lab with the shipped service: ./dev lab --windows."""

import os

from harness.lab import open_and_end_lab, short_folder_for_sockets
from harness.needs import needs_windows_build

pytestmark = needs_windows_build()


def test_the_address_of_the_lab_opens_and_its_folder_goes(tmp_path):
    """The page is served in a network of its own, and opened in that of this process."""
    with short_folder_for_sockets() as folder:
        open_and_end_lab(tmp_path, folder, "--windows", patience=120)
        # Wine keeps a folder for the sockets of its servers.
        assert [name for name in os.listdir(folder) if not name.startswith("wine-")] == []
