#!/usr/bin/env python3
"""What Python adds to an operation, and what a test's device takes: python.py operations|fixtures

`operations` wants a bare platform, whose calls take next to nothing: what is measured is Python's.
"""
import inspect
import json
import os
import statistics
import sys
import tempfile
import time
import timeit
import typing

import vexo_cmi
from vexo_cmi import _interface
from vexo_cmi.gateway import Gateway

CALLS, TURNS, DEVICES = 20000, 9, 100


def scalars():
    """The operations that take and give numbers only, with what each is given."""
    for name, function in vars(_interface).items():
        if not inspect.isfunction(function) or "_" + name not in vars(_interface):
            continue
        kinds = typing.get_type_hints(function)
        answer = kinds.pop("return")
        told = typing.get_type_hints(answer).values() if hasattr(answer, "_fields") else [answer]
        if all(kind is type(None) or issubclass(kind, int) for kind in [*kinds.values(), *told]
               if isinstance(kind, type)) and all(isinstance(kind, type) for kind in told):
            yield name, [1] * len(kinds)


def operations():
    """Microseconds of each, of the processor's time."""
    found = {}
    for name, given in scalars():
        function = getattr(vexo_cmi, name)
        try:
            function(*given)
        except vexo_cmi.CmiError:
            continue
        call = f"function({', '.join(map(str, given))})"
        times = timeit.repeat(call, timer=time.process_time, number=CALLS, repeat=TURNS,
                              globals={"function": function})
        found[name] = min(times) / CALLS * 1e6
    return found


def median(work, times):
    """Milliseconds."""
    taken = []
    for _ in range(times):
        start = time.perf_counter()
        work()
        taken.append((time.perf_counter() - start) * 1000)
    return statistics.median(taken)


def fixtures():
    """Milliseconds: a device made and removed, one compared with a document."""
    found = {"device": median(lambda: Gateway().end(), DEVICES)}
    gateway = Gateway()
    with tempfile.TemporaryDirectory() as folder:
        site = os.path.join(folder, "site.json")
        gateway.config.save(site)
        found["compare"] = median(lambda: gateway.config == vexo_cmi.Document(site), 10)
    gateway.end()
    return found


json.dump({"operations": operations, "fixtures": fixtures}[sys.argv[1]](), sys.stdout)
