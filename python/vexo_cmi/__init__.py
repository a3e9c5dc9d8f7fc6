"""The CMI library of a TDM-over-packet gateway from Python, and its simulated device.

All operations are functions here, without their prefix: vexo_cmi.pdh_admin_get(3). They take numbers,
enumerations and dataclasses, return what they tell, and raise CmiError when they fail. `Device` is
the simulated device; the fixtures of `vexo_cmi.pytest_plugin` test agents on it.
"""
from . import _interface
from ._control import Effect, Ending
from ._interface import *  # pylint: disable=wildcard-import
from ._library import CmiError, LibraryMissing
from ._where import VERSION as __version__
from .device import (Call, Clock, Device, DeviceError, Fault, LogRecord, Rate, Settings,
                     Subscription)
from .document import Difference, Document, DocumentError
from .gateway import Agent, AgentError, Gateway, Trace, TraceCall

__all__ = ["Agent", "AgentError", "Call", "Clock", "CmiError", "Device", "DeviceError", "Difference",
           "Document", "DocumentError", "Effect", "Ending", "Fault", "Gateway", "LibraryMissing",
           "LogRecord", "Rate", "Settings", "Subscription", "Trace", "TraceCall"]
__all__ += _interface.__all__
