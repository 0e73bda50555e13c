# Entry points for building and checking ZqSys. Every target first installs
# missing Debian packages (scripts/install-deps.sh, as root), then drives the
# CMake presets in CMakePresets.json; build trees live in build/<preset>.

SHELL := /bin/bash
JOBS ?= 2
FUZZ_SECONDS ?= 60
FORMAT_DIRS := src include tests bench fuzz examples router tools
# The folder of this Makefile, whatever the current directory.
ROOT := $(patsubst %/,%,$(dir $(abspath $(lastword $(MAKEFILE_LIST)))))

.PHONY: deps test demo asan tsan tidy bench fuzz format format-check clean

deps:
	@bash scripts/install-deps.sh

# Configure and build one preset: $(call build,<preset>)
define build
cmake --preset $(1)
cmake --build --preset $(1) -j $(JOBS)
endef

test: deps
	$(call build,default)
	ctest --preset default

demo: deps
	$(call build,default)
	ZQSYS_DEMO_LOGS="$(ROOT)/build/default/demo-logs" build/default/examples/zqsys_demo "$(ROOT)/examples/demo.ini"
	@echo; echo "== The platform: zqrouter, a service and a client"
	bash scripts/platform-demo.sh "$(ROOT)/build/default" "$(ROOT)"

asan: deps
	$(call build,asan)
	ctest --preset asan

tsan: deps
	$(call build,tsan)
	ctest --preset tsan

# clang-tidy over every source of the library and its programs, with the
# compile commands of the default build; any warning fails (.clang-tidy).
tidy: deps
	cmake --preset default
	run-clang-tidy -quiet -j $(JOBS) -p build/default '^$(ROOT)/(src|router|tools)/' >build/default/tidy.log 2>&1 \
	  || { sed 's/\x1b\[[0-9;]*m//g' build/default/tidy.log | grep -E 'warning:|error:' | sort -u; exit 1; }
	@echo "tidy: clean"

# Each bench program runs every benchmark BENCH_REPETITIONS times, the
# repetitions of its benchmarks interleaved in random order so that a busy
# spell of the machine falls on figures and references alike, and writes
# its results as JSON to build/bench/results/<name>.json; bench/summarize.py
# then reads the medians and prints one table of the figures that
# bench/targets.txt names (each beside its reference from the same run),
# also written to build/bench/summary.json.
BENCH_REPETITIONS ?= 7
BENCH_MIN_TIME ?= 0.15

bench: deps
	$(call build,bench)
	@mkdir -p build/bench/results; \
	found=0; \
	for binary in build/bench/bench/zqsys_*_bench; do \
	  [[ -x "$$binary" ]] || continue; \
	  found=1; \
	  name=$$(basename "$$binary" _bench); name=$${name#zqsys_}; \
	  echo "== $$binary"; \
	  "$$binary" --benchmark_min_time=$(BENCH_MIN_TIME) \
	    --benchmark_repetitions=$(BENCH_REPETITIONS) --benchmark_enable_random_interleaving=true \
	    --benchmark_report_aggregates_only=true \
	    --benchmark_out="build/bench/results/$$name.json" --benchmark_out_format=json || exit 1; \
	done; \
	((found)) || { echo "bench: no benchmark programs in build/bench/bench"; exit 1; }; \
	python3 bench/summarize.py bench/targets.txt build/bench/results build/bench/summary.json

# Each fuzz target runs for FUZZ_SECONDS over a scratch copy of its committed
# corpus, so new inputs it finds never land in the source tree. Crash inputs
# go to build/fuzz/artifacts/. A target's fuzz/<name>.dict, if any, seeds
# the mutations with the tokens of its format.
# Only the fuzz targets and what they link (the static archive) are built
# here: the shared library is not needed to fuzz.
fuzz: deps
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS) --target fuzz/all
	@found=0; \
	mkdir -p build/fuzz/artifacts; \
	for binary in build/fuzz/fuzz/*_fuzzer; do \
	  [[ -x "$$binary" ]] || continue; \
	  found=1; \
	  name=$$(basename "$$binary" _fuzzer); \
	  scratch=$$(mktemp -d); \
	  if [[ -d "fuzz/corpus/$$name" ]]; then cp -R "fuzz/corpus/$$name/." "$$scratch/"; fi; \
	  echo "== $$binary for $(FUZZ_SECONDS)s over a copy of fuzz/corpus/$$name"; \
	  dict=(); [[ -f "fuzz/$$name.dict" ]] && dict=(-dict="fuzz/$$name.dict"); \
	  "$$binary" -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 "$${dict[@]}" \
	    -artifact_prefix="build/fuzz/artifacts/$$name-" "$$scratch" </dev/null; \
	  rc=$$?; \
	  rm -rf "$$scratch"; \
	  ((rc == 0)) || exit $$rc; \
	done; \
	((found)) || echo "fuzz: no fuzz targets in build/fuzz/fuzz"

# The committed corpora are data, not sources, whatever their names.
FORMAT_FILES = $(shell find $(FORMAT_DIRS) -path fuzz/corpus -prune -o -type f \
  \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) -print 2>/dev/null | sort)

format: deps
	@$(if $(FORMAT_FILES),clang-format -i $(FORMAT_FILES),true)

format-check: deps
	@$(if $(FORMAT_FILES),clang-format --dry-run --Werror $(FORMAT_FILES),true)

clean:
	rm -rf build
