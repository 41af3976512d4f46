# SPDX-License-Identifier: MIT
# A thin front over ./zan, the scripts and the CMake presets. "make help" lists it.

.DEFAULT_GOAL := help
FUZZ_SECONDS := 60
FUZZ_TARGETS = $(notdir $(wildcard fuzz/corpus/*))
N := 20
PRESETS := dev thread mipsel
.PHONY: help demo shell test test-whole test-repeat test-release test-thread test-unprivileged test-target test-board check format bench fuzz test-nightly man pictures clean

help: ## list the targets
	@grep -hE '^[a-z-]+:.*## ' $(MAKEFILE_LIST) | sed -E 's/:.*## /\t/' | expand -t 20

demo: ## see modules work on a live configuration tree, and talk
	./zan demo

shell: ## open a shell with zansim running and zanctl on the PATH
	./zan shell

test: ## run every test under the address and undefined-behaviour sanitizers
	./zan test

test-release: ## run every test on what users get
	./zan test release

test-thread: ## run the locking and thread tests under the thread sanitizer
	./zan test thread

test-unprivileged: ## run demo and tests as in an unprivileged container
	./zan test unprivileged

test-target: ## run every test built for 32-bit little-endian MIPS, under emulation
	./zan test target

test-board: ## run them on emulated boards with a 32-bit MIPS kernel of their own
	./zan test board

test-whole: ## run each test program as one process, all its tests one after the other
	scripts/bootstrap build test
	scripts/run-tests dev whole

test-repeat: ## run the tests of PRESETS N=20 times on busy CPUs, to find those that fail by chance
	scripts/bootstrap build test target stress
	scripts/repeat-tests $(N) $(PRESETS)

check: ## check format, static analysis and scripts
	scripts/bootstrap build test check bench
	scripts/check

format: ## format all sources
	scripts/bootstrap check
	git ls-files '*.cpp' '*.c' '*.h' '*.hpp' | xargs clang-format -i

bench: ## measure against bare kernel queues and sockets, and against the C library
	scripts/bootstrap build bench
	cmake --preset bench >/dev/null && cmake --build --preset bench -- --quiet
	scripts/sandbox build/bench/bench/bench_round_trip
	scripts/sandbox build/bench/bench/bench_socket_send
	build/bench/bench/bench_paths
	build/bench/bench/bench_fields
	build/bench/bench/bench_event
	scripts/sandbox build/bench/bench/bench_log

fuzz: ## look for hostile input to each of FUZZ_TARGETS, FUZZ_SECONDS=60 long
	scripts/bootstrap build fuzz
	cmake --preset fuzz >/dev/null && cmake --build --preset fuzz -- --quiet
	set -e; for target in $(FUZZ_TARGETS); do \
	  mkdir -p build/fuzz/found/$$target; \
	  set --; [ ! -f fuzz/$$target.dict ] || set -- -dict=fuzz/$$target.dict; \
	  build/fuzz/fuzz/fuzz_$$target "$$@" -max_len=300 -max_total_time=$(FUZZ_SECONDS) \
	    -artifact_prefix=build/fuzz/$$target- build/fuzz/found/$$target fuzz/corpus/$$target; \
	done

test-nightly: ## run what waits for a minute
	./zan test nightly

man: ## write the reference part of the manual pages from include/zan.h
	scripts/man-pages

pictures: ## draw the pictures of the documentation, the README's from a run of the demo
	scripts/bootstrap build pictures
	cmake --preset release >/dev/null && cmake --build --preset release -- --quiet
	scripts/sandbox scripts/demo build/release >build/demo.out
	scripts/pictures build/demo.out

clean: ## remove everything built
	rm -rf build
