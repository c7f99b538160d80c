#!/usr/bin/env bash
# Builds the library with the skeleton of a vendor's platform, and looks at what the skeleton defines:
# everything but the handlers, which belong to the host program.
#
#   vendor_platform_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
export LC_ALL=C

source=$1
check=$2/install/zuskux-check-platform
build=$2/vendor_platform_test
rm -rf "$build"
mkdir -p "$build"

cmake -S "$source" -B "$build" -G Ninja -DCMAKE_CXX_COMPILER="${CXX:-g++}" \
  -DZUSKUX_PLATFORM_DIR="$source/examples/vendor_platform" -DZUSKUX_BUILD_REFERENCE=OFF \
  -DZUSKUX_BUILD_TESTS=OFF >"$build/log"
for folder in app_framework dest_manager hal_client interface_ids; do
  grep -qF "Platform: $folder from $source/examples/vendor_platform/$folder" "$build/log" ||
    { echo "the skeleton's $folder is not used" >&2; exit 1; }
done
cmake --build "$build" >"$build/log" || { cat "$build/log" >&2; exit 1; }

mapfile -t objects < <(find "$build/platform" -path '*_standin.dir/*' -name '*.o')
"$check" --library "$build/lib/libzuskux.so" "${objects[@]}" >"$build/report" || true
sed -nE 's/^(missing|hidden) +([^ ].*)  \([^()]*\)$/U \2/p' "$build/report" | sort >"$build/missing"
grep -E '^U dest_mng::(MessageController|VrfController)' \
  "$source/tests/system/symbols_left_undefined.txt" | sort >"$build/handlers"
diff -u --label 'the handlers' --label 'what the skeleton lacks' "$build/handlers" "$build/missing"
