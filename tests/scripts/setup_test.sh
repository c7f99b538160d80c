#!/usr/bin/env bash
# Checks what ./run and ./test promise about building, with a fake cmake that only records its
# calls.
#
#     setup_test.sh SOURCES
set -euo pipefail

sources=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export work

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# The fake build takes a while, writes ninja's output, and fails if $work/broken exists.
mkdir "$work/bin"
cat >"$work/bin/cmake" <<'CMAKE'
#!/usr/bin/env bash
if [ "$1" = --preset ]; then
  echo "configured for $CALLER"
  exit
fi
echo "begin $CALLER" >>"$work/calls"
for done in 1 2 3; do
  echo "[$done/3] Building for $CALLER"
  sleep 0.2
done
echo "end $CALLER" >>"$work/calls"
[ ! -e "$work/broken" ] || { echo "error for $CALLER"; exit 1; }
CMAKE
chmod +x "$work/bin/cmake"
export PATH=$work/bin:$PATH

# build CALLER [SETUP...]: builds in the tree $work/tree, after running SETUP.
build() {
  CALLER=$1 root=$work/tree bash -c '
    set -euo pipefail
    . "$1/scripts/setup.sh"
    ${2:+eval "$2"}
    build_preset release program' build "$sources" "${2-}"
}

mkdir "$work/tree"
build one 2>"$work/one" & first=$!
build two 2>"$work/two" & second=$!
wait "$first"
wait "$second"
awk 'NR % 2 { begun = $2; if ($1 != "begin") exit 1 }
     NR % 2 == 0 && ($1 != "end" || $2 != begun) { exit 1 }' "$work/calls" ||
  fail "two builds at once: $(cat "$work/calls")"
[ "$(wc -l <"$work/calls")" -eq 4 ] || fail "not both were built: $(cat "$work/calls")"
cat "$work/one" "$work/two" | grep -qx "Waiting for another build in $work/tree/build/release" ||
  fail 'the second build does not say that it waits'

mkdir -p "$work/tree/build/release/bin"
build three 2>"$work/three"
[ ! -s "$work/three" ] || fail "a short build is not quiet: $(cat "$work/three")"
build four PROGRESS_INTERVAL=0 2>"$work/four"
[ "$(tail -n 1 "$work/four")" = '[3/3]' ] || fail "no progress: $(cat "$work/four")"

touch "$work/broken"
if build five 2>"$work/five"; then fail 'a broken build succeeds'; fi
grep -qx 'error for five' "$work/five" || fail "no log of the broken build: $(cat "$work/five")"
! grep -E 'one|two|three|four' "$work/five" || fail 'the log of an older build'

# Two commands that find packages missing at the same time.
if [ "$(id -u)" -eq 0 ]; then
  printf '#!/bin/sh\nexit 1\n' >"$work/bin/dpkg-query"
  cat >"$work/bin/apt-get" <<'APT'
#!/usr/bin/env bash
mkdir "$work/apt" || exit 1
sleep 0.2
rmdir "$work/apt"
APT
  chmod +x "$work/bin/dpkg-query" "$work/bin/apt-get"
  installers=()
  for installer in first second; do
    root=$work/tree TMPDIR=$work bash -c '. "$1/scripts/setup.sh"; install_packages some' \
      install "$sources" 2>"$work/$installer" &
    installers+=($!)
  done
  for installer in "${installers[@]}"; do
    wait "$installer" || fail "two installations at once: $(cat "$work/first" "$work/second")"
  done
fi

# Another user, who may read the tree.
if [ "$(id -u)" -eq 0 ]; then
  chmod 755 "$work"
  cp "$sources/scripts/setup.sh" "$work"
  if CALLER=six root=$work/tree setpriv --reuid=65534 --regid=65534 --clear-groups bash -c '
    set -euo pipefail
    . "$1"
    build_preset release program' build "$work/setup.sh" 2>"$work/six"; then
    fail 'another user can build'
  fi
  [ "$(cat "$work/six")" = "Cannot write $work/tree/build, which belongs to root;\
 build as that user, or in a clone of your own" ] ||
    fail "the error for another user: $(cat "$work/six")"
fi
echo 'all checks passed'
