# The front doors. `make demo` and `make check` do all set-up themselves on Debian 12.
.DEFAULT_GOAL := help
.PHONY: help demo build check quick-check campaign look lint tidy format asan tsan fuzz bench bench-peers install clean

JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
# Seconds that each fuzz target runs.
FUZZ_TIME ?= 60

help:
	@echo "make demo         a gateway behind a Postfix of its own, at work (installs, builds, runs)"
	@echo "make check        every test, the linters and the sanitizers (installs, builds, runs)"
	@echo "make quick-check  the tests of one plain build"
	@echo "make campaign     every change to every message of the folder MAIL=..., examined part by part"
	@echo "make look         pictures of mails before and after a stamp, drawn by a browser"
	@echo "make bench        speed, as ratios to something in the same run"
	@echo "make bench-peers  kavi-milter beside other mail filters, where they are installed"
	@echo "make fuzz         every fuzz target for FUZZ_TIME=$(FUZZ_TIME) seconds"
	@echo "make tsan         the tests that use threads, under the thread sanitizer"
	@echo "make tidy         clang-tidy over the product's sources"
	@echo "make format       rewrite the sources with clang-format"
	@echo "make install      install the release build into PREFIX=$(PREFIX)"

build:
	@scripts/install-packages build
	@scripts/build release

demo:
	@scripts/install-packages build
	@scripts/install-packages demo || echo "Going on without them."
	@scripts/build release
	@examples/demo.sh build/release/bin

check:
	@scripts/install-packages build check
	@scripts/check

quick-check:
	@scripts/install-packages build check
	@scripts/check dev

# RESULTS: where the table and the lists go. SKIP: files to leave out, as a shell pattern.
RESULTS ?= build/campaign
campaign:
	@test -n "$(MAIL)" || { echo "campaign: name a folder of messages: make campaign MAIL=FOLDER" >&2; exit 2; }
	@scripts/install-packages build check
	@scripts/build release
	@python3 -B tests/campaign/campaign.py build/release/bin/kavi "$(MAIL)" --out "$(RESULTS)" --skip "$(SKIP)"

look:
	@scripts/install-packages build check look
	@scripts/build release
	@scripts/look build/release/bin/kavi build/look

lint:
	@scripts/install-packages build check
	@scripts/check lint

tidy:
	@scripts/install-packages build check
	@scripts/lint tidy

asan:
	@scripts/install-packages build check
	@scripts/check asan

tsan:
	@scripts/install-packages build check
	@scripts/check tsan

format:
	@git ls-files '*.h' '*.cpp' '*.c' | xargs clang-format -i

fuzz:
	@scripts/install-packages build fuzz
	@scripts/fuzz $(FUZZ_TIME)

bench:
	@scripts/install-packages build bench
	@scripts/build release -DKAVI_BUILD_BENCH=ON
	@scripts/bench build/release/bin

bench-peers:
	@scripts/install-packages build bench
	@scripts/build release -DKAVI_BUILD_BENCH=ON
	@python3 -B bench/peers.py build/release/bin

install: build
	@cmake --install build/release --prefix $(PREFIX)
	@# Without it the programs do not find their libraries. In a package it is the package's to do.
	@if [ -z "$(DESTDIR)" ] && [ "$$(id -u)" = 0 ]; then /sbin/ldconfig; fi

clean:
	@rm -rf build
