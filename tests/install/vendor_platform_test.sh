#!/usr/bin/env bash
# Builds the library with a vendor's platform, as examples/vendor_platform/README.md describes: the
# skeleton, plus a header in a subfolder and a package of the vendor with the definitions of one
# folder. Then installs it and builds a host program with it.
#
#     vendor_platform_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
export LC_ALL=C

source=$1
check=$2/install/zuskux-check-platform
work=$2/vendor_platform_test
build=$work/build
platform=$work/platform
package=$work/vendor_ids
prefix=$work/prefix
rm -rf "$work"
mkdir -p "$work"

fail() {
  echo "vendor_platform_test: $1" >&2
  exit 1
}

configure() {
  (cd "$source" && cmake --preset vendor -B "$build" -DCMAKE_CXX_COMPILER="${CXX:-g++}" \
    -DCMAKE_CXX_FLAGS_RELEASE= -DCMAKE_PREFIX_PATH="$package" "$@") >"$work/log" 2>&1
}

# refuses FOLDER TEXT: checks that the configuration fails with TEXT.
refuses() {
  if configure ${1:+-DZUSKUX_PLATFORM_DIR="$1"}; then fail "$1 is accepted"; fi
  # CMake wraps its messages.
  tr -s '[:space:]' ' ' <"$work/log" | grep -qF "$2" || fail "$1: no \"$2\" in: $(cat "$work/log")"
}

# refuses_line LINE TEXT: the same for a platform whose interface_ids/CMakeLists.txt is LINE.
refuses_line() {
  mkdir -p "$work/line/interface_ids"
  echo "$1" >"$work/line/interface_ids/CMakeLists.txt"
  refuses "$work/line" "$2"
}

mkdir -p "$work/empty" "$work/mistyped/hal_cleint" "$work/bare/hal_client"
touch "$work/mistyped/hal_cleint/CMakeLists.txt"
refuses '' 'ZUSKUX_PLATFORM_DIR is not set'
refuses "$work/nowhere" "$work/nowhere, which is not a folder"
refuses "$work/empty" 'has none of these folders: app_framework, hal_schema, hal_client'
refuses "$work/mistyped" 'hal_cleint replaces nothing'
refuses "$work/bare" 'hal_client has no CMakeLists.txt'
refuses_line 'zuskux_platform_interface(interface_id)' \
  'zuskux_platform_interface(interface_id) is in the folder interface_ids'
refuses_line 'zuskux_platform_interface(interface_ids vendor::ids)' \
  'zuskux_platform_interface does not take "vendor::ids"'
refuses_line 'zuskux_platform_requires(Threads MODULE ids)' \
  'zuskux_platform_requires does not take "MODULE ids"'

# The vendor's package: headers and an imported target, which is a library with definitions.
mkdir -p "$package/include/vendor_ids" "$package/lib/cmake/vendor_ids" "$package/lib/pkgconfig"
echo 'using VendorIndex = unsigned int;' >"$package/include/vendor_ids/index.h"
cat >"$package/lib/cmake/vendor_ids/vendor_ids-config.cmake" <<'END'
if(NOT vendor_ids_FIND_COMPONENTS STREQUAL ids)
  set(vendor_ids_FOUND OFF)
endif()
add_library(vendor::ids SHARED IMPORTED)
set_target_properties(vendor::ids PROPERTIES
  IMPORTED_LOCATION ${CMAKE_CURRENT_LIST_DIR}/../../libvendor_ids.so
  INTERFACE_INCLUDE_DIRECTORIES ${CMAKE_CURRENT_LIST_DIR}/../../../include)
END
echo 'set(PACKAGE_VERSION 2.1)
set(PACKAGE_VERSION_EXACT ON)' >"$package/lib/cmake/vendor_ids/vendor_ids-config-version.cmake"
cat >"$package/lib/pkgconfig/vendor_ids.pc" <<'END'
Name: vendor_ids
Description: The vendor's interface ids
Version: 2.1
Cflags: -I${pcfiledir}/../../include
Libs: -L${pcfiledir}/.. -lvendor_ids
END

cp -r "$source/examples/vendor_platform" "$platform"
mkdir "$platform/interface_ids/detail"
cat >"$platform/interface_ids/CMakeLists.txt" <<'END'
zuskux_platform_requires(vendor_ids VERSION 2.1 COMPONENTS ids PKG_CONFIG vendor_ids)
zuskux_platform_interface(interface_ids DEPENDS vendor::ids)
END
echo '#include <vendor_ids/index.h>' >"$platform/interface_ids/detail/index.hpp"
sed 's|^#include <cstddef>|#include "interface_ids/detail/index.hpp"\n&|' \
  "$source/platform/interface_ids/lim_id.h" >"$platform/interface_ids/lim_id.h"
