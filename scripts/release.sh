#!/usr/bin/env bash
# make release: the portable binaries (static, one per processor kind) in tarballs with the
# manual page, the README and the perft file, and the Debian packages for amd64, armhf and
# arm64, each checked as it is built. Everything goes to build-release/; the results to
# build-release/dist/. Needs the packages listed in the README's release set-up.
set -euo pipefail
cd "$(dirname "$0")/.."

version=$(sed -n 's/^project(Vorix VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
recorded=$(cat tests/data/bench_signature.txt)
out=build-release
dist=$out/dist
jobs=$(nproc 2>/dev/null || echo 2)
epoch=$(git log -1 --format=%ct 2>/dev/null || date +%s)
sudo=""
[ "$(id -u)" = 0 ] || sudo=sudo

step() { echo; echo "== $* ($(date +%T))"; }
fail() { echo "release: $*" >&2; exit 1; }
signature() { "$@" bench | tail -n 1 | awk '{print $1}'; }
answers_uci() { printf 'uci\nquit\n' | "$@" | grep -qx uciok; }

rm -rf "$out"
mkdir -p "$dist"

step "native x86-64 build: the reference bench signature"
cmake -S . -B "$out/native" -DCMAKE_BUILD_TYPE=Release -DVORIX_TESTS=OFF >/dev/null
cmake --build "$out/native" -j "$jobs" --target vorix >/dev/null
native=$(signature "$out/native/vorix")
echo "native signature: $native"
[ "$native" = "$recorded" ] || fail "the native build's bench gives $native nodes, tests/data/bench_signature.txt $recorded"

# One portable binary: build, check under its emulator (none for x86-64 on x86-64), pack.
flavour() {  # name, C++ compiler or toolchain file, -march (empty: the compiler's default), emulator...
    local name=$1 compiler=$2 march=$3
    shift 3
    local emulator=("$@") dir=$out/$name binary=vorix-$version-linux-$name
    step "$binary"
    local args=(-DCMAKE_BUILD_TYPE=Release -DVORIX_TESTS=OFF "-DVORIX_MARCH=$march" -DVORIX_PERFT_FILE=perft.txt
                "-DCMAKE_EXE_LINKER_FLAGS=-static -s")
    case $compiler in
        *.cmake) args+=("-DCMAKE_TOOLCHAIN_FILE=$compiler") ;;
        *) args+=("-DCMAKE_CXX_COMPILER=$compiler") ;;
    esac
    cmake -S . -B "$dir" "${args[@]}" >/dev/null
    cmake --build "$dir" -j "$jobs" --target vorix >/dev/null
    file -b "$dir/vorix" | grep -q "statically linked" || fail "$binary is not statically linked"
    local sig
    sig=$(signature "${emulator[@]}" "$dir/vorix")
    echo "bench signature: $sig"
    [ "$sig" = "$native" ] || fail "$binary: bench gives $sig nodes, the native build $native"
    answers_uci "${emulator[@]}" "$dir/vorix" || fail "$binary does not answer uci"
    local stage=$dir/stage/$binary
    mkdir -p "$stage"
    cp "$dir/vorix" "$stage/$binary"
    cp docs/vorix.6 README.md tests/data/perft.txt "$stage/"
    tar --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$epoch" -C "$dir/stage" -czf "$dist/$binary.tar.gz" "$binary"
    echo "packed $dist/$binary.tar.gz"
}

# x86-64 with clang, which gives the faster search here (see the README); the ARM builds with
# Debian's gcc cross compilers, for each architecture's baseline (armv7-a with VFPv3-D16 for
# armhf, armv8-a for aarch64).
flavour x86-64 clang++ x86-64
flavour x86-64-v3 clang++ x86-64-v3
flavour armhf cmake/arm-linux-gnueabihf.cmake "" qemu-arm
flavour aarch64 cmake/aarch64-linux-gnu.cmake "" qemu-aarch64

step "the baseline binary uses nothing beyond the x86-64 baseline"
# Our own code, instruction by instruction: no SSE3 and later, no VEX (AVX), no POPCNT, LZCNT,
# BMI or MOVBE.
later='popcnt|lzcnt|tzcnt|andn|bextr|blsi|blsmsk|blsr|bzhi|mulx|pdep|pext|rorx|sarx|shlx|shrx|movbe|crc32|'\
'pshufb|palignr|pabs[bwd]|ph(add|sub)(w|d|sw)|pmaddubsw|pmulhrsw|psign[bwd]|ptest|pblendw|pblendvb|blendv?p[sd]|'\
'dpp[sd]|insertps|extractps|pextr[bdq]|pinsr[bdq]|pm(ax|in)(s[bd]|u[wd])|pmuldq|pmulld|pmov[sz]x[bwd][wdq]|'\
'packusdw|pcmp(eq|gt)q|round[ps][sd]|movntdqa|mpsadbw|phminposuw|pcmp[ei]str[im]|h(add|sub)p[sd]|addsubp[sd]|'\
'movddup|movs[hl]dup|lddqu|fisttp.*|v[a-z0-9]+'
found=$(find "$out/x86-64" -name '*.o' -print0 | xargs -0 objdump -d --no-show-raw-insn |
        awk -F'\t' 'NF >= 2 {split($2, w, " "); print w[1]}' | grep -E -x "$later" | sort | uniq -c || true)
