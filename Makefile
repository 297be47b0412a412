# Orvanto front door. `make demo` and `make test` work from a fresh clone: they install what is missing first.
SHELL     := /bin/bash
BUILD     ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := HostState EffectPreset GlobalPreset DictatorPreset MidiMap StepPattern SettingsStore MidiFile \
                JsonSource ContentCompiler
JOBS      ?= $(shell nproc 2>/dev/null || echo 2)
PREFIX    ?= $(HOME)/.local

# Debian packages the build and the tools need; the hosts the plug-in tests load them in come on top for
# `make test` (Ardour's plug-in scanners, a JACK server, the LV2 validator).
DEPS := cmake g++ make pkg-config git libgtest-dev libgmock-dev libbenchmark-dev \
        libsndfile1-dev libcairo2-dev libfontconfig-dev libpng-dev zlib1g-dev clang-format clang-tidy \
        dpf-source liblilv-dev lv2-dev libjack-jackd2-dev
TEST_DEPS := lilv-utils sordi jackd2 ardour xvfb xdotool imagemagick jalv
FUZZ_DEPS := clang libclang-rt-14-dev

SUDO := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: all deps test-deps install-packages configure build install demo test bench fuzz format format-check lint clean

all: build

deps:
	@$(MAKE) --no-print-directory install-packages PACKAGES="$(DEPS)"

test-deps:
	@$(MAKE) --no-print-directory install-packages PACKAGES="$(TEST_DEPS)"

install-packages:
	@missing=""; \
	for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing:$$missing"; \
	  $(SUDO) apt-get update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	fi

configure: deps
	@cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=$(PREFIX) >/dev/null

build: configure
	@cmake --build $(BUILD) -j$(JOBS)

# The tools into $(PREFIX)/bin, the compiled factory content into $(PREFIX)/share/orvanto/content.
install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

# The sanitizer build (AddressSanitizer and UndefinedBehaviorSanitizer) runs the whole suite first, then the
# release build runs it again; hostile files and every edge case must pass in both.
test: test-deps build
	@cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANTO_SANITIZE=ON -DORVANTO_BUILD_BENCH=OFF >/dev/null
	@cmake --build $(ASAN_BUILD) -j$(JOBS)
	ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --test-dir $(ASAN_BUILD) --output-on-failure -j$(JOBS)
	ctest --test-dir $(BUILD) --output-on-failure -j$(JOBS)
	@cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANTO_SANITIZE_THREAD=ON >/dev/null
	@cmake --build $(TSAN_BUILD) -j$(JOBS) --target orvanto-thread-stress
	ctest --test-dir $(TSAN_BUILD) --output-on-failure

# The demo scene: Stutter in slot 1 (quantised to 1/8 by its defaults), its Control ramping up and down,
# LFO 1 sweeping its Size through the modulation amount at index 261.
demo: build
	@mkdir -p out
	$(BUILD)/tools/orvanto-render -o out/demo.wav --plot out/demo.png --seconds 16 --tempo 120 --seed 1 \
	  --effect 1=Stutter --ramp "Control 1=0:1@1:7" --ramp "Control 1=1:0@9:15" \
	  --set 261=1 --set "FX1 Lfo Amount=0.6" --set "FX1 Lfo Rate=0.5"
	@echo "Rendered out/demo.wav and out/demo.png"

# The core's benchmarks, then the same eight Stutters timed through the LV2 plug-in in a lilv host.
bench: build
	$(BUILD)/bench/orvanto-bench --benchmark_counters_tabular=true
	@cmake --build $(BUILD) --target orvanto-lv2-timing

# Each fuzz target for FUZZ_SECONDS with libFuzzer, AddressSanitizer and UndefinedBehaviorSanitizer (clang). New
# inputs collect in $(FUZZ_BUILD)/corpus; the seeds in fuzz/corpus are only read. A crash stops the run and
# leaves its input as crash-* in the current folder.
fuzz: deps
	@$(MAKE) --no-print-directory install-packages PACKAGES="$(FUZZ_DEPS)"
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DORVANTO_FUZZ=ON \
	  -DORVANTO_BUILD_TESTS=OFF -DORVANTO_BUILD_BENCH=OFF -DORVANTO_BUILD_PLUGINS=OFF >/dev/null
	@cmake --build $(FUZZ_BUILD) -j$(JOBS) --target $(addprefix fuzz-,$(FUZZ_TARGETS))
	@for t in $(FUZZ_TARGETS); do \
	  mkdir -p $(FUZZ_BUILD)/corpus/$$t; \
	  echo "fuzz-$$t for $(FUZZ_SECONDS) s"; \
	  $(FUZZ_BUILD)/fuzz/fuzz-$$t -max_total_time=$(FUZZ_SECONDS) -print_final_stats=1 \
	    $(FUZZ_BUILD)/corpus/$$t fuzz/corpus/$$t 2>&1 | grep -E "stat::number_of_executed_units|ERROR|SUMMARY" ; \
	  test $${PIPESTATUS[0]} -eq 0 || exit 1; \
	done

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

format-check:
	@git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

# The core's include order (tools/check-includes.sh), then clang-tidy (.clang-tidy) over the core, with the
# build's compile commands, several files per process and $(JOBS) processes; any warning fails. The effects'
# DSP is left out: it uses GCC vector built-ins clang does not parse.
LINT_SOURCES = git ls-files 'engine/*.cpp' 'state/*.cpp' 'effects/framework/*.cpp' 'modulation/*.cpp'
lint: configure
	@tools/check-includes.sh
	@$(LINT_SOURCES) | xargs -P$(JOBS) -n6 clang-tidy -p $(BUILD) --quiet

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD) out
