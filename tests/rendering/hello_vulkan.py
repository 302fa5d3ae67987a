#!/usr/bin/env python3
"""
The example hello_vulkan under an agent: the picture shows the colour that its own tool has chosen.

    hello_vulkan.py BUILD_DIRECTORY

Ends with 77, which stands for "skipped", where the machine has no Vulkan.
"""

import os
import pathlib
import subprocess
import sys
import tempfile

from hello_xr import SIZE
from seen import picture

from application import Application

COLOURS = {"red": (255, 0, 0), "green": (0, 255, 0), "blue": (0, 0, 255)}


def main():
    build = pathlib.Path(sys.argv[1])
    program = str(build / "bin" / "hello_vulkan")
    os.environ.update(
        XR_RUNTIME_JSON=str(build / "lib" / "velmoor_simulator.json"),
        XR_API_LAYER_PATH=str(build / "layers"),
        VELMOOR_SIM_EYE_SIZE=f"{SIZE}x{SIZE}",
        VELMOOR_SIM_STRICT="1",
    )
    alone = subprocess.run([program, "0.2"], timeout=20, check=False)
    if alone.returncode == 77:
        return 77
    assert alone.returncode == 0, "without the layer"
    with tempfile.TemporaryDirectory() as scratch:
        application = Application([program, "60"], scratch)
        try:
            client = application.client
            application.wait_until(lambda: "FOCUSED" in str(client.call("openxr_get_session_info")), 20, "it has the focus")
            for name in ("green", "blue", "red"):
                assert client.call("next_colour") == {"colour": name}
                assert picture(client) == [[COLOURS[name]] * SIZE] * SIZE, name
            assert application.end() == 0
        except BaseException:
            print((pathlib.Path(scratch) / "application.txt").read_text(errors="replace")[-4000:])
            raise
        finally:
            application.stop()
    return 0


if __name__ == "__main__":
    sys.exit(main())