[ -z "$found" ] || fail "later instructions in the baseline build: $found"
echo "objdump: no instruction beyond the baseline in $(find "$out/x86-64" -name '*.o' | wc -l) object files"
# The whole program, libc's own variants included, on a processor model without SSE3, POPCNT
# or AVX; the x86-64-v3 binary must stop there with an illegal instruction, and run on the
# oldest processor of its level.
sig=$(signature qemu-x86_64 -cpu qemu64 "$out/x86-64/vorix")
[ "$sig" = "$native" ] || fail "the baseline binary under qemu-x86_64 -cpu qemu64 gives $sig"
echo "qemu-x86_64 -cpu qemu64: bench signature $sig"
if answers_uci qemu-x86_64 -cpu qemu64 "$out/x86-64-v3/vorix" 2>/dev/null; then
    fail "the x86-64-v3 binary ran on qemu64: the check cannot tell levels apart"
fi
echo "qemu-x86_64 -cpu qemu64: the x86-64-v3 binary stops with an illegal instruction, as it should"
sig=$(signature qemu-x86_64 -cpu Haswell-noTSX "$out/x86-64-v3/vorix" 2>/dev/null)  # warns of features it lacks
[ "$sig" = "$native" ] || fail "the x86-64-v3 binary under qemu-x86_64 -cpu Haswell-noTSX gives $sig"
echo "qemu-x86_64 -cpu Haswell-noTSX: x86-64-v3 bench signature $sig"

step "rtest from an unpacked tarball"
unpacked=$out/unpacked
mkdir -p "$unpacked"
tar -xzf "$dist/vorix-$version-linux-x86-64.tar.gz" -C "$unpacked"
(cd "$unpacked/vorix-$version-linux-x86-64" && printf 'rtest\nquit\n' | "./vorix-$version-linux-x86-64" | tail -n 1) |
    tee "$out/rtest.txt"
grep -qx "Results of the perft checks is OK: 1" "$out/rtest.txt" || fail "rtest failed in the unpacked tarball"

step "Debian packages"
source=$out/deb/vorix-$version
mkdir -p "$source"
git ls-files -co --exclude-standard | tar -cf - -T - | tar -xf - -C "$source"
(cd "$source" && dpkg-buildpackage -b -us -uc >"../build-amd64.log" 2>&1) || fail "amd64 package: see $out/deb/build-amd64.log"
for arch in armhf arm64; do
    (cd "$source" && dpkg-buildpackage -b -us -uc -a"$arch" -Pcross,nocheck >"../build-$arch.log" 2>&1) ||
        fail "$arch package: see $out/deb/build-$arch.log"
done
declare -A emulators=([amd64]="" [armhf]=qemu-arm [arm64]=qemu-aarch64)
for arch in amd64 armhf arm64; do
    deb=vorix_$version-1_$arch.deb
    cp "$out/deb/$deb" "$dist/"
    lintian --fail-on error "$dist/$deb" | tee "$out/lintian-$arch.txt" ||
        fail "lintian reports errors on $deb"
    echo "lintian $deb: $(grep -c '^E:' "$out/lintian-$arch.txt" || true) errors, $(grep -c '^W:' "$out/lintian-$arch.txt" || true) warnings"
    # The packaged program (dynamically linked, against this machine's multiarch libraries).
    rm -rf "$out/deb/x-$arch"
    dpkg-deb -x "$dist/$deb" "$out/deb/x-$arch"
    sig=$(signature ${emulators[$arch]} "$out/deb/x-$arch/usr/games/vorix")
    [ "$sig" = "$native" ] || fail "$deb: bench gives $sig"
    echo "$deb: /usr/games/vorix bench signature $sig"
done

step "install the amd64 package, use it, remove it"
deb=$dist/vorix_$version-1_amd64.deb
listed=$(dpkg-deb -c "$deb" | awk '{print substr($6, 2)}' | grep -E 'vorix' )
$sudo apt-get install -y -qq "./$deb" >/dev/null
sig=$(signature /usr/games/vorix)
[ "$sig" = "$native" ] || fail "installed /usr/games/vorix: bench gives $sig"
page=$(man -w vorix)
echo "installed: /usr/games/vorix bench $sig, manual page $page"
[ "$page" = /usr/share/man/man6/vorix.6.gz ] || fail "man -w vorix gives $page"
$sudo apt-get purge -y -qq vorix >/dev/null
if dpkg -s vorix >/dev/null 2>&1; then fail "vorix is still installed after the purge"; fi
left=""
for path in $listed; do [ -e "$path" ] && left="$left $path"; done
[ -z "$left" ] || fail "left behind after the purge:$left"
echo "removed: none of the package's $(echo "$listed" | wc -l) paths is left"

step "done"
ls -l "$dist"
