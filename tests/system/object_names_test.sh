#!/usr/bin/env bash
# Looks at the names in the library's object files, which a program that links them shares:
#
#   object_names_test.sh OBJECT...
#
# What the library defines lies in dest_mng, but for the wrappers. Fails with a line for each other
# outermost name. Inline code of the platform's and of other libraries' headers is left out.
set -euo pipefail

ours='dest_mng|(Vlan|Host|Mpls|Ecmp|Vrf)EncapsulationMessage'
others='boost|google|encapsulation|db|msg_ctrl|AppMessage|HalL3MplsEncapsulation[A-Za-z]*|__[a-z_]+'

[ $# -gt 0 ]
# Of a mangled name, what says which kind of symbol it is goes; then comes the outermost name behind its
# length, or S for std, or small letters for a global operator.
names=$(nm --defined-only "$@" | sed -nE 's/^[0-9a-f]{16} [A-Za-z] //p' | sort -u)
[ -n "$names" ]
unexpected=$(
  grep -vE '^(DW\.ref\.|_GLOBAL__sub_I_|__clang_call_terminate|\.|_ZL?[0-9]+__static_initialization)' <<<"$names" |
    sed -E 's/^_Z(GV|T[VIST]|Th[n0-9]+_)?(L|Z)*(N[VKRO]*)?L?//' |
    grep -vE "^(S[a-z_]|(nw|na|dl|da)[A-Za-z])|^[0-9]+($ours|$others)([^a-z_]|$)" || true
)
[ -z "$unexpected" ] || {
  printf 'not in dest_mng: %s\n' $unexpected >&2
  exit 1
}
