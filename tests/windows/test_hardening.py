"""What the linker and the compiler put into the shipped executables: the service, its companions and its installer."""

import json
import re
import subprocess

import pytest

from harness.wine import windows_folder

SYSTEM_DLLS = {
    "advapi32.dll", "bcrypt.dll", "crypt32.dll", "d3d11.dll", "dxgi.dll", "gdi32.dll", "iphlpapi.dll", "kernel32.dll", "msvcrt.dll",
    "netapi32.dll", "ole32.dll", "oleaut32.dll", "powrprof.dll", "psapi.dll", "setupapi.dll", "shell32.dll", "user32.dll",
    "userenv.dll", "winhttp.dll", "wininet.dll", "winmm.dll", "wlanapi.dll", "ws2_32.dll", "wtsapi32.dll",
}
HIGH_ENTROPY_VA, DYNAMIC_BASE, NX_COMPAT = 0x0020, 0x0040, 0x0100
# Each with the target that has its sources.
PROGRAMS = {
    "ZELService.exe": "zelservice", "ZELKVMApp.exe": "ZELKVMApp", "userconsent.exe": "userconsent",
    "zelsetup.exe": "zelsetup", "luxcapture.exe": "luxcapture", "luxrt64.dll": "luxrt",
    "nubaapi.dll": "nubaapi",
}
OPTIONAL = {
    "luxcapture.exe": "the media runtime", "luxrt64.dll": "the media runtime", "nubaapi.dll": "the stand-in for the cloud library",
}


@pytest.fixture(scope="module", params=PROGRAMS)
def program(request):
    if not (windows_folder() / request.param).exists() and request.param in OPTIONAL:
        pytest.skip(f"{OPTIONAL[request.param]} is not built for Windows here: ./dev test windows builds it")
    return request.param


@pytest.fixture(scope="module")
def objdump(program):
    def run(*options):
        return subprocess.run(["x86_64-w64-mingw32-objdump", *options, windows_folder() / program],
                              capture_output=True, text=True, check=True).stdout
    return run


@pytest.fixture(scope="module")
def headers(objdump):
    return objdump("--private-headers")


def test_only_system_dlls_are_imported(headers):
    imported = {name.lower() for name in re.findall(r"DLL Name: (\S+)", headers)}
    assert imported and imported <= SYSTEM_DLLS


def test_addresses_are_random_and_data_is_not_executable(headers, objdump):
    characteristics = int(re.search(r"DllCharacteristics\s+([0-9a-f]+)", headers)[1], 16)
    wanted = HIGH_ENTROPY_VA | DYNAMIC_BASE | NX_COMPAT
    assert characteristics & wanted == wanted
    assert int(re.search(r"ImageBase\s+([0-9a-f]+)", headers)[1], 16) > 0xFFFFFFFF
    # Without relocations the loader can't move the image.
    assert re.search(r"^\s*\d+ \.reloc", objdump("--section-headers"), re.MULTILINE)


def test_no_section_is_both_writable_and_executable(objdump):
    sections = objdump("--section-headers").splitlines()
    flags = [line for line in sections if "ALLOC" in line]
    assert any("CODE" in line for line in flags)
    assert all("READONLY" in line for line in flags if "CODE" in line)


def test_its_functions_check_their_stacks(program, objdump):
    """The guard is called from the code, and not only linked."""
    code = objdump("--disassemble", "--no-show-raw-insn")
    # The program that captures is small: few of its functions have an array.
    least = 4 if program == "luxcapture.exe" else 20
    assert len(re.findall(r"call\s.*<__stack_chk_fail>", code)) > least


def test_every_source_is_compiled_with_checked_copies(program):
    """A copy whose size the compiler knows leaves no trace in the code, so the test reads the compiler's command."""
    commands = json.loads((windows_folder() / "compile_commands.json").read_text())
    own = [entry["command"] for entry in commands if f"/{PROGRAMS[program]}.dir/" in entry["command"]]
    assert own
    assert all("-D_FORTIFY_SOURCE=2" in command and "-O" in command for command in own)
