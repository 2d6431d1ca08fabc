# The commands people type. The real build is CMake (CMakePresets.json).
.PHONY: all release debug test test-tsan test32 demo bench fuzz format clean deps package windows test-windows

all: release

deps:
	@scripts/ensure-deps.sh

release: deps
	@cmake --preset release >/dev/null
	@cmake --build --preset release

debug: deps
	@cmake --preset debug >/dev/null
	@cmake --build --preset debug

test: debug
	@ctest --preset debug

# The engine's threaded mode under ThreadSanitizer: only its test program is built, and any
# report fails the run.
test-tsan: deps
	@cmake --preset tsan >/dev/null
	@cmake --build build/tsan --target host_test -j2
	@build/tsan/host/host_test --gtest_filter='*Threaded*' --gtest_brief=1

demo: release
	@examples/run-demo.sh build/release/velmora

bench:
	@scripts/ensure-deps.sh libbenchmark-dev
	@cmake --preset bench >/dev/null
	@cmake --build --preset bench
	@bench/run-bench.sh build/bench

# Each parser under libFuzzer for FUZZ_SECONDS; crashes are saved in build/fuzz/crashes.
FUZZ_SECONDS ?= 60
fuzz:
	@scripts/ensure-deps.sh clang libclang-rt-14-dev
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@fuzz/run-fuzz.sh build/fuzz $(FUZZ_SECONDS)

package: release
	@cd build/release && cpack

# Windows programs (build/windows32, build/windows64), cross-built with MinGW-w64, and their
# release archives (build/windows32/velmora-<version>-win32.zip, build/windows64/...-win64.zip).
WINDOWS_DEPS = g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix googletest

windows:
	@scripts/ensure-deps.sh $(WINDOWS_DEPS)
	@cmake --preset windows32 >/dev/null
	@cmake --build --preset windows32
	@cmake --preset windows64 >/dev/null
	@cmake --build --preset windows64

# Wine comes first: configuring finds it and hands it to ctest to start the test programs.
test-windows:
	@scripts/ensure-deps.sh wine64 $(WINDOWS_DEPS)
	@scripts/try-wine32.sh
	@$(MAKE) --no-print-directory windows
	@cmake --preset debug >/dev/null
	@cmake --build build/debug --target program_test -j2
	@scripts/test-windows.sh build/debug

# The whole suite as 32-bit x86 Linux programs (build/linux32): 32-bit pointers, size_t and long,
# as in the 32-bit Windows program. Where the kernel runs no 32-bit programs, qemu-i386 does
# (with the undefined-behaviour sanitizer only: see CMakeLists.txt).
# Leak checking is off in this build (the linux32 test preset): under qemu-i386 the leak checker
# cannot stop the threads it inspects and hangs. The 64-bit build checks for leaks.
LINUX32_DEPS = g++-multilib googletest qemu-user

test32:
	@scripts/ensure-deps.sh $(LINUX32_DEPS)
	@cmake --preset linux32 >/dev/null
	@cmake --build --preset linux32
	@ctest --preset linux32

format:
	@git ls-files '*.cpp' '*.h' '*.inc' | xargs clang-format -i

clean:
	@rm -rf build
