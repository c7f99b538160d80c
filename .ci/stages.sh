# The stages that .ci/run and .ci/nightly share. Sourced by bash after scripts/setup.sh, with $root
# set to the project's folder.

# stage NAME COMMAND [ARG...]: runs the command and prints how long it took, and what the command
# writes to descriptor 3. On failure, prints its log and ends the run.
stage() {
  local what=$1 log=$root/build/stage.log begin=$SECONDS status
  shift
  mkdir -p "$root/build"
  printf '== %s\n' "$what"
  # `set -e` must work inside, so the subshell must not be part of a condition; `set +e` keeps its
  # failure from ending this shell.
  set +e
  (
    set -e
    "$@"
  ) 3>&1 >"$log" 2>&1
  status=$?
  set -e
  if [ "$status" -ne 0 ]; then
    cat "$log" >&2
    printf '== FAILED (%d): %s\n' "$status" "$what" >&2
    exit "$status"
  fi
  printf '   %d min %d s\n' $(((SECONDS - begin) / 60)) $(((SECONDS - begin) % 60))
}

# Tests at a time. Many of them wait most of their time.
test_jobs() { echo $(($(nproc) + 1)); }

# test_preset PRESET: builds everything and runs every test, including the fuzzers' seeds.
test_preset() {
  build_preset "$1" all
  ctest --preset "$1" --no-tests=error -j "$(test_jobs)"
}

# test_folders PRESET FOLDER...: the same for the test programs of these folders.
test_folders() {
  local preset=$1 folder
  shift
  build_preset "$preset" "${@/%//all}"
  for folder in "$@"; do
    ctest --test-dir "$root/build/$preset/$folder" --no-tests=error --output-on-failure -j "$(test_jobs)"
  done
}

# linux_tests: runs the tests that program a kernel: first on this system's kernel, which may lack
# features that they need, then in a virtual machine, whose kernel has them.
linux_tests() {
  local bin=$root/build/development/bin test
  local names=(packets_test linux_kernel_test conformance_test faults_test)
  local tests=("${names[@]/#/$bin/}")
  build_preset development "${names[@]}" zuskux-hal zuskux-manager
  "$root/tests/linux/vm_test.sh" --boot
  for test in "${tests[@]}"; do
    "$test" | tee "$root/build/linux_tests.log"
    sed -n "s/^\[  SKIPPED \] \(.*\), listed below:$/   ${test##*/}: \1 skipped on this kernel/p" \
      "$root/build/linux_tests.log" >&3
  done
  in_machine --timeout 1200 --with "$(type -P ping)" --with "$root/examples/linux" \
    env ZUSKUX_SKIP_NOTHING=1 \
    bash -c '"$1" "$2" "$3" && "$4" "$3" --few && for test in "${@:5}"; do "$test" || exit; done' bash \
    "$root/tests/linux/example_test.sh" "$root" "$bin" "$root/tests/linux/restarts_test.py" "${tests[@]}"
}

# restarts_in_machine: packets through restarts and site changes, with VRFs and MPLS; takes an hour.
restarts_in_machine() {
  build_preset development zuskux-hal zuskux-manager
  in_machine --timeout 7200 env ZUSKUX_SKIP_NOTHING=1 "$root/tests/linux/restarts_test.py" \
    "$root/build/development/bin" --long
}

# in_machine ARG...: tests/linux/vm with both programs, and with what tests/linux/restarts_test.py needs.
in_machine() {
  local bin=$root/build/development/bin file with=()
  while IFS= read -r file; do
    with+=(--with "$file")
  done < <(PYTHONPATH=$root/tests/linux /usr/bin/python3 -B -c '
import os, sys, restarts_test
for module in list(sys.modules.values()):
    # Its source, and the same compiled.
    for path in (getattr(module, "__file__", None), getattr(module, "__cached__", None)):
        if path and os.path.exists(path): print(path)' "$bin")
  "$root/tests/linux/vm" --with /usr/bin/python3 "${with[@]}" --with "$bin/zuskux-hal" \
    --with "$bin/zuskux-manager" "$@"
}

# web_tests: the page in a browser, and a Prometheus that scrapes both programs.
web_tests() {
  install_packages "${WEB_PACKAGES[@]}"
  build_preset development zuskux-manager zuskux-hal zuskux-generate-site
  ctest --test-dir "$root/build/development" -C web -L web --no-tests=error --verbose -j "$(nproc)" |
    tee "$root/build/web_tests.log"
  sed -n 's/^[0-9]*: measured: /   /p' "$root/build/web_tests.log" >&3
}

# tidy ARG... <SOURCES: runs clang-tidy on each source. Arguments after "--" go to the compiler.
tidy() { xargs -P "$(nproc)" -I SOURCE clang-tidy-14 --quiet SOURCE "$@"; }

# lint ARG...: runs clang-tidy on everything except the tests and the peers of ./bench --peers,
# which need extra packages.
lint() {
  local schemas=$root/build/lint/platform
  # Generates the headers that the sources include.
  build_preset lint platform_hal_schema platform_dest_mng_schema zuskux_{fault,record,site,wire}_schema \
    zuskux_page_contents
  our_sources {src,platform,reference,benchmarks}/'*.cc' ':!*_peer.cc' |
    tidy "$@" -p "$root/build/lint"
  # No build of ours compiles these, so the compiler's arguments are given here.
  our_sources 'examples/*.cc' |
    tidy "$@" -- -std=c++17 -Iinclude -Iplatform -Iplatform/zlog '-DZLOG_CONF=""' \
      -isystem "$schemas/hal_schema/generated" -isystem "$schemas/dest_manager/generated"
}
