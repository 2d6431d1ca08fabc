# The commands people type. The real build is CMake (CMakePresets.json).
.PHONY: all release debug test demo bench format clean deps package

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

demo: release
	@examples/run-demo.sh build/release/velmora

bench:
	@scripts/ensure-deps.sh libbenchmark-dev
	@cmake --preset bench >/dev/null
	@cmake --build --preset bench
	@bench/run-bench.sh build/bench

package: release
	@cd build/release && cpack

format:
	@git ls-files '*.cpp' '*.h' '*.inc' | xargs clang-format -i

clean:
	@rm -rf build
