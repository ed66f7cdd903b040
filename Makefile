# SPDX-License-Identifier: Apache-2.0
# One command for each thing that a person does here. It only drives scripts/, the CMake presets
# and .venv; `make help` lists the commands.

SHELL := /bin/bash
.SHELLFLAGS := -euo pipefail -c
.DEFAULT_GOAL := help

JOBS ?= $(shell nproc)
export JOBS

# A continuous-integration run takes no warning.
WARNINGS_AS_ERRORS := $(if $(filter true,$(CI)),ON,OFF)

CLANG_FORMAT ?= $(firstword $(shell command -v clang-format-14 clang-format))
RUFF = .venv/bin/ruff
PYTHON_FOLDERS = python tests bench examples
CXX_FILES = $(shell git ls-files --cached --others --exclude-standard -- '*.h' '*.cpp' '*.c')

# ThreadSanitizer of g++ 12 cannot map its memory where addresses are randomised widely.
NO_RANDOMISATION := $(shell setarch -R true 2>/dev/null && echo setarch -R)

configure = cmake --preset $(1) --log-level=WARNING -DTESSALINE_WARNINGS_AS_ERRORS=$(WARNINGS_AS_ERRORS)
build = cmake --build --preset $(1) -j$(JOBS)

.PHONY: help
help: ## list the commands
	@sed -n 's/^\([a-z-]*\):.*## /  make \1\t/p' $(firstword $(MAKEFILE_LIST)) | expand -t 20

.venv/.ready: scripts/setup.sh scripts/requirements.txt
	@scripts/setup.sh

.PHONY: setup
setup: ## install what is missing on this machine (the other commands do so, too)
	@scripts/setup.sh

.PHONY: configure-release
configure-release: .venv/.ready
	@$(call configure,release)
	@ln -sfn build/release/compile_commands.json compile_commands.json

.PHONY: demo
demo: configure-release ## build the runtime and run its first job on real data
	@$(call build,release) --target _native add_vectors
	@PYTHONPATH=build/release/python .venv/bin/python examples/demo.py \
	    --program build/release/examples/add_vectors
	@echo
	@PYTHONPATH=build/release/python .venv/bin/python examples/calibration_fit.py
	@echo
	@PYTHONPATH=build/release/python .venv/bin/python examples/spin_chain.py \
	    --picture build/entanglement_spectrum.png

.PHONY: test
test: configure-release ## build everything and run every test
	@$(call build,release)
	@scripts/test.sh

.PHONY: check
check: configure-release ## build what changed and run all tests but the slow ones
	@$(call build,release)
	@scripts/test.sh -m 'not slow'

.PHONY: stubs
stubs: configure-release ## renew the published types of the native module
	@$(call build,release) --target tessaline_stubs
	@cp build/release/python/stubs/_native.pyi python/tessaline/_native.pyi

.PHONY: bench
bench: ## build the benchmarks and print their figures
	@scripts/setup.sh bench
	@$(call configure,release)
	@$(call build,release)
	@PYTHONPATH=build/release/python .venv-bench/bin/python bench/report.py build/release

.PHONY: asan
asan: .venv/.ready ## run the C++ tests under AddressSanitizer and UndefinedBehaviorSanitizer
	@$(call configure,asan)
	@$(call build,asan)
	@ctest --preset asan -j$(JOBS)

.PHONY: tsan
tsan: .venv/.ready ## run the C++ tests under ThreadSanitizer
	@$(call configure,tsan)
	@$(call build,tsan)
	@$(NO_RANDOMISATION) ctest --preset tsan -j$(JOBS)

.PHONY: coverage
coverage: .venv/.ready ## run the C++ tests and print which lines of each folder they reach
	@scripts/setup.sh coverage
	@$(call configure,coverage)
	@$(call build,coverage)
	@ctest --preset coverage -j$(JOBS) --output-on-failure >build/coverage/tests.txt || \
	    { tail -n 30 build/coverage/tests.txt; exit 1; }
	@.venv/bin/gcovr --root . --filter 'src/' --filter 'include/' --exclude-throw-branches \
	    --html-details build/coverage/index.html --print-summary -j $(JOBS) build/coverage

FUZZ_SECONDS ?= 60

.PHONY: fuzz
fuzz: ## fuzz the registration of plugins' kernels for a minute
	@scripts/setup.sh fuzz
	@$(call configure,fuzz)
	@$(call build,fuzz) --target fuzz_register_kernel
	@mkdir -p build/fuzz/found
	@build/fuzz/tests/fuzz/fuzz_register_kernel -max_total_time=$(FUZZ_SECONDS) -max_len=512 \
	    -print_final_stats=1 -artifact_prefix=build/fuzz/ build/fuzz/found tests/fuzz/corpus/register_kernel

.PHONY: format
format: .venv/.ready ## lay out every C++ and Python file
	@$(CLANG_FORMAT) -i $(CXX_FILES)
	@$(RUFF) check --quiet --fix $(PYTHON_FOLDERS)
	@$(RUFF) format --quiet $(PYTHON_FOLDERS)

.PHONY: format-check
format-check: .venv/.ready ## fail where `make format` would change a file
	@$(CLANG_FORMAT) --dry-run --Werror $(CXX_FILES)
	@$(RUFF) check --quiet $(PYTHON_FOLDERS)
	@$(RUFF) format --quiet --check $(PYTHON_FOLDERS)

.PHONY: includes
includes: .venv/.ready ## fail where a file includes one of a floor above its own
	@.venv/bin/python scripts/check_includes.py

.PHONY: lint
lint: format-check includes configure-release ## check layout, includes and names
	@scripts/setup.sh lint
	@scripts/lint.sh

.PHONY: bare
bare: ## prove demo and test on a bare Debian 12, made for it in a temporary folder (root)
	@scripts/bare.sh

.PHONY: clean
clean: ## remove what was built (.venv and .venv-bench stay)
	@rm -rf build dist
