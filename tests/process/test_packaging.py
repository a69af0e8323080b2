"""How the packages are made, as far as that needs neither Windows programs nor wixl."""

import re

import pytest

from harness.installer import packager


@pytest.mark.parametrize("version, product", [
    ("5.1.0.1481", "5.1.1481"), ("5.1.0.0", "5.1.0"), ("255.255.5.9999", "255.255.59999"), ("6.0.2.17", "6.0.20017"),
])
def test_windows_installer_compares_all_of_a_version(version, product):
    assert packager().product_version(version) == product


@pytest.mark.parametrize("version", ["5.1.0", "5.1.0.10000", "5.256.0.1", "256.1.0.1", "5.1.7.0", "5.1.x.2"])
def test_a_version_that_windows_installer_cannot_compare_is_refused(version):
    with pytest.raises(ValueError):
        packager().product_version(version)


def test_the_version_is_that_of_the_service():
    assert re.fullmatch(r"[0-9]+(\.[0-9]+){3}", packager().service_version())


def test_stand_ins_for_components_of_others_are_not_installed():
    assert packager().installed_files() == ["ZELService.exe", "ZELKVMApp.exe", "userconsent.exe"]


def test_the_script_removes_what_is_installed():
    removed = re.search(r"for %%f in \((.*?)\) do del", (packager().INSTALLER / "remove.cmd").read_text())[1]
    assert removed.split() == packager().installed_files()


def test_a_rollback_undoes_each_change_of_the_firewall():
    """Windows Installer runs these in the opposite order, so each has to come ahead of what it undoes."""
    module = packager()
    sequence = {action.name: action.sequence for action in module.ACTIONS}
    rollbacks = {action.name for action in module.ACTIONS if action.type & module.ROLLBACK}
    assert rollbacks == {"ReopenFirewall", "RecloseFirewall"}
    assert sequence["ReopenFirewall"] < sequence["CloseFirewall"]
    assert sequence["RecloseFirewall"] < sequence["OpenFirewall"]
    assert max(sequence, key=sequence.get) == "RemoveData"
