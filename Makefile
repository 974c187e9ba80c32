# Thin wrapper over CMake so the usual targets work. Build folders are build-<flavour>.
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE ?= cmake
SHARED ?= $(abspath ../shared)

.PHONY: all build run test bench texel-bench tb-bench smp-bench debug sanitize tsan arm arm-test fuzz protocol-fuzz format perft-bench nps-bench clean help

all: build

build:
	$(CMAKE) -S . -B build -DCMAKE_BUILD_TYPE=Release -DVORIX_TESTS=ON -DVORIX_SHARED_DIR=$(SHARED) >/dev/null
	$(CMAKE) --build build -j $(JOBS)

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

arm:
	$(CMAKE) -S . -B build-arm -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake -DCMAKE_BUILD_TYPE=Release -DVORIX_WERROR=ON \
		-DVORIX_SHARED_DIR=$(SHARED) -DVORIX_PERFT_FILE=$(abspath tests/data/short/perft.txt) >/dev/null
	$(CMAKE) --build build-arm -j $(JOBS)

arm-test: arm
	cd build-arm && ctest --output-on-failure -j $(JOBS)

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
	rm -rf build build-debug build-asan build-tsan build-arm build-fuzz

help:
	@echo "make run | test | bench | texel-bench | tb-bench | smp-bench | debug | sanitize | tsan | arm | arm-test | fuzz | protocol-fuzz | perft-bench | nps-bench | format | clean"
