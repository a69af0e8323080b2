"""What a test needs of the machine and of the build, and is skipped without."""

import pathlib

import pytest

from .prefix import WINE
from .processes import build_folder
from .wine import windows_folder


def needs_packages(missing):
    """`missing` are the Debian packages that are not installed."""
    return pytest.mark.skipif(bool(missing), reason=f"these Debian packages are not installed here: {' '.join(missing)}")


def needs_media_runtime():
    return pytest.mark.skipif(not (build_folder() / "luxrt64.so").exists(), reason="the software media runtime is not built")


def needs_windows_build():
    missing = [what for what, file in (("the package wine64", pathlib.Path(WINE)),
                                       ("ZELService.exe, which ./dev build windows makes,", windows_folder() / "ZELService.exe"))
               if not file.exists()]
    return pytest.mark.skipif(bool(missing), reason=f"{' and '.join(missing)} is missing here")
