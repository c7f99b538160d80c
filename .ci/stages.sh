# What .ci/run and .ci/nightly share: their stages. Sourced by bash with $root set to the project's
# folder, after scripts/setup.sh.

# stage WHAT COMMAND [ARG...]: runs the command, and says how long it took. Where it fails, its log
# follows and the run ends.
stage() {
  local what=$1 log=$root/build/stage.log begin=$SECONDS status
  shift
  mkdir -p "$root/build"
  printf '== %s\n' "$what"
  # Neither part of a condition nor ended by its failure: that would change what `set -e` does in it.
  set +e
  (
    set -e
    "$@"
  ) >"$log" 2>&1
  status=$?
  set -e
  if [ "$status" -ne 0 ]; then
    cat "$log" >&2
    printf '== FAILED (%d): %s\n' "$status" "$what" >&2
    exit "$status"
  fi
  printf '   %d min %d s\n' $(((SECONDS - begin) / 60)) $(((SECONDS - begin) % 60))
}

# test_preset PRESET: builds everything and runs every test, the seeds of the fuzzers among them.
test_preset() {
  build_preset "$1" all
  ctest --preset "$1" --no-tests=error -j "$(nproc)"
}

# test_folders PRESET FOLDER...: the same for the test programs of these folders.
test_folders() {
  local preset=$1 folder
  shift
  build_preset "$preset" "${@/%//all}"
  for folder in "$@"; do
    ctest --test-dir "$root/build/$preset/$folder" --no-tests=error --output-on-failure -j "$(nproc)"
  done
}

# tidy ARG... <SOURCES: clang-tidy on each; arguments behind "--" are the compiler's.
tidy() { xargs -P "$(nproc)" -I SOURCE clang-tidy-14 --quiet SOURCE "$@"; }

# lint ARG...: clang-tidy on everything but the tests and the peers of ./bench --peers, which need
# packages.
lint() {
  local schemas=$root/build/lint/platform
  # For the headers that are generated from them.
  build_preset lint platform_hal_schema platform_dest_mng_schema zuskux_{fault,record,site,wire}_schema
  our_sources {src,platform,reference,benchmarks}/'*.cc' ':!*_peer.cc' |
    tidy "$@" -p "$root/build/lint"
  # What build files of their own would say.
  our_sources 'examples/*.cc' |
    tidy "$@" -- -std=c++17 -Iinclude -Iplatform -Iplatform/zlog '-DZLOG_CONF=""' \
      -isystem "$schemas/hal_schema/generated" -isystem "$schemas/dest_manager/generated"
}
