# The two commands that do everything on a fresh machine: make demo, make test. The rest is for those who work on the
# library. PRESET chooses another build, for example: make test PRESET=asan
PRESET ?= release
PREFIX ?= /usr/local

.PHONY: demo test bench format lint install build tools-needed
.DEFAULT_GOAL := build

tools-needed:
	@scripts/install-packages

build: tools-needed
	@cmake --preset $(PRESET) > build-configure.log 2>&1 || { cat build-configure.log; rm -f build-configure.log; exit 1; }
	@rm -f build-configure.log
	cmake --build --preset $(PRESET)

demo: build
	build/$(PRESET)/examples/job_road

test: build
	ctest --preset $(PRESET)

bench: tools-needed
	cmake --preset bench
	cmake --build --preset bench
	build/bench/bench/tq_bench

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

lint: build
	git ls-files '*.cpp' | grep -v '^fuzz/' | xargs clang-tidy -quiet -p build/$(PRESET)

install: build
	cmake --install build/$(PRESET) --prefix $(PREFIX)
