#!/usr/bin/env bash
# Builds and runs tests/consumer/example.c (the README's example) every way a user gets the
# library, from a Release build of the library and the tool with prefix /usr:
#   package        build, `cmake --install` into a temporary prefix, `cpack -G DEB`
#   deb-contents   files, dependencies and descriptions of the three packages (dpkg-deb -c, -I)
#   find-package   find_package(vantor) against the temporary prefix
#   pkg-config     a plain compiler command with `pkg-config --cflags --libs vantor`
#   subdirectory   this source tree added with add_subdirectory (tests and tool must stay off)
#   deb-*          the packages unpacked into a temporary root: find_package, pkg-config, the tool,
#                  the Python package installed by pip and loading the packaged libvantor.so.0
#   android-log    the library built against Debian's liblog: its lines must reach liblog's output
# One line per check, then "consumer: N passed, N failed"; exits 1 if any failed.
# Everything goes to $VANTOR_BUILD_ROOT/consumer (default build/consumer), made anew.
set -uo pipefail
cd "$(dirname "$0")/.."
src=$PWD
out=$(realpath -m "${VANTOR_BUILD_ROOT:-build}/consumer")
rm -rf "$out" && mkdir -p "$out"
version=$(sed -n 's/^project(vantor VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
prefix=$out/prefix debroot=$out/debroot deblib=$out/debroot/usr/lib/$multiarch
passed=0 failed=0

check() {  # name command...: one check, its output in $out/name.log
    local name=$1
    shift
    if "$@" >"$out/$name.log" 2>&1; then
        passed=$((passed + 1))
        echo "consumer: $name ok"
    else
        failed=$((failed + 1))
        echo "consumer: $name FAILED ($out/$name.log)"
        tail -n 30 "$out/$name.log"
    fi
}

package() {
    cmake -S . -B "$out/lib" -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
        -DVANTOR_TESTS=OFF -DVANTOR_BENCH=OFF -DVANTOR_GST=OFF &&
        cmake --build "$out/lib" -j 2 &&
        cmake --install "$out/lib" --prefix "$prefix" &&
        (cd "$out/lib" && cpack -G DEB) &&
        ! find "$prefix" -name '*.a' | grep . &&
        for deb in "$out"/lib/*.deb; do dpkg-deb -x "$deb" "$debroot" || return 1; done
}

expect() {  # package pattern...: each pattern must match a line of its dpkg-deb -c or -I
    local deb=$out/lib/$1_${version}_$(dpkg --print-architecture).deb listing p
    shift
    listing=$(dpkg-deb -c "$deb" && dpkg-deb -I "$deb") || return 1
    echo "$listing"
    for p in "$@"; do
        grep -qE -- "$p" <<<"$listing" || { echo "$deb: nothing matches '$p'"; return 1; }
    done
}

deb_contents() {
    local lib="usr/lib/$multiarch" v=${version//./\\.}
    local same="libvantor0 \\(= $v\\)"
    expect libvantor0 "$lib/libvantor\.so\.$v$" "$lib/libvantor\.so\.0 -> libvantor\.so\.$v" \
        'Depends: libc6' 'Section: libs' &&
        ! dpkg-deb -c "$out"/lib/libvantor0_*.deb |
            grep -E 'libvantor\.so -> |include|cmake|\.a$' &&
        ! dpkg-deb -c "$out"/lib/libvantor-dev_*.deb | grep -E '\.a$|/libvantor\.so\.' &&
        expect libvantor-dev "Depends: $same$" 'usr/include/vantor/vantor\.h$' \
            'usr/include/vantor/vantor_ext\.h$' 'usr/include/vantor/vantor_kernels\.h$' \
            "$lib/libvantor\.so -> libvantor\.so\.0$" "$lib/cmake/vantor/vantor-config\.cmake$" \
            "$lib/cmake/vantor/vantor-config-version\.cmake$" "$lib/pkgconfig/vantor\.pc$" &&
        expect vantor-tools 'usr/bin/vantor$' "Depends: $same, .*libyuv0" 'Depends: .*libpng16' \
            'Depends: .*libjpeg'
}

cmake_consumer() {  # directory [cmake arguments]: configures, builds and runs the example
    local dir=$out/$1
    shift
    cmake -S tests/consumer -B "$dir" -DCMAKE_BUILD_TYPE=Release "$@" &&
        cmake --build "$dir" -j 2 && "$dir/example"
}

pkg_config_consumer() {  # name libdir [VARIABLE=value...]: builds with pkg-config's flags, runs
    local bin=$out/$1 libdir=$2 flags
    shift 2
    flags=$(env "$@" pkg-config --cflags --libs vantor) && echo "flags: $flags" &&
        cc -std=c99 -O2 -Wall -Werror tests/consumer/example.c $flags -lm -o "$bin" &&
        LD_LIBRARY_PATH=$libdir "$bin"
}

subdirectory() {
    cmake_consumer subdirectory -DVANTOR_SOURCE_DIR="$src" &&
        ! find "$out/subdirectory" -name '*.a' | grep .
}

deb_tool() {  # the packaged tool on one small raw frame
    head -c $((224 * 98 * 3 / 2)) /dev/urandom >"$out/in.nv21" &&
        LD_LIBRARY_PATH=$deblib "$debroot/usr/bin/vantor" denoise -s 224x98 "$out/in.nv21" \
            "$out/out.nv21" && [ "$(stat -c %s "$out/out.nv21")" -eq $((224 * 98 * 3 / 2)) ]
}

android_log() {
    local dir=$out/android
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Release -DVANTOR_ANDROID_LOG=ON -DVANTOR_TESTS=OFF \
        -DVANTOR_BENCH=OFF -DVANTOR_TOOLS=OFF && cmake --build "$dir" -j 2 --target vantor &&
        readelf -d "$dir/libvantor.so" | grep -E 'NEEDED.*\[liblog\.so' &&
        ! nm -D --defined-only "$dir/libvantor.so" | grep __android_log_print &&
        cc -std=c99 -Wall -Werror -Iinclude tests/consumer/log_smoke.c -L"$dir" -lvantor \
            -Wl,-rpath,"$dir" -o "$dir/log_smoke" &&
        "$dir/log_smoke" 2>"$dir/stderr" && cat "$dir/stderr" &&
        grep -E '^vantor E .*unsupported width' "$dir/stderr" &&
        grep -E '^vantor I .*vantor_init, handle' "$dir/stderr"
}

start=$SECONDS
check package package
check deb-contents deb_contents
check find-package cmake_consumer find-package -DCMAKE_PREFIX_PATH="$prefix"
check pkg-config pkg_config_consumer pkg-config "$prefix/lib/$multiarch" \
    PKG_CONFIG_PATH="$prefix/lib/$multiarch/pkgconfig"
check subdirectory subdirectory
check deb-find-package cmake_consumer deb-find-package -DCMAKE_PREFIX_PATH="$debroot/usr"
check deb-pkg-config pkg_config_consumer deb-pkg-config "$deblib" \
    PKG_CONFIG_PATH="$deblib/pkgconfig" PKG_CONFIG_SYSROOT_DIR="$debroot"
check deb-tool deb_tool
# Further checks against the unpacked packages go here: $debroot holds them, $deblib is the
# library directory (for LD_LIBRARY_PATH) and $debroot/usr/bin/vantor the tool.
check deb-python env -u VANTOR_LIBRARY LD_LIBRARY_PATH="$deblib" PYTHONDONTWRITEBYTECODE=1 \
    VANTOR_TOOL="$debroot/usr/bin/vantor" \
    sh tests/python/run_installed.sh /usr/bin/python3 python tests/python test_package
check android-log android_log

echo "consumer: $((SECONDS - start)) s"
echo "consumer: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
