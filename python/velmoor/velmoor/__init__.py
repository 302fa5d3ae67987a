"""Operates XR applications that run with the Velmoor layer, for tests. Python's standard library is all that it needs.

    with Application(["./build/my_app"]) as application:
        application.xr.openxr_set_head_pose(position=[0, 1.6, 0], base_space="stage")
        application.xr.picture("left").assert_matches("start", directory="baselines")
"""

from .application import Application
from .client import ApplicationEnded, Client, SetUpError, ToolError
from .picture import Mask, Picture, PictureMismatch

__all__ = ["Application", "ApplicationEnded", "Client", "Mask", "Picture", "PictureMismatch", "SetUpError", "ToolError"]
