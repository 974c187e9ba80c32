# Thin wrapper over CMake so the usual targets work. Build folders are build-<flavour>.
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE ?= cmake
SHARED ?= $(abspath ../shared)

.PHONY: all build install run test bench pgo release texel-bench tb-bench smp-bench debug sanitize tsan arm arm-test arm64 arm64-test fuzz protocol-fuzz format perft-bench nps-bench clean help

all: build

build:
	$(CMAKE) -S . -B build -DCMAKE_BUILD_TYPE=Release -DVORIX_TESTS=ON -DVORIX_SHARED_DIR=$(SHARED) >/dev/null
	$(CMAKE) --build build -j $(JOBS)

# make install [PREFIX=/usr/local] [DESTDIR=...]: the program in bin/, its manual page in
# share/man/man6/.
PREFIX ?= /usr/local
install: build
	$(CMAKE) --install build --prefix $(PREFIX)

run: build
	./build/vorix

test: build
	cd build && ctest --output-on-failure -j $(JOBS)

bench: build
	./build/vorix bench

texel-bench: build
	./build/tests/texel_bench

tb-bench: build
	./build/tests/fathom_bench

smp-bench: build
	python3 scripts/smp_bench.py ./build/vorix

debug:
	$(CMAKE) -S . -B build-debug -DCMAKE_BUILD_TYPE=Debug -DVORIX_SHARED_DIR=$(SHARED) >/dev/null
	$(CMAKE) --build build-debug -j $(JOBS)

sanitize:
	$(CMAKE) -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DVORIX_SANITIZE=address,undefined -DVORIX_WERROR=ON -DVORIX_SHARED_DIR=$(SHARED) >/dev/null
	$(CMAKE) --build build-asan -j $(JOBS)
	cd build-asan && ctest --output-on-failure -j $(JOBS)

tsan:
	$(CMAKE) -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORIX_SANITIZE=thread -DVORIX_SHARED_DIR=$(SHARED) >/dev/null
	$(CMAKE) --build build-tsan -j $(JOBS) --target vorix

# Cross builds for ARM Linux, static, run under qemu; rtest there uses the short perft file.
CROSS_FLAGS = -DCMAKE_BUILD_TYPE=Release -DVORIX_WERROR=ON -DVORIX_SHARED_DIR=$(SHARED) \
	-DVORIX_PERFT_FILE=$(abspath tests/data/short/perft.txt)

# Profile-guided build in build-pgo/ (gcc, or clang with CXX=clang++), trained on bench; the
# trained program must search exactly as the plain one.
pgo:
	rm -rf build-pgo
	$(CMAKE) -S . -B build-pgo -DCMAKE_BUILD_TYPE=Release -DVORIX_TESTS=OFF -DVORIX_PGO=GENERATE >/dev/null
	$(CMAKE) --build build-pgo -j $(JOBS) --target vorix
	./build-pgo/vorix bench >/dev/null
	$(CMAKE) -S . -B build-pgo -DVORIX_PGO=USE >/dev/null
	$(CMAKE) --build build-pgo -j $(JOBS) --target vorix
	@sig=$$(./build-pgo/vorix bench | tail -n 1 | awk '{print $$1}'); \
	 if [ "$$sig" != "$$(cat tests/data/bench_signature.txt)" ]; then echo "pgo: bench signature $$sig differs"; exit 1; fi; \
	 echo "build-pgo/vorix: bench signature $$sig"

# Portable static binaries per processor kind and the Debian packages, all checked, in
# build-release/dist/ (set-up in the README).
release:
	scripts/release.sh

arm:
	$(CMAKE) -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake $(CROSS_FLAGS) >/dev/null
	$(CMAKE) --build build-arm -j $(JOBS)

arm-test: arm
	cd build-arm && ctest --output-on-failure -j $(JOBS)

arm64:
	$(CMAKE) -S . -B build-arm64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake $(CROSS_FLAGS) >/dev/null
	$(CMAKE) --build build-arm64 -j $(JOBS)

arm64-test: arm64
	cd build-arm64 && ctest --output-on-failure -j $(JOBS)

fuzz:
	CXX=clang++ $(CMAKE) -S . -B build-fuzz -DCMAKE_BUILD_TYPE=Debug -DVORIX_FUZZ=ON -DVORIX_TESTS=OFF \
		-DVORIX_SANITIZE=address,undefined >/dev/null
	$(CMAKE) --build build-fuzz -j $(JOBS) --target vorix_fuzz

# The protocol fuzzer against the sanitizer build of the engine.
FUZZ_SECONDS ?= 600
protocol-fuzz:
	$(CMAKE) -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DVORIX_SANITIZE=address,undefined -DVORIX_WERROR=ON -DVORIX_SHARED_DIR=$(SHARED) >/dev/null
	$(CMAKE) --build build-asan -j $(JOBS) --target vorix
	python3 scripts/protocol_fuzz.py build-asan/vorix --seconds $(FUZZ_SECONDS)

perft-bench: build
	python3 scripts/perft_bench.py ./build/vorix

nps-bench: build
	python3 scripts/nps_bench.py ./build/vorix

format:
	git ls-files '*.cpp' '*.h' | grep -v '^fathom/' | xargs clang-format -i

clean:
	rm -rf build build-pgo build-release build-debug build-asan build-tsan build-arm build-arm64 build-fuzz

help:
	@echo "make run | test | install [PREFIX=...] | pgo | release | bench | texel-bench | tb-bench | smp-bench | debug | sanitize | tsan | arm | arm-test | arm64 | arm64-test | fuzz | protocol-fuzz | perft-bench | nps-bench | format | clean"
