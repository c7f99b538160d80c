#!/usr/bin/env bash
# Tests what `cmake --install` puts into a prefix, after moving that prefix.
#
#     install_test.sh STEP SOURCE_DIR BUILD_DIR
#
# Steps: install (first), files, programs, host (before the following ones), pkg_config,
# check_platform. `install_test.sh files SOURCE_DIR BUILD_DIR --accept` accepts the installed files
# as the expected ones.
set -euo pipefail
export LC_ALL=C

step=$1
source=$2
build=$3
accept=${4:-}
here=$source/tests/install
work=$build/install_test
prefix=$work/prefix

fail() {
  echo "install_test: $1" >&2
  exit 1
}

expect_equal() {
  diff -u --label expected --label actual "$1" "$2" || fail "$3"
}

install() {
  rm -rf "$work"
  mkdir -p "$work"
  local component
  for component in runtime development tools; do
    cmake --install "$build" --prefix "$work/first" --component "$component" >"$work/log"
    (cd "$work/first" && find . ! -type d -printf '%P\n' | sort) >"$work/after_$component"
  done
  mv "$work/first" "$prefix"
}

# "COMPONENT FILE" for every installed file except the documents and examples. Omits what differs
# with the system's zlog.
installed_files() {
  {
    sed 's/^/runtime /' "$work/after_runtime"
    comm -13 "$work/after_runtime" "$work/after_development" | sed 's/^/development /'
    comm -13 "$work/after_development" "$work/after_tools" | sed 's/^/tools /'
  } | sed -E 's/(zuskux-targets)-[a-z]+/\1-CONFIG/' | grep -vE 'share/doc/|libzlog|zlog/zlog\.h|Findzlog'
}

files() {
  installed_files >"$work/files"
  if [ "$accept" = --accept ]; then
    cp "$work/files" "$here/installed.txt"
  fi
  expect_equal "$here/installed.txt" "$work/files" \
    'the installed files are not the expected ones; if that is intended, see --accept'
}

programs() {
  local program version
  version=$(sed -nE 's/^project\(zuskux VERSION ([0-9.]+).*/\1/p' "$source/CMakeLists.txt")
  for program in "$prefix"/bin/*; do
    "$program" --version >"$work/version"
    echo "$(basename "$program") $version" >"$work/expected_version"
    expect_equal "$work/expected_version" "$work/version" "$program reports another version"
  done
  "$prefix/bin/zuskux-manager" "$prefix/share/zuskux/sites/provider_edge.txtpb" >"$work/table"
  [ "$(tail -n 1 "$work/table")" = '76 objects: 74 installed, 2 sent' ] ||
    fail "the installed manager ends with: $(tail -n 1 "$work/table")"
}

host() {
  rm -rf "$work/host"
  cmake -S "$source/examples/host" -B "$work/host" -G Ninja -Dzuskux_ROOT="$prefix" \
    -DCMAKE_CXX_COMPILER="${CXX:-g++}" >"$work/log"
  cmake --build "$work/host" >>"$work/log" || fail "the example host does not build: $(cat "$work/log")"
  "$work/host/host" >"$work/host_output" 2>"$work/host_trace"
  expect_equal "$here/host_output.txt" "$work/host_output" "the example host's output is not the expected one"
  grep -q 'CreateDestination: \[TX ===>\] hai:host:Install host destination at HW$' \
    "$work/host_trace" || fail 'the example host did not trace its request'
}

# Compiles the host with pkg-config's flags and links it with the definitions that step `host`
# compiled.
pkg_config() {
  export PKG_CONFIG_PATH
  PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name zuskux.pc)")
  local cflags libs objects flag rpath=()
  read -ra cflags <<<"$(pkg-config --cflags zuskux)"
  read -ra libs <<<"$(pkg-config --libs zuskux)"
  for flag in "${libs[@]}"; do
    case $flag in -L*) rpath+=("-Wl,-rpath,${flag#-L}") ;; esac
  done
  mapfile -t objects < <(find "$work/host" -name '*.o' ! -name host.cc.o)
  "${CXX:-g++}" -std=c++17 -DZLOG_CONF='""' "${cflags[@]}" \
    "$source/examples/host/host.cc" "${objects[@]}" "${libs[@]}" "${rpath[@]}" -pthread \
    -o "$work/linked_host"
  "$work/linked_host" "$prefix/share/zuskux/zuskux.zlog.conf" >"$work/host_output" 2>"$work/host_trace"
  expect_equal "$here/host_output.txt" "$work/host_output" 'the host linked by pkg-config differs'
}

check_platform() {
  local check=$prefix/bin/zuskux-check-platform objects status=0
  "$check" "$work/host/host" >"$work/complete" || fail "$(cat "$work/complete")"
  grep -qE '^0 of [1-9][0-9]* symbols are missing$' "$work/complete" || fail "$(cat "$work/complete")"

  mapfile -t objects < <(find "$work/host" -name '*.o' ! -name host.cc.o)
  "$check" "${objects[@]}" >"$work/without_handlers" || status=$?
  [ "$status" -eq 1 ] || fail "exit status $status where the handlers are missing"
  sed -nE 's/^missing +([^ ]+)  \(zuskux\/dest_controllers.h\)$/U \1/p' "$work/without_handlers" |
    sort >"$work/missing"
  grep -E '^U dest_mng::(MessageController|VrfController)' \
    "$source/tests/system/symbols_left_undefined.txt" | sort >"$work/expected_missing"
  expect_equal "$work/expected_missing" "$work/missing" 'symbols other than the handlers are missing'

  # Nothing else defines this symbol.
  cat >"$work/hidden.cc" <<'END'
__attribute__((visibility("hidden"))) int limid_to_type(unsigned, unsigned char*) { return -1; }
END
  "${CXX:-g++}" -c "$work/hidden.cc" -o "$work/hidden.o"
  mapfile -t objects < <(find "$work/host" -name '*.o' ! -name interface_ids.cc.o)
  "$check" "${objects[@]}" "$work/hidden.o" >"$work/with_hidden" || true
  grep -q '^hidden   limid_to_type(unsigned int, unsigned char\*)  (interface_ids/lim_id.h)$' \
    "$work/with_hidden" || fail "a hidden symbol is not reported: $(cat "$work/with_hidden")"

  status=0
  "$check" "$work/hidden.cc" 2>"$work/error" || status=$?
  [ "$status" -eq 2 ] || fail "exit status $status for a file that is not an object file"
  status=0
  "$check" "$work/nowhere.o" 2>"$work/error" || status=$?
  [ "$status $(cat "$work/error")" = "2 zuskux-check-platform: $work/nowhere.o cannot be read" ] ||
    fail "status $status for a missing file: $(cat "$work/error")"
}

"$step"
