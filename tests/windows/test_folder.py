"""The working folder, as far as Wine stores rights: the bits of the host's files. There is no second user."""

import os
import shutil

OTHERS_WRITE = 0o002


def prepare(stage):
    """The folders as the service creates them, without a file of its own."""
    stage.host.start_console()
    stage.host.await_log("Launch as console is successful")
    stage.host.kill()
    for file in stage.host.working_folder.iterdir():
        file.unlink()


def warnings(stage):
    return [line for line in stage.host.log_text().splitlines() if "] WARN: " in line and "Tarvix" in line]


def test_others_have_no_right_to_write(stage):
    stage.boot()
    assert stage.host.stop_service() == 0
    for folder in (stage.host.working_folder, stage.host.working_folder.parent):
        assert folder.stat().st_mode & OTHERS_WRITE == 0, folder
    assert warnings(stage) == []


def test_secure_folders_are_left_alone(stage):
    prepare(stage)
    before = stage.host.working_folder.stat().st_ino
    stage.boot()
    assert stage.host.stop_service() == 0
    assert warnings(stage) == []
    assert stage.host.working_folder.stat().st_ino == before


def test_a_folder_that_others_may_change_is_renamed(stage):
    prepare(stage)
    stage.host.working_folder.chmod(0o777)
    (stage.host.working_folder / "version.dll").write_text("planted")
    stage.boot()
    assert stage.host.stop_service() == 0
    assert len(warnings(stage)) == 1
    assert "Manageability could be changed by users and is renamed to " in warnings(stage)[0]
    assert stage.host.working_folder.stat().st_mode & OTHERS_WRITE == 0
    assert not (stage.host.working_folder / "version.dll").exists()
    [aside] = stage.host.working_folder.parent.glob("Manageability.replaced-*")
    assert (aside / "version.dll").read_text() == "planted"


def test_an_empty_makers_folder_of_others_is_replaced_too(stage):
    shutil.rmtree(stage.host.working_folder.parent, ignore_errors=True)
    stage.host.working_folder.parent.mkdir()
    stage.host.working_folder.parent.chmod(0o777)
    stage.boot()
    assert stage.host.stop_service() == 0
    assert stage.host.working_folder.parent.stat().st_mode & OTHERS_WRITE == 0
    assert len(warnings(stage)) == 1


def test_hard_links_are_replaced_and_their_files_left_alone(stage):
    prepare(stage)
    victim = stage.host.working_folder.parent.parent / "victim.ini"
    victim.write_text("precious")
    names = ("zel.log", "zel_json_data.txt")
    try:
        for name in names:
            os.link(victim, stage.host.working_folder / name)
        stage.boot()
        assert stage.host.stop_service() == 0
        assert victim.read_text() == "precious"
        assert victim.stat().st_nlink == 1
        for name in names:
            assert f"{name} was a link or could be changed by users, and is replaced" in stage.host.log_text()
    finally:
        victim.unlink()
