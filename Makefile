# Thin entries: each installs what is missing from Debian, configures, builds and runs.

.PHONY: demo test coverage soak benchmark lint

# OFFLINE=1: with a file in place of a sound server.
demo:
	@scripts/install-dependencies build demo $(if $(OFFLINE),,live)
	@scripts/build dev -DZAV_BUILD_TESTS=OFF
	@examples/$(if $(OFFLINE),run-demo,run-live-demo) build/dev out/demo

test:
	@scripts/install-dependencies build demo test
	@scripts/build dev -DZAV_BUILD_TESTS=ON
	@ctest --preset dev

# The lines and branches that the tests ran, by folder.
coverage:
	@scripts/install-dependencies build demo test coverage
	@scripts/build coverage
	@find build/coverage -name '*.gcda' -delete
	@ctest --preset coverage
	@scripts/print-coverage build/coverage

# What takes minutes and chance: KILLS (100) sound servers of kind SERVER (pulseaudio or pipewire)
# under a running loop.
soak:
	@scripts/install-dependencies build demo test
	@scripts/build dev
	@tests/kill-sound-server build/dev $(or $(KILLS),100) $(or $(SERVER),pulseaudio)

benchmark:
	@scripts/install-dependencies build bench
	@scripts/build release -DZAV_BUILD_BENCHMARKS=ON
	@build/release/benchmarks/zav_benchmarks
	@benchmarks/compare-tools build/release
	@benchmarks/compare-live build/release
	@benchmarks/compare-live --server pipewire build/release

# QUICK=1: without the benchmarks and clang's analyser, which are half of the time.
lint:
	@scripts/install-dependencies build demo test lint $(if $(QUICK),,bench)
	@cmake --preset dev -B build/lint -DZAV_BUILD_TESTS=OFF -DZAV_BUILD_BENCHMARKS=$(if $(QUICK),OFF,ON) -DCMAKE_UNITY_BUILD=ON
	@scripts/lint build/lint $(if $(QUICK),'--checks=-clang-analyzer-*')
