# Verdantglass build entry points. Every target installs what it needs first
# (scripts/install-deps.sh is a quick no-op once the packages are there).
#
#   make run        build, then open the sample photograph in the editor window
#                   (without a display: export it with the command-line tool)
#   make screenshots  the window's main states under Xvfb into build/screenshots/
#   make test       build and run every test through CTest
#   make bench      build and run the benchmarks, then the peer comparison
#   make bench-peers   only the whole-process comparison with peer tools
#   make test-asan  the tests again under AddressSanitizer + UndefinedBehaviorSanitizer
#   make test-tsan  the tests again under ThreadSanitizer (TSAN_TARGETS limits what is built)
#   make fuzz       build the libFuzzer targets (clang) into build-fuzz/bin
#   make fuzz-run FUZZ=name SECONDS=300   run one of them over its corpus
#   make fuzz-all SECONDS=300   a whole round: every target in turn, findings kept
#                   as regression inputs in fuzz/corpus/<name>/ (scripts/fuzz-all.sh)
#
# The sanitizer runs read fuzz/lsan.supp: leaks inside third-party libraries
# that are proven not to be ours. Leak detection stays on for everything else;
# allocations are unwound fully so that a stack can name a library function.

SHELL := /bin/bash
JOBS ?= $(shell nproc)
CCACHE := $(shell command -v ccache 2>/dev/null)
LAUNCHER := $(if $(CCACHE),-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache,)
export CCACHE_BASEDIR := $(CURDIR)
export CCACHE_NOHASHDIR := true

.PHONY: deps configure build run screenshots test bench bench-peers test-asan test-tsan fuzz fuzz-run fuzz-all clean

deps:
	@./scripts/install-deps.sh

build/build.ninja: | deps
	cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release $(LAUNCHER)

configure: build/build.ninja

build: deps configure
	cmake --build build -j $(JOBS)

# A display is usable when Wayland is there or DISPLAY names a local X
# server whose socket exists (a remote DISPLAY is trusted as given).
HAVE_DISPLAY = $(shell d="$$DISPLAY"; n=$$(echo "$$d" | sed 's/.*://; s/\..*//'); \
  if [ -n "$$WAYLAND_DISPLAY" ]; then echo yes; \
  elif [ -n "$$d" ] && { [ "$${d%%:*}" != "" ] || [ -S "/tmp/.X11-unix/X$$n" ]; }; then echo yes; fi)

run: build
ifeq ($(HAVE_DISPLAY),yes)
	./build/bin/verdantglass samples/rocket.jpg
else
	@echo "No display found (DISPLAY/WAYLAND_DISPLAY): running the command-line export instead."
	@mkdir -p out
	@./build/bin/verdantglass-cli export samples/rocket.jpg --recipe samples/sample-recipe.json \
	  -o out/rocket-edited.jpg >/dev/null
	@echo "Exported samples/rocket.jpg through samples/sample-recipe.json to $(CURDIR)/out/rocket-edited.jpg"
endif

screenshots: build
	@rm -rf build/screenshots && mkdir -p build/screenshots
	xvfb-run -a -s "-screen 0 1680x1050x24" ./build/bin/vg_app_screenshots build/screenshots
	@echo "Screenshots in $(CURDIR)/build/screenshots"

test: build
	cd build && ctest --output-on-failure -j $(JOBS) --timeout 600

bench: build
	./build/bin/vg_bench --benchmark_counters_tabular=true $(BENCH_ARGS)
	QT_QPA_PLATFORM=offscreen ./build/bin/vg_app_bench --benchmark_counters_tabular=true
	./bench/peers_compare.sh $(PEER_RUNS)

# Only the whole-process comparison with the peer tools (export and batch).
bench-peers: build
	./bench/peers_compare.sh $(PEER_RUNS)

SANITIZER_OPTIONS := ASAN_OPTIONS=detect_leaks=1:fast_unwind_on_malloc=0 \
  LSAN_OPTIONS=suppressions=$(CURDIR)/fuzz/lsan.supp:print_suppressions=0 \
  UBSAN_OPTIONS=print_stacktrace=1

build-asan/build.ninja: | deps
	cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVG_SANITIZE=ON -DVG_BENCH=OFF $(LAUNCHER)

test-asan: deps build-asan/build.ninja
	cmake --build build-asan -j $(JOBS)
	cd build-asan && $(SANITIZER_OPTIONS) ctest --output-on-failure -j $(JOBS) --timeout 1200 $(CTEST_ARGS)

TSAN_FLAGS := -fsanitize=thread -fno-omit-frame-pointer
build-tsan/build.ninja: | deps
	cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVG_BENCH=OFF \
	  -DCMAKE_CXX_FLAGS="$(TSAN_FLAGS)" -DCMAKE_C_FLAGS="$(TSAN_FLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=thread" $(LAUNCHER)

# e.g. make test-tsan TSAN_TARGETS=vg_store_tests CTEST_ARGS="-L store"
test-tsan: deps build-tsan/build.ninja
	cmake --build build-tsan -j $(JOBS) $(if $(TSAN_TARGETS),--target $(TSAN_TARGETS),)
	cd build-tsan && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" \
	  ctest --output-on-failure -j $(JOBS) --timeout 1200 $(CTEST_ARGS)

build-fuzz/build.ninja: | deps
	CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DVG_FUZZ=ON -DVG_TESTS=OFF -DVG_BENCH=OFF $(LAUNCHER)

fuzz: deps build-fuzz/build.ninja
	cmake --build build-fuzz -j $(JOBS) --target fuzzers

SECONDS ?= 300
fuzz-run: fuzz
	@test -n "$(FUZZ)" || { echo "usage: make fuzz-run FUZZ=name [SECONDS=300]"; exit 2; }
	mkdir -p build-fuzz/corpus/$(FUZZ)
	$(SANITIZER_OPTIONS) ./build-fuzz/bin/$(FUZZ)_fuzz -max_total_time=$(SECONDS) -print_final_stats=1 \
	  -artifact_prefix=build-fuzz/ build-fuzz/corpus/$(FUZZ) fuzz/corpus/$(FUZZ)

fuzz-all: fuzz
	$(SANITIZER_OPTIONS) ./scripts/fuzz-all.sh $(SECONDS)

clean:
	rm -rf build build-asan build-tsan build-fuzz
