# Set-up, build and checks of KVXMessage. `make run` and `make test` do the
# whole set-up on a fresh Debian machine when run as root.

BUILD_DIR    ?= build
SANITIZE_DIR ?= build-sanitize
TSAN_DIR     ?= build-tsan
BUILD_TYPE   ?= RelWithDebInfo
JOBS         ?= $(shell nproc 2>/dev/null || echo 2)
CTEST_JOBS   ?= 2
# Arguments of the tool for `make run`.
RUN_ARGS     ?= --help

DEB_PACKAGES := cmake g++ clang make libboost-dev libgtest-dev libbenchmark-dev \
                libcli11-dev libpugixml-dev clang-format
SOURCE_DIRS  := message vocabulary binary text soap platform tools tests bench fuzz examples
CLANG_FORMAT ?= clang-format

.PHONY: all deps build test run sanitize tsan format format-check clean

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

run: build
	@if [ -x $(BUILD_DIR)/tools/kvxmsg ]; then \
	    $(BUILD_DIR)/tools/kvxmsg $(RUN_ARGS); \
	else \
	    echo "kvxmsg is not built yet ($(BUILD_DIR)/tools/kvxmsg missing)"; \
	fi

# ASan and UBSan; a Debug build keeps compile time low and reports readable.
sanitize: deps
	cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=Debug -DKVX_SANITIZE=ON
	cmake --build $(SANITIZE_DIR) -j$(JOBS)
	cd $(SANITIZE_DIR) && ctest --output-on-failure -j$(CTEST_JOBS)

tsan: deps
	cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=Debug -DKVX_TSAN=ON
	cmake --build $(TSAN_DIR) -j$(JOBS)
	cd $(TSAN_DIR) && ctest --output-on-failure -j$(CTEST_JOBS)

# The C++ sources of the project, build folders excluded.
FORMAT_FILES = $(shell find $(wildcard $(SOURCE_DIRS)) -type f \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null | sort)

format:
	@if [ -n "$(strip $(FORMAT_FILES))" ]; then $(CLANG_FORMAT) -i $(FORMAT_FILES); fi

format-check:
	@if [ -n "$(strip $(FORMAT_FILES))" ]; then $(CLANG_FORMAT) --dry-run -Werror $(FORMAT_FILES); fi

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR) $(TSAN_DIR)
