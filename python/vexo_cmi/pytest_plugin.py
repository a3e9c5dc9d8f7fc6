"""Fixtures of pytest for the tests of agents: `gateway`, a simulated device of the test's own, and
`agent`, which starts one on it. What a failing test's report needs to explain it is added to it."""
# Loaded into each run of pytest where this package is installed, also where the library isn't: it
# loads that, and looks for programs, when a test has a gateway.
from __future__ import annotations

import os
from functools import partial
from typing import TYPE_CHECKING, Any, Callable, Iterator, List, Optional

import pytest

if TYPE_CHECKING:
    from .gateway import Agent, Gateway

LINES = 60  # of a recording's end
LETTERS = 100000  # of anything's
GATEWAY: Any = pytest.StashKey()  # of a test


@pytest.fixture
def gateway(request: Any) -> "Iterator[Gateway]":
    """A simulated device of the test's own: vexo_cmi.Gateway."""
    from .gateway import Gateway  # pylint: disable=import-outside-toplevel
    one = request.node.stash[GATEWAY] = Gateway()
    try:
        yield one
    finally:
        one.end()


@pytest.fixture
def agent(gateway: "Gateway") -> "Callable[..., Agent]":  # pylint: disable=redefined-outer-name
    """Starts an agent on the test's gateway: with agent("gatewayd site.json"): ..."""
    return gateway.agent


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]
def pytest_runtest_makereport(item: Any) -> Any:
    """Adds to a failing test's report what the agents did, and what became of the device."""
    outcome = yield
    report = outcome.get_result()
    one = item.stash.get(GATEWAY, None)
    if report.when != "teardown" and report.failed and one is not None:
        report.sections += explain(one)


def explain(one: "Gateway") -> "List[tuple[str, str]]":
    """What explains a failure, as far as it can be told."""
    sections = []

    def add(title: str, what: "Callable[[], Any]") -> None:
        try:
            told = what()
            lines = str(told).splitlines() if not isinstance(told, list) else list(map(str, told))
        except Exception as error:  # pylint: disable=broad-except
            lines = [f"can't be told: {error}"]
        if lines:
            more = f", the last {LINES} of {len(lines)} lines" if len(lines) > LINES else ""
            text = "\n".join(lines[-LINES:])
            more += f", the last {LETTERS} of {len(text)} letters" if len(text) > LETTERS else ""
            sections.append((title + more, text[-LETTERS:]))

    for process in one.agents:
        add(f"Calls of {process!r}", partial(getattr, process, "trace"))
        add(f"Output of {process!r}", partial(getattr, process, "output"))
    add("Platform calls of the test itself",
        lambda: [call for call in one.calls() if call.process == os.getpid()])
    add("Faults", lambda: list({fault.id: fault for fault in [*one.added, *one.faults]}.values()))
    add("Device: what it is set to otherwise than a new one", one.changes)
    return sections


def pytest_assertrepr_compare(op: str, left: Any, right: Any) -> Optional[List[str]]:
    """Says what two documents differ in, by name."""
    if op != "==" or type(left).__module__ != "vexo_cmi.document":
        return None
    try:
        return [f"{left!r} == {right!r}", *map(str, left.differences(right))]
    except Exception:  # pylint: disable=broad-except
        return None
