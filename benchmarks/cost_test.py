#!/usr/bin/env python3
"""Fails if the library takes too many instructions or allocations compared with its floor.

    cost_test.py COUNT_CASES [TOLERANCE]

The limits are a little above the last measurement, so doing something twice exceeds them. TOLERANCE is added to
the limits on instructions, for another compiler than the one that they were measured with.
"""

import sys

import costs

# As a multiple of the floor's instructions.
LIMITS = {"request": 1.045, "render": 1.25, "result": 1.15}
# The floor is so small that the call of the message's exported destructor counts for more.
SPECIAL_LIMITS = {"request/vrf": 1.08}
CASES = {"request": 5, "render": 5, "result": 11}
# A rendering allocates its text, the platform's text of the address (except for VRFs; it is too
# long for the string's own buffer), that of the MAC address, and the list of a host or an MPLS
# destination.
ALLOCATIONS = {
    "request/vlan": 6, "request/host": 4, "request/mpls": 5, "request/ecmp": 3, "request/vrf": 0,
    "render/vlan": 3, "render/host": 4, "render/mpls": 4, "render/ecmp": 2, "render/vrf": 1}
ALLOCATIONS_OF_A_RESULT = 1


def main():
    tolerance = float(sys.argv[2]) if len(sys.argv) > 2 else 0
    failed = False
    seen = dict.fromkeys(CASES, 0)
    for case, library, floor in costs.pairs(costs.count(sys.argv[1])):
        group = case.split("/")[0]
        seen[group] += 1
        limit = SPECIAL_LIMITS.get(case, LIMITS[group]) + tolerance
        ratio = library.instructions / floor.instructions
        allocations = ALLOCATIONS.get(case, ALLOCATIONS_OF_A_RESULT)
        dear = ratio > limit or library.allocations > min(allocations, floor.allocations)
        failed |= dear
        print(f"{case:22} {library.instructions:7.0f} instructions, {ratio:.3f} of the floor's "
              f"(limit {limit:.3f}); {library.allocations} allocations, limit "
              f"{allocations}, floor {floor.allocations}{'  TOO MUCH' if dear else ''}")
    if seen != CASES:
        print(f"cases {seen}, expected {CASES}")
        failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
