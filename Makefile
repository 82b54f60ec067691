# Thin wrapper over CMake: `make test` prepares a fresh Debian 12 machine, then builds and
# runs every test twice, optimised and under AddressSanitizer + UndefinedBehaviorSanitizer.
JOBS ?= $(shell nproc)
CTEST = ctest --output-on-failure -j$(JOBS) --timeout 900 -LE long
SANITIZER_ENV = ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:abort_on_error=1 \
                UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1

.PHONY: all deps release asan tsan test fuzz clean

all: release

deps:
	@scripts/install-deps.sh

release: deps
	cmake -S . -B build/release -DCMAKE_BUILD_TYPE=Release
	cmake --build build/release -j$(JOBS)

asan: deps
	cmake -S . -B build/asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKPL_SANITIZE=address \
	      -DKPL_BUILD_BENCH=OFF
	cmake --build build/asan -j$(JOBS)

# TSAN_TARGETS names the targets to build (every one when empty); CI builds the thread tests.
tsan: deps
	cmake -S . -B build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKPL_SANITIZE=thread \
	      -DKPL_BUILD_BENCH=OFF
	cmake --build build/tsan -j$(JOBS) $(if $(TSAN_TARGETS),--target $(TSAN_TARGETS))

test: release asan
	cd build/release && $(CTEST)
	cd build/asan && $(SANITIZER_ENV) $(CTEST)

# The libFuzzer targets, built with clang under ASan + UBSan: a minute each of the XML import
# and of the read paths over arbitrary store records, from their seed corpora. New inputs go
# to build/fuzz/corpus and build/fuzz/store_corpus, crashing ones to build/fuzz.
fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	      -DKPL_BUILD_FUZZ=ON -DKPL_SANITIZE=address -DKPL_BUILD_TESTS=OFF -DKPL_BUILD_BENCH=OFF
	cmake --build build/fuzz -j$(JOBS) --target xml_import_fuzz store_records_fuzz
	mkdir -p build/fuzz/corpus build/fuzz/store_corpus
	cd build/fuzz && $(SANITIZER_ENV) fuzz/xml_import_fuzz -max_total_time=60 \
	      -dict=../../fuzz/xml.dict corpus ../../fuzz/corpus
	cd build/fuzz && $(SANITIZER_ENV) fuzz/store_records_fuzz -max_total_time=60 -timeout=10 \
	      store_corpus ../../fuzz/store_corpus

# Prepares the machine, builds (optimised) and reads an example document into a store with
# kmeta, printing it back as the tool writes it.
.PHONY: demo
demo: release
	build/release/tools/kmeta/kmeta roundtrip examples/part_catalogue.xml

clean:
	rm -rf build
