# What ./run, ./test, ./package, ./bench and .ci/ share: the packages that are needed, and building a
# preset. Sourced by bash with $root set to the project's folder.

BUILD_PACKAGES=(g++ cmake ninja-build protobuf-compiler libprotobuf-dev libboost-dev
  libboost-program-options-dev nlohmann-json3-dev robin-map-dev graphviz)
TEST_PACKAGES=(libgtest-dev libgmock-dev binutils clang-format-14 pkgconf python3 valgrind
  abigail-tools)
PACKAGE_PACKAGES=(git dpkg-dev file)
BENCH_PACKAGES=(libbenchmark-dev)
PEER_PACKAGES=(redis-server libhiredis-dev libgrpc++-dev protobuf-compiler-grpc)
CI_PACKAGES=(clang-14 clang-tidy-14 libclang-rt-14-dev llvm-14)
COVERAGE_PACKAGES=(clang-14 llvm-14 libclang-rt-14-dev gcovr)

# install_packages PACKAGE...: installs what is missing of them.
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
    'apt-get update -qq && apt-get install -y -qq --no-install-recommends "$@" >/dev/null' \
    apt "${missing[@]}" >&2
}

# build_preset PRESET TARGET...: configures build/PRESET (again each time, since packages may have been
# installed in between) and brings the targets up to date. Quiet when all is well.
build_preset() {
  local log="$root/build/$1.log"
  mkdir -p "$root/build"
  [ -e "$root/build/$1/bin" ] || echo "Building ($1); this takes a few minutes the first time" >&2
  {
    (cd "$root" && cmake --preset "$1") && cmake --build "$root/build/$1" --target "${@:2}"
  } >"$log" 2>&1 || {
    cat "$log" >&2
    exit 1
  }
}

# our_sources GLOB...: the sources under version control that match.
our_sources() { (cd "$root" && git ls-files -- "$@"); }

# check_format: fails where clang-format would change something.
check_format() {
  local files
  mapfile -t files < <(our_sources '*.h' '*.cc')
  (cd "$root" && clang-format-14 --dry-run --Werror "${files[@]}")
}
