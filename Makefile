# Entry points for people and CI. Each target installs what it needs from
# Debian's archive when it is missing, configures with CMake and runs.
#
#   make demo    build the library and the demo programs, and run them (the
#                second runs the road of one failure with real files)
#   make check   build native and i386 and run the whole test suite in both
#                (native also installs the SDK into a temporary prefix and
#                builds a client against it)
#   make install the SDK into PREFIX (default /usr/local)
#
# Configurations are the presets of CMakePresets.json (native, i386, asan,
# tsan, bench, fuzz); the targets here install what Debian packages they need
# and then configure, build and run through them.
#   make bench   release build, every benchmark with repetitions, a table
#   make fuzz    the libFuzzer targets, for longer than CI runs them
#   make sanitize  the test suite under ASan+UBSan, then the threaded tests under TSan
#   make soak    8 writer processes x 100 changes of one ini file; prints the
#                time and the count of lost changes

JOBS ?= $(shell nproc)
CMAKE ?= cmake
APT_PACKAGES := cmake ninja-build g++ g++-multilib googletest libgtest-dev python3 pkg-config
BENCH_PACKAGES := libbenchmark-dev libicu-dev libfmt-dev libspdlog-dev libinih-dev libglib2.0-dev
FUZZ_PACKAGES := clang libclang-rt-dev

.PHONY: soak deps bench-deps fuzz-deps i386-deps qemu-deps i386-configure demo check check-native check-i386 sanitize asan tsan bench fuzz install clean

# Installs only what dpkg does not already report as installed.
define apt_install
	@missing=""; for p in $(1); do dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq $$missing; \
	fi
endef

deps:
	$(call apt_install,$(APT_PACKAGES))

bench-deps: deps
	$(call apt_install,$(BENCH_PACKAGES))

fuzz-deps: deps
	$(call apt_install,$(FUZZ_PACKAGES))

build/native/build.ninja: | deps
	$(CMAKE) --preset native

# The i386 programs run natively where the kernel executes 32-bit programs and
# under qemu-user elsewhere (or wherever KEEL_I386_EMULATOR=qemu-i386 asks for
# it). The probe here only decides whether qemu-user must be installed; CMake
# probes again and says in its output which way the suite runs.
KEEL_I386_EMULATOR ?=
I386_BUILD ?= build/i386
i386-deps: deps
	@probe=$$(mktemp -d); \
	printf 'int main(void) { return 0; }\n' >$$probe/p.c; \
	if [ -n "$(KEEL_I386_EMULATOR)" ] || ! { gcc -m32 -o $$probe/p $$probe/p.c && $$probe/p; } >/dev/null 2>&1; then \
	  echo qemu-user >$$probe/need; \
	fi; \
	need=$$(cat $$probe/need 2>/dev/null); rm -rf $$probe; \
	if [ -n "$$need" ]; then $(MAKE) --no-print-directory qemu-deps; fi

qemu-deps:
	$(call apt_install,qemu-user)

# Configured on every run (cheap once cached), so that a change of
# KEEL_I386_EMULATOR takes effect in an existing tree.
i386-configure: i386-deps
	$(CMAKE) --preset i386 -B $(I386_BUILD) -DKEEL_I386_EMULATOR=$(KEEL_I386_EMULATOR)

demo: build/native/build.ninja
	$(CMAKE) --build build/native -j $(JOBS) --target keel_demo keel_demo_failure
	./build/native/keel_demo
	./build/native/keel_demo_failure

SOAK_WRITERS ?= 8
SOAK_CHANGES ?= 100
soak: build/native/build.ninja
	$(CMAKE) --build build/native -j $(JOBS) --target keel_soak
	./build/native/keel_soak $(SOAK_WRITERS) $(SOAK_CHANGES)

check-native: build/native/build.ninja
	$(CMAKE) --build build/native -j $(JOBS)
	cd build/native && ctest --output-on-failure -j $(JOBS)

check-i386: i386-configure
	$(CMAKE) --build $(I386_BUILD) -j $(JOBS)
	cd $(I386_BUILD) && ctest --output-on-failure -j $(JOBS)

check: check-native check-i386

asan: deps
	$(CMAKE) --preset asan
	$(CMAKE) --build build/asan -j $(JOBS)
	ctest --preset asan -j $(JOBS)

# Only the tests that exercise threads: their names carry "Thread".
tsan: deps
	$(CMAKE) --preset tsan
	$(CMAKE) --build build/tsan -j $(JOBS)
	ctest --preset tsan -j $(JOBS)

sanitize: asan tsan

bench: bench-deps
	$(CMAKE) --preset bench
	$(CMAKE) --build build/bench -j $(JOBS)
	python3 tools/bench_table.py build/bench docs/bench-latest.md

FUZZ_SECONDS ?= 600
fuzz: fuzz-deps
	$(CMAKE) --preset fuzz
	$(CMAKE) --build build/fuzz -j $(JOBS)
	./fuzz/run_all.sh build/fuzz $(FUZZ_SECONDS)

PREFIX ?= /usr/local
install: build/native/build.ninja
	$(CMAKE) --build build/native -j $(JOBS) --target keel keel_toolkit
	$(CMAKE) --install build/native --prefix $(PREFIX)

clean:
	rm -rf build
