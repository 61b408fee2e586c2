# Set-up, build and checks of KVXMessage. `make run` and `make test` do the
# whole set-up on a fresh Debian machine when run as root.

BUILD_DIR    ?= build
SANITIZE_DIR ?= build-sanitize
TSAN_DIR     ?= build-tsan
FUZZ_DIR     ?= build-fuzz
# Seconds each fuzz target runs in `make fuzz`.
FUZZ_SECONDS ?= 60
BENCH_DIR    ?= build-bench
BUILD_TYPE   ?= RelWithDebInfo
JOBS         ?= $(shell nproc 2>/dev/null || echo 2)
CTEST_JOBS   ?= 2
# For `make run`: a SOAP request to show in full instead of the first example.
RUN_ARGS     ?=
# Short runs: three repetitions of a brief minimum time each, medians reported;
# repetitions are interleaved so that a change of machine load hits a row and
# its reference alike.
BENCH_ARGS   ?= --benchmark_min_time=0.1 --benchmark_repetitions=3 \
                --benchmark_report_aggregates_only=true \
                --benchmark_enable_random_interleaving=true

DEB_PACKAGES := cmake g++ clang make libboost-dev libgtest-dev libbenchmark-dev \
                libcli11-dev libpugixml-dev clang-format
SOURCE_DIRS  := message vocabulary binary text soap platform tools tests bench fuzz examples
CLANG_FORMAT ?= clang-format

.PHONY: all deps build test run sanitize tsan bench bench-run fuzz format format-check clean

all: build

deps:
	@missing=""; \
	for pkg in $(DEB_PACKAGES); do \
	    dpkg -s "$$pkg" 2>/dev/null | grep -q '^Status: install ok installed' || missing="$$missing $$pkg"; \
	done; \
	if [ -z "$$missing" ]; then \
	    exit 0; \
	elif [ "$$(id -u)" = 0 ]; then \
	    echo "installing:$$missing"; \
	    apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $$missing; \
	else \
	    echo "warning: missing packages:$$missing (run 'make deps' as root to install them)" >&2; \
	fi

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)
	cmake --build $(BUILD_DIR) -j$(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j$(CTEST_JOBS)

# The main job on the bundled examples: a SOAP request through soap-in, reply
# and soap-out, each stage as text and as a frame dump (tools/run_demo.sh).
run: build
	@bash tools/run_demo.sh $(BUILD_DIR)/tools/kvxmsg examples $(RUN_ARGS)

# ASan and UBSan; a Debug build keeps compile time low and reports readable.
sanitize: deps
	cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=Debug -DKVX_SANITIZE=ON
	cmake --build $(SANITIZE_DIR) -j$(JOBS)
	cd $(SANITIZE_DIR) && ctest --output-on-failure -j$(CTEST_JOBS)

tsan: deps
	cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DKVX_TSAN=ON
	cmake --build $(TSAN_DIR) -j$(JOBS)
	cd $(TSAN_DIR) && ctest --output-on-failure -j$(CTEST_JOBS)

# Benchmarks in a Release build of their own; bench-run ends with the table of
# ratios against memcpy and pugixml (bench/ratios.py).
bench: deps
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DKVX_BUILD_BENCH=ON -DKVX_BUILD_TESTS=OFF
	cmake --build $(BENCH_DIR) --target kvx_bench -j$(JOBS)

bench-run: bench
	$(BENCH_DIR)/bench/kvx_bench $(BENCH_ARGS) \
	    --benchmark_out=$(BENCH_DIR)/bench.json --benchmark_out_format=json
	@echo
	@python3 bench/ratios.py $(BENCH_DIR)/bench.json

# libFuzzer targets (clang, ASan and UBSan), each run for FUZZ_SECONDS; fails on
# any finding. The fuzz build is a project of its own in fuzz/.
fuzz: deps
	cmake -S fuzz -B $(FUZZ_DIR) -DCMAKE_CXX_COMPILER=clang++
	cmake --build $(FUZZ_DIR) -j$(JOBS)
	FUZZ_SECONDS=$(FUZZ_SECONDS) bash fuzz/run_fuzzers.sh $(FUZZ_DIR)

# The C++ sources of the project, build folders excluded.
FORMAT_FILES = $(shell find $(wildcard $(SOURCE_DIRS)) -type f \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | sort)

format:
	@if [ -n "$(strip $(FORMAT_FILES))" ]; then $(CLANG_FORMAT) -i $(FORMAT_FILES); fi

format-check:
	@if [ -n "$(strip $(FORMAT_FILES))" ]; then $(CLANG_FORMAT) --dry-run -Werror $(FORMAT_FILES); fi

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR) $(TSAN_DIR) $(FUZZ_DIR) $(BENCH_DIR)
