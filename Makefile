# The two commands that do everything on a fresh machine: make demo, make test. The rest is for those who work on the
# library. PRESET chooses another build, for example: make test PRESET=asan
PRESET ?= release
PREFIX ?= /usr/local

.PHONY: demo test bench coverage memcheck fuzz docs pictures package abi format lint install build configure tools-needed
.DEFAULT_GOAL := build

tools-needed:
	@scripts/install-packages

configure: tools-needed
	@log=$$(cmake --preset $(PRESET) 2>&1) || { echo "$$log"; exit 1; }

build: configure
	cmake --build --preset $(PRESET)

demo: configure
	cmake --build --preset $(PRESET) --target job_road
	build/$(PRESET)/examples/job_road

test: build
	ctest --preset $(PRESET)

bench: tools-needed
	cmake --preset bench
	cmake --build --preset bench
	build/bench/bench/tq_bench

# Runs every test and tells which lines and branches of the library they reach.
coverage:
	@scripts/install-packages gcovr
	@scripts/coverage

# Runs the tests under valgrind.
memcheck:
	@scripts/install-packages valgrind
	@scripts/memcheck

# Runs the fuzz targets, or TARGET alone, for SECONDS each: make fuzz SECONDS=600 TARGET=ini
SECONDS ?= 20
fuzz:
	@scripts/install-packages clang libclang-rt-14-dev
	cmake --preset fuzz
	cmake --build --preset fuzz
	scripts/fuzz $(SECONDS) $(TARGET)

format:
	@scripts/install-packages clang-format
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

lint: build
	@scripts/install-packages clang-tidy mandoc
	mandoc -T lint -W warning tools/tqctl/tqctl.1
	git ls-files '*.cpp' | grep -v '^bench/' | xargs run-clang-tidy -quiet -p build/$(PRESET)

# The manual of the public headers: build/PRESET/docs/html/index.html.
docs: configure
	@scripts/install-packages doxygen
	cmake --build --preset $(PRESET) --target docs

# Draws docs/pictures/*.svg anew from the texts beside them.
pictures:
	@scripts/install-packages graphviz
	@scripts/draw-pictures

# The Debian packages, in build/PRESET/packages.
package: build
	cd build/$(PRESET) && cpack -G DEB -B packages

# Takes over what the library exports now as what it promises to export.
abi: configure
	cmake --build --preset $(PRESET) --target abi

install: build
	cmake --install build/$(PRESET) --prefix $(PREFIX)
