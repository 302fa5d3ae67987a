"""Packs this directory as pip wants it, with nothing but Python."""

import base64
import hashlib
import pathlib
import re
import zipfile

HERE = pathlib.Path(__file__).parent


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    version = re.search("^Version: (.*)", (HERE / "dist-info/METADATA").read_text(), re.M).group(1)
    info = f"velmoor-{version}.dist-info"
    files = {f"velmoor/{path.name}": path.read_bytes() for path in sorted(HERE.glob("velmoor/*.py*")) if path.is_file()}
    files.update({f"{info}/{path.name}": path.read_bytes() for path in sorted(HERE.glob("dist-info/*"))})
    record = ""
    for name, content in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        record += f"{name},sha256={digest},{len(content)}\n"
    files[f"{info}/RECORD"] = f"{record}{info}/RECORD,,\n".encode()
    wheel = f"velmoor-{version}-py3-none-any.whl"
    with zipfile.ZipFile(pathlib.Path(wheel_directory) / wheel, "w", zipfile.ZIP_DEFLATED) as packed:
        for name, content in files.items():
            packed.writestr(name, content)
    return wheel
