# What ./run, ./test, ./package, ./bench and .ci/ share: installing packages and building a preset.
# Sourced by bash with $root set to the project's folder.

BUILD_PACKAGES=(g++ cmake ninja-build protobuf-compiler libprotobuf-dev libboost-dev
  libboost-program-options-dev nlohmann-json3-dev robin-map-dev graphviz
  libmnl-dev libxxhash-dev prometheus-cpp-dev)
TEST_PACKAGES=(libgtest-dev libgmock-dev binutils pkgconf python3 valgrind abigail-tools
  systemd zsh fish iproute2 iputils-ping tcpdump)
PACKAGE_PACKAGES=(git dpkg-dev file)
BENCH_PACKAGES=(libbenchmark-dev)
PEER_PACKAGES=(redis-server libhiredis-dev libgrpc++-dev protobuf-compiler-grpc)
# Where a system starts services, installing frr starts it; without a configuration it changes nothing.
KERNEL_PEER_PACKAGES=(frr)
CI_PACKAGES=(clang-14 clang-tidy-14 libclang-rt-14-dev llvm-14)
# Where a system starts services, installing prometheus starts it, on port 9090.
WEB_PACKAGES=(chromium chromium-driver python3-selenium prometheus)
VM_PACKAGES=(qemu-system-x86 busybox-static iproute2 tcpdump)
MUTATION_PACKAGES=(ccache lld)
COVERAGE_PACKAGES=(clang-14 llvm-14 libclang-rt-14-dev gcovr)

# The sources are formatted with this version; other versions format some lines differently. Debian
# 13 does not have it.
FORMATTER=clang-format-14
[ "$(. /etc/os-release && echo "$ID ${VERSION_ID-}")" = 'debian 13' ] || TEST_PACKAGES+=("$FORMATTER")

# install_packages PACKAGE...: installs those that are missing. Concurrent calls wait for each other.
install_packages() {
  local missing=() package
  for package in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0

  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! sudo -n true 2>/dev/null && ! { [ -t 0 ] && sudo -v; }; then
      echo "Some packages are missing. Install them with:" >&2
      echo "  apt-get install ${missing[*]}" >&2
      exit 1
    fi
    as_root=(sudo)
  fi
  echo "Installing ${missing[*]}" >&2
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive sh -c \
    'exec 9>"${TMPDIR:-/tmp}/zuskux-packages.lock"; flock 9
     apt-get update -qq && apt-get install -y -qq --no-install-recommends "$@" >/dev/null' \
    apt "${missing[@]}" >&2
}

# build_preset PRESET TARGET...: configures build/PRESET (every time, since packages may have been
# installed in between) and builds the targets. Silent if everything is up to date. Builds in the
# same folder wait for each other.
build_preset() {
  local preset=$1 path
  local folder=$root/build/$preset log=$root/build/$preset.log lock=$root/build/$preset.lock
  # Presets with the same flags share the objects that ccache keeps, although their folders differ.
  export CCACHE_BASEDIR=$root
  mkdir -p "$root/build"
  for path in "$root/build" "$folder" "$log" "$lock"; do
    if [ -e "$path" ] && [ ! -w "$path" ]; then
      echo "Cannot write $path, which belongs to $(stat -c %U "$path");" \
        "build as that user, or in a clone of your own" >&2
      exit 1
    fi
  done
  (
    flock -n 9 || {
      echo "Waiting for another build in $folder" >&2
      flock 9
    }
    [ -e "$folder/bin" ] || echo "Building ($preset); this takes a few minutes the first time" >&2
    (cd "$root" && cmake --preset "$preset") >"$log" 2>&1 9>&- &&
      cmake --build "$folder" --target "${@:2}" 2>&1 9>&- | tee -a "$log" | show_progress || {
      cat "$log" >&2
      exit 1
    }
  ) 9>"$lock" || exit 1
}

# show_progress <LOG: shows the progress of a build, [DONE/ALL]: immediately on a terminal, else
# every $PROGRESS_INTERVAL seconds.
PROGRESS_INTERVAL=10
show_progress() {
  local line='' progress='' shown=$SECONDS status=0
  while [ "$status" -eq 0 ]; do
    # A timeout may split a line in two.
    local part=''
    IFS= read -r -t 1 part && status=0 || status=$?
    line+=$part
    # A status above 128 is a timeout; any other is the end of the input.
    [ "$status" -gt 128 ] && status=0 || {
      [[ $line =~ ^\[[0-9]+/[0-9]+\] ]] && progress=${BASH_REMATCH[0]}
      line=''
    }
    if [ -z "$progress" ]; then
      continue
    elif [ -t 2 ]; then
      printf '\r%s ' "$progress" >&2
    elif [ $((SECONDS - shown)) -ge "$PROGRESS_INTERVAL" ]; then
      printf '%s\n' "$progress" >&2
      shown=$SECONDS
    fi
  done
  [ -z "$progress" ] || [ ! -t 2 ] || printf '\r\033[K' >&2
}

# our_sources GLOB...: the matching sources under version control.
our_sources() { (cd "$root" && git ls-files -- "$@"); }

# check_format: fails if clang-format would change anything.
check_format() {
  local files
  if ! command -v "$FORMATTER" >/dev/null; then
    echo "Format: not checked, $FORMATTER is not in this release of Debian" >&2
    return
  fi
  mapfile -t files < <(our_sources '*.h' '*.cc')
  (cd "$root" && "$FORMATTER" --dry-run --Werror "${files[@]}")
}
