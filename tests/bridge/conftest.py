"""What the tests of the bridge share."""

import pytest

from bridge_client import LAYOUT, ORIGIN, Bridge, is_well


@pytest.fixture(scope="module")
def bridge():
    """One for all tests that leave it as it was: 1 classic HID pad, 2 VCOM pad."""
    with Bridge("--allow-origin", ORIGIN, "--layout", LAYOUT, pads=(
            "--pad=type=16,interfaces=2,serial=A1,product=Classic é,maker=ACME,unknown=loop-back",
            "--vcom=type=16,serial=C3,pen=off")) as running:
        assert is_well(running)  # answered behind the first search, whose news no test is to hear
        yield running


@pytest.fixture
def client(bridge):
    with bridge.client() as connected:
        connected.event("welcome")
        yield connected
