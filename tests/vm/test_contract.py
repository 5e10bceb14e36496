"""What the Linux platform promises of interfaces, VRFs and routes, on a kernel that has all of them.

The same tests run on the machine's own kernel, where some are skipped."""

import pytest

# This kernel renames no interface that is up.
LEFT_OUT = "interface_manager_linux.reports_a_rename_as_a_deletion_and_a_creation"


@pytest.mark.parametrize("suite", ["interface_manager*", "lost_link_events*",
                                   "short_link_messages", "fib_contract",
                                   "vrf_contract", "changing_vrfs_contract"])
def test_the_contract_suite(guest, suite):
    status, output = guest.run(
        f"contract_linux --gtest_brief=1 --gtest_filter='{suite}.*-{LEFT_OUT}'")
    assert status == 0, output
    assert "[  PASSED  ]" in output and "[  PASSED  ] 0 tests" not in output, output
    assert "SKIPPED" not in output, output
