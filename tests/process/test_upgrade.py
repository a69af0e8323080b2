"""A software upgrade that the firmware orders: the service starts its program and goes on."""

import json

from harness.waiting import eventually

PROGRAM = "ZELSWUpgrade.exe"


def install(stage, lines):
    program = stage.host.root / "C:" / "Program Files" / "Tarvix" / "bin" / PROGRAM
    program.write_text("#!/bin/sh\n" + lines)
    program.chmod(0o755)


def test_the_program_gets_the_text_and_outlives_the_service(stage):
    stage.power_up()
    # It ends when the test has removed the file.
    install(stage, 'printf "%s|" "$@" > C:/arguments\ntouch C:/runs\nwhile [ -e C:/runs ]; do sleep 0.05; done\ntouch C:/ended\n')
    stage.host.start_service()
    stage.firmware.await_request("WriteMultiNwInfo")
    stage.firmware.send("SOFTWARE_UPGRADE", "--text", "package 7")
    stage.host.await_log("ZELSWUpgrade executable launched successfully")
    drive = stage.host.root / "C:"
    eventually(lambda: (drive / "runs").exists(), "the upgrade program to run")
    # The path has no quotes, so that the program splits it at its blank too.
    assert (drive / "arguments").read_text() == "Files\\Tarvix\\bin\\ZELSWUpgrade.exe|package 7|"
    launch = json.loads(stage.host.ctl("launches", "--json"))[-1]
    assert launch["commandLine"] == 'C:\\Program Files\\Tarvix\\bin\\ZELSWUpgrade.exe "package 7"'

    assert stage.host.stop_service() == 0
    assert not (drive / "ended").exists()
    (drive / "runs").unlink()
    eventually(lambda: (drive / "ended").exists(), "the upgrade program to end by itself")


def test_a_pc_without_the_program_logs_the_error(stage):
    stage.boot()
    stage.expect_errors("CreateProcess() API failed with error : 2")
    stage.firmware.send("SOFTWARE_UPGRADE", "--text", "package 7")
    stage.host.await_log("CreateProcess() API failed with error : 2")
    assert stage.host.stop_service() == 0
