"""What a test needs of the machine and of the build, and is skipped without."""

import pytest

from .processes import build_folder


def needs_packages(missing):
    """`missing` are the Debian packages that are not installed."""
    return pytest.mark.skipif(bool(missing), reason=f"these Debian packages are not installed here: {' '.join(missing)}")


def needs_media_runtime():
    return pytest.mark.skipif(not (build_folder() / "luxrt64.so").exists(), reason="the software media runtime is not built")
