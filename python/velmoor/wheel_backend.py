"""Packs this directory as pip wants it, with nothing but Python: `pip install .` works without a network."""

import base64
import hashlib
import pathlib
import re
import zipfile

HERE = pathlib.Path(__file__).parent
TEXT = (HERE / "pyproject.toml").read_text()
VERSION = re.search(r'^version = "(.*)"', TEXT, re.M).group(1)
INFO = f"velmoor-{VERSION}.dist-info"


def metadata():
    """The files beside the package by which Python knows it, and pytest its plugin."""
    summary = re.search(r'^description = "(.*)"', TEXT, re.M).group(1)
    return {
        "METADATA": f"Metadata-Version: 2.1\nName: velmoor\nVersion: {VERSION}\nSummary: {summary}\n"
        "License: Apache-2.0\nRequires-Python: >=3.9\n",
        "WHEEL": "Wheel-Version: 1.0\nGenerator: velmoor\nRoot-Is-Purelib: true\nTag: py3-none-any\n",
        "entry_points.txt": "[pytest11]\nvelmoor = velmoor.pytest_plugin\n",
    }


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    files = {f"velmoor/{path.name}": path.read_bytes() for path in sorted((HERE / "velmoor").glob("*.py*"))}
    files.update({f"{INFO}/{name}": text.encode() for name, text in metadata().items()})
    record = ""
    for name, content in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        record += f"{name},sha256={digest},{len(content)}\n"
    files[f"{INFO}/RECORD"] = f"{record}{INFO}/RECORD,,\n".encode()
    name = f"velmoor-{VERSION}-py3-none-any.whl"
    with zipfile.ZipFile(pathlib.Path(wheel_directory) / name, "w", zipfile.ZIP_DEFLATED) as wheel:
        for path, content in files.items():
            wheel.writestr(path, content)
    return name