cp "$source/platform/interface_ids/mac_addr.h" "$platform/interface_ids"
"${CXX:-g++}" -std=c++17 -shared -fPIC -I"$platform" -I"$package/include" \
  "$platform/interface_ids/interface_ids.cc" -o "$package/lib/libvendor_ids.so"

configure -DZUSKUX_PLATFORM_DIR="$platform" || fail "$(cat "$work/log")"
for folder in app_framework dest_manager hal_client interface_ids; do
  grep -qF "Platform: $folder from $platform/$folder" "$work/log" ||
    fail "the vendor's $folder is not used"
done
# The vendor has both headers of interface_ids and none of app_framework.
grep -A1 -F 'Platform: app_framework' "$work/log" |
  grep -qxF -- '--   and from platform/: app_message.h, message_controller.h, strategy.h' ||
  fail "the headers that the vendor lacks are not named: $(cat "$work/log")"
! grep -A1 -F 'Platform: interface_ids' "$work/log" | grep -F 'and from' ||
  fail 'headers that the vendor has are named as missing'
# Packages of this build are those of the library.
grep -qx 'set(CPACK_COMPONENTS_ALL "runtime;development")' "$build/CPackConfig.cmake" ||
  fail "a package would be empty: $(grep COMPONENTS_ALL "$build/CPackConfig.cmake")"
layout_tests=(layout_test table_test virtual_tables_test)
cmake --build "$build" --target src/all platform_{app_framework,dest_manager,hal_client}_standin \
  "${layout_tests[@]}" >"$work/log" || fail "$(cat "$work/log")"
# ctest runs their tests one by one, or the whole programs if they are emulated.
ctest --test-dir "$build" --no-tests=error \
  -R 'LayoutTest|VirtualTableTest|ResultTableTest|ClientTableTest|^(layout|table|virtual_tables)_test$' \
  >"$work/log" || fail "the vendor's headers have another layout: $(cat "$work/log")"

# The skeleton and the vendor's library, which the library loads, define everything except the
# handlers, which belong to the host program.
mapfile -t objects < <(find "$build/platform" -path '*_standin.dir/*' -name '*.o')
"$check" --library "$build/lib/libzuskux.so" "${objects[@]}" >"$work/report" || true
sed -nE 's/^(missing|hidden) +([^ ].*)  \([^()]*\)$/U \2/p' "$work/report" | sort >"$work/missing"
grep -E '^U dest_mng::(MessageController|VrfController)' \
  "$source/tests/system/symbols_left_undefined.txt" | sort >"$work/handlers"
diff -u --label 'the handlers' --label 'what the skeleton lacks' "$work/handlers" "$work/missing"

# The installed package includes the vendor's headers and finds the vendor's package.
for component in runtime development; do
  cmake --install "$build" --prefix "$prefix" --component "$component" >"$work/log"
done
(cd "$prefix/include/zuskux/platform/interface_ids" && find . -type f | sort) >"$work/headers"
printf './%s\n' detail/index.hpp lim_id.h mac_addr.h |
  diff -u --label 'the headers of interface_ids' --label 'what is installed' - "$work/headers"
# The package raises the host's own, older standard.
cmake -S "$source/examples/host" -B "$work/host" -G Ninja -Dzuskux_ROOT="$prefix" \
  -DCMAKE_PREFIX_PATH="$package" -DCMAKE_CXX_COMPILER="${CXX:-g++}" -DCMAKE_CXX_STANDARD=14 >"$work/log"
cmake --build "$work/host" >>"$work/log" || fail "a host does not build: $(cat "$work/log")"
"$work/host/host" >"$work/host_output" 2>"$work/host_trace"
diff -u "$source/tests/install/host_output.txt" "$work/host_output"

export PKG_CONFIG_PATH=$prefix/lib/pkgconfig:$package/lib/pkgconfig
PKG_CONFIG_PATH+=:$(dirname "$(find "$prefix" -name zuskux.pc)")
pkg-config --print-requires zuskux >"$work/requires"
printf '%s\n' protobuf 'vendor_ids >= 2.1' | diff -u - "$work/requires"
read -ra cflags <<<"$(pkg-config --cflags zuskux)"
printf '#include "interface_ids/lim_id.h"\nVendorIndex index = 0;\n' >"$work/index.cc"
"${CXX:-g++}" -std=c++17 -fsyntax-only "${cflags[@]}" "$work/index.cc" ||
  fail 'the flags of pkg-config do not find the vendor'\''s headers'
