#!/usr/bin/env bash
# Checks the names in the library's object files, which programs that link them share:
#
#     object_names_test.sh OBJECT...
#
# Everything that the library defines must be in dest_mng, except the wrappers. Fails with a line
# for each other outermost name. Ignores inline code from the headers of the platform and of other
# libraries.
set -euo pipefail

ours='dest_mng|(Vlan|Host|Mpls|Ecmp|Vrf)EncapsulationMessage'
others='boost|google|encapsulation|db|msg_ctrl|AppMessage|HalL3MplsEncapsulation[A-Za-z]*|__[a-z_]+'

[ $# -gt 0 ]
# Strips the prefix of a mangled name that gives the kind of symbol. The rest begins with the length
# of the outermost name, S for std, or lower-case letters for a global operator. arm64's assembler
# marks code and data with $x and $d.
names=$(nm --defined-only "$@" | sed -nE 's/^[0-9a-f]{16} [A-Za-z] //p' | sort -u)
[ -n "$names" ]
unexpected=$(
  grep -vE '^(DW\.ref\.|_GLOBAL__sub_I_|__clang_call_terminate|\.|\$[dx]$|_ZL?[0-9]+__static_initialization)' <<<"$names" |
    sed -E 's/^_Z(GV|T[VIST]|Th[n0-9]+_)?(L|Z)*(N[VKRO]*)?L?//' |
    grep -vE "^(S[a-z_]|(nw|na|dl|da)[A-Za-z])|^[0-9]+($ours|$others)([^a-z_]|$)" || true
)
[ -z "$unexpected" ] || {
  printf 'not in dest_mng: %s\n' $unexpected >&2
  exit 1
}
