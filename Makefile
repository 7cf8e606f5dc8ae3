# One word each. `run` and `test` install what they need on a bare Debian machine.
.PHONY: run test firmware os-test foreign-test fuzz soak bench format check clean

BUILD := build
CMAKE := cmake -G Ninja -S .
QUIET := $(if $(V),,>/dev/null)

run:
	@Scripts/install-packages build
	@$(CMAKE) -B $(BUILD)/release -DCMAKE_BUILD_TYPE=RelWithDebInfo $(QUIET)
	@cmake --build $(BUILD)/release --target ras-sim $(QUIET)
	@$(BUILD)/release/ras-sim list
	@$(BUILD)/release/ras-sim run Scenarios/demo.yaml --out out/demo
	@$(BUILD)/release/ras-sim run Scenarios/demo-memory.yaml --out out/demo-memory

test:
	@Scripts/install-packages build test
	$(CMAKE) -B $(BUILD)/sanitize -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=ON
	cmake --build $(BUILD)/sanitize
	ctest --test-dir $(BUILD)/sanitize --output-on-failure -j $$(nproc)

firmware:
	@Scripts/install-packages firmware
	@Scripts/build-firmware $(BUILD)/firmware

os-test:
	@Scripts/install-packages build os-test
	@$(CMAKE) -B $(BUILD)/release -DCMAKE_BUILD_TYPE=RelWithDebInfo $(QUIET)
	@cmake --build $(BUILD)/release --target ras-sim $(QUIET)
	@Scripts/os-test $(BUILD)/release/ras-sim $(BUILD)/os

foreign-test:
	@Scripts/install-packages build test
	@$(CMAKE) -B $(BUILD)/release -DCMAKE_BUILD_TYPE=RelWithDebInfo $(QUIET)
	@cmake --build $(BUILD)/release --target foreign-tests $(QUIET)
	@Scripts/foreign-test $(BUILD)/release/foreign-tests

# SECONDS: for each target.
fuzz:
	@Scripts/install-packages build fuzz
	@$(CMAKE) -B $(BUILD)/fuzz -DCMAKE_CXX_COMPILER=clang++-14 -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFUZZ=ON $(QUIET)
	@cmake --build $(BUILD)/fuzz $(QUIET)
	@Scripts/fuzz $(BUILD)/fuzz $(or $(SECONDS),20)

# SMIS, SEED: how many SMIs on random machines, and the first machine's seed.
soak:
	@Scripts/install-packages build test
	@$(CMAKE) -B $(BUILD)/sanitize -DCMAKE_BUILD_TYPE=Debug -DSANITIZE=ON $(QUIET)
	@cmake --build $(BUILD)/sanitize --target ras-tests $(QUIET)
	@RAS_SOAK_SMIS=$(or $(SMIS),1000000) RAS_SOAK_SEED=$(or $(SEED),1) $(BUILD)/sanitize/ras-tests --gtest_filter='Soak.*'

bench:
	@Scripts/install-packages build bench
	@$(CMAKE) -B $(BUILD)/release -DCMAKE_BUILD_TYPE=RelWithDebInfo $(QUIET)
	@cmake --build $(BUILD)/release --target ras-bench $(QUIET)
	$(BUILD)/release/ras-bench

format:
	@Scripts/install-packages check
	@git ls-files '*.h' '*.cpp' | xargs clang-format-14 -i

check:
	@Scripts/install-packages build test check firmware
	@git ls-files '*.h' '*.cpp' | xargs clang-format-14 --dry-run -Werror
	@Scripts/check-floors
	@Scripts/build-firmware $(BUILD)/firmware
	@Scripts/check-state $(BUILD)/firmware
	@Scripts/check-tidy $(BUILD)/tidy

clean:
	rm -rf $(BUILD) out
